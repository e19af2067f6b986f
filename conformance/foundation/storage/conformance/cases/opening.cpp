// Which streams open, and what that does to the file.

#include <foundation/storage/conformance/detail/case.hpp>
#include <foundation/storage/conformance/detail/trial.hpp>

#include <memory>

namespace foundation::storage::conformance::detail {

namespace {

using enum Ability;
using Kind = DeclaredItem::Kind;

std::vector<ByteStreamOpenOptions> allOptions(ByteStreamCreation creation) {
    std::vector<ByteStreamOpenOptions> all;
    for (auto const access : {ByteStreamAccess::WriteOnly, ByteStreamAccess::ReadWrite}) {
        for (std::uint32_t const withoutTruncate : {0U, 1U}) {
            for (std::uint32_t const withoutAppend : {0U, 1U}) {
                all.push_back({access, creation, withoutTruncate, withoutAppend});
            }
        }
    }
    return all;
}

std::string describe(ByteStreamOpenOptions const& options) {
    return std::string(options.access == ByteStreamAccess::WriteOnly ? "WriteOnly" : "ReadWrite") +
           (options.creation == ByteStreamCreation::OpenExisting ? ", OpenExisting"
                                                                 : ", OpenOrCreate") +
           ", withoutTruncate " + textOf(options.withoutTruncate) + ", withoutAppend " +
           textOf(options.withoutAppend);
}

constexpr auto existing = ByteStreamCreation::OpenExisting;
constexpr auto orCreate = ByteStreamCreation::OpenOrCreate;

constexpr Case cases[] = {
    {"WhatIsMissingIsNotRead",
     [](Trial& t) {
         t.content();
         t.expectRefused(
             "openReadOnlyStream of what is missing",
             [&] { t.provider().openReadOnlyStream(t.at(u"not here")); },
             ErrorCode::ResourceNotFound, t.at(u"not here"));
         StorageIRI const below = t.at(u"not here/nor below");
         t.expectNotFoundOnTheWay(
             "openReadOnlyStream below what is missing",
             [&] { t.provider().openReadOnlyStream(below); }, below);
         t.expectGone(u"not here");
     },
     Reading},
    {"AFolderIsNotRead",
     [](Trial& t) {
         for (DeclaredItem const& item : std::vector(t.content())) {
             if (item.kind == Kind::Folder) {
                 t.expectRefused(
                     "openReadOnlyStream of the folder " + textOf(item.path),
                     [&] { t.provider().openReadOnlyStream(t.at(item.path)); },
                     ErrorCode::InvalidLocation, t.at(item.path));
             }
         }
         t.expectRefused(
             "openReadOnlyStream of the place", [&] { t.provider().openReadOnlyStream(t.at({})); },
             ErrorCode::InvalidLocation, t.at({}));
     },
     Reading},
    {"NothingIsReadBelowAFile",
     [](Trial& t) {
         for (DeclaredItem const& item : std::vector(t.content())) {
             StorageIRI const below = t.at(item.path + u"/below");
             if (item.kind == Kind::File) {
                 t.expectNotFoundOnTheWay(
                     "openReadOnlyStream below the file " + textOf(item.path),
                     [&] { t.provider().openReadOnlyStream(below); }, below);
             }
         }
     },
     Reading},
    {"WhatIsMissingIsMade",
     [](Trial& t) {
         unsigned number = 0;
         for (ByteStreamOpenOptions const& options : allOptions(orCreate)) {
             std::string const digits = std::to_string(number++);
             ustring const path = u"file " + ustring(digits.begin(), digits.end());
             auto const stream = t.provider().openStream(t.at(path), options);
             write(*stream, "new");
             stream->close();
             t.expectEqual(describe(options) + ", exists", t.exists(path), ExistsResult::File);
             t.expectFile(path, "new");
         }
     },
     Writing},
    {"WhatIsMadeIsThereAtOnce",
     [](Trial& t) {
         auto const stream =
             t.provider().openStream(t.at(u"file"), {ByteStreamAccess::WriteOnly, orCreate, 0, 1});
         stream->close();
         t.expectFile(u"file", "");
     },
     Writing},
    {"OpenExistingMakesNothing",
     [](Trial& t) {
         for (ByteStreamOpenOptions const& options : allOptions(existing)) {
             t.expectRefused(
                 "openStream of what is missing, " + describe(options),
                 [&] { t.provider().openStream(t.at(u"missing"), options); },
                 ErrorCode::ResourceNotFound, t.at(u"missing"));
         }
         t.expectGone(u"missing");
     },
     Writing},
    {"TruncatesUnlessToldNotTo",
     [](Trial& t) {
         for (auto const creation : {existing, orCreate}) {
             for (ByteStreamOpenOptions const& options : allOptions(creation)) {
                 t.makeFile(u"file", "0123456789");
                 t.provider().openStream(t.at(u"file"), options)->close();
                 t.expectEqual(describe(options) + ", nothing written", t.bytesOf(u"file"),
                               std::string(options.withoutTruncate ? "0123456789" : ""));
             }
         }
     },
     Writing | Reading},
    {"AppendsUnlessToldNotTo",
     [](Trial& t) {
         for (auto const creation : {existing, orCreate}) {
             for (ByteStreamOpenOptions const& options : allOptions(creation)) {
                 t.makeFile(u"file", "0123456789");
                 auto const stream = t.provider().openStream(t.at(u"file"), options);
                 write(*stream, "ab");
                 stream->close();
                 t.expectEqual(describe(options) + ", ab written", t.bytesOf(u"file"),
                               std::string(!options.withoutTruncate ? "ab"
                                           : options.withoutAppend  ? "ab23456789"
                                                                    : "0123456789ab"));
             }
         }
     },
     Writing | Reading},
    {"ReadWriteReadsWhatIsThere",
     [](Trial& t) {
         t.makeFile(u"file", "0123456789");
         for (std::uint32_t const withoutAppend : {0U, 1U}) {
             auto const stream = t.provider().openStream(
                 t.at(u"file"), {ByteStreamAccess::ReadWrite, existing, 1, withoutAppend});
             stream->seek(0, std::ios_base::beg);
             t.expectEqual("what a stream for both reads", readAll(t, *stream),
                           std::string("0123456789"));
         }
     },
     Writing},
    {"AFolderIsNotWritten",
     [](Trial& t) {
         t.makeFolder(u"folder");
         for (auto const creation : {existing, orCreate}) {
             for (ByteStreamOpenOptions const& options : allOptions(creation)) {
                 t.expectRefused(
                     "openStream of a folder, " + describe(options),
                     [&] { t.provider().openStream(t.at(u"folder"), options); },
                     ErrorCode::InvalidLocation, t.at(u"folder"));
             }
         }
         t.expectEqual("exists of the folder", t.exists(u"folder"), ExistsResult::Folder);
     },
     Writing | FolderCreation},
    {"NothingIsMadeInAMissingFolder",
     [](Trial& t) {
         StorageIRI const location = t.at(u"missing/file");
         for (ByteStreamOpenOptions const& options : allOptions(orCreate)) {
             t.expectNotFoundOnTheWay(
                 "openStream in a missing folder, " + describe(options),
                 [&] { t.provider().openStream(location, options); }, location);
         }
         t.expectGone(u"missing");
     },
     Writing},
    {"NothingIsMadeBelowAFile",
     [](Trial& t) {
         t.makeFile(u"file", "stays");
         StorageIRI const location = t.at(u"file/below");
         t.expectNotFoundOnTheWay(
             "openStream below a file",
             [&] {
                 t.provider().openStream(location, {ByteStreamAccess::WriteOnly, orCreate, 0, 1});
             },
             location);
         t.expectFile(u"file", "stays");
     },
     Writing},
    {"AReadOnlyFileIsNotWritten",
     [](Trial& t) {
         t.makeFile(u"file", "stays");
         t.makeReadOnly(u"file");
         for (auto const creation : {existing, orCreate}) {
             for (ByteStreamOpenOptions const& options : allOptions(creation)) {
                 t.expectRefused(
                     "openStream of a read-only file, " + describe(options),
                     [&] { t.provider().openStream(t.at(u"file"), options); },
                     ErrorCode::PermissionDenied, t.at(u"file"));
             }
         }
         t.expectFile(u"file", "stays");
     },
     Writing | ReadOnlyItems},
    {"AReadOnlyFileIsRead",
     [](Trial& t) {
         t.makeFile(u"file", "content");
         t.makeReadOnly(u"file");
         t.expectFile(u"file", "content");
     },
     Writing | Reading | ReadOnlyItems},
    {"AFileThatIsWritableAgainIsWritten",
     [](Trial& t) {
         t.makeFile(u"file", "old");
         t.makeReadOnly(u"file");
         t.provider().setWritable(t.at(u"file"), true);
         t.makeFile(u"file", "new");
         t.expectFile(u"file", "new");
     },
     Writing | ReadOnlyItems},
    {"ARefusedOpeningHarmsNothing",
     [](Trial& t) {
         t.makeFile(u"file", "content");
         t.makeFolder(u"folder");
         for (int time = 0; time < 200; ++time) {
             t.expectRefused(
                 "openReadOnlyStream of what is missing",
                 [&] { t.provider().openReadOnlyStream(t.at(u"missing")); },
                 ErrorCode::ResourceNotFound, t.at(u"missing"));
             t.expectRefused(
                 "openReadOnlyStream of a folder",
                 [&] { t.provider().openReadOnlyStream(t.at(u"folder")); },
                 ErrorCode::InvalidLocation, t.at(u"folder"));
         }
         t.expectFile(u"file", "content");
     },
     Writing | Reading | FolderCreation},
    {"AStreamThatIsDroppedIsReleased",
     [](Trial& t) {
         t.makeFile(u"file", "content");
         for (int time = 0; time < 2000; ++time) {
             t.provider().openReadOnlyStream(t.at(u"file"));
         }
         t.expectFile(u"file", "content");
     },
     Writing | Reading},
};

} // namespace

Family openingFamily() {
    return {"Opening", cases};
}

} // namespace foundation::storage::conformance::detail
