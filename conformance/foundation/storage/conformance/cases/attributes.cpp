#include <foundation/storage/conformance/detail/case.hpp>
#include <foundation/storage/conformance/detail/trial.hpp>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <chrono>

namespace foundation::storage::conformance::detail {

namespace {

using enum Ability;
using Kind = DeclaredItem::Kind;

constexpr AbilitySet forFiles = FileCreation | Ability::FileAttributes;
constexpr AbilitySet forFolders = FolderCreation | Ability::FolderAttributes;

AttributeValues fileValues(Trial& t, ustring const& path) {
    return t.provider().getFileAttributes(t.at(path)).values();
}
AttributeValues folderValues(Trial& t, ustring const& path) {
    return t.provider().getFolderAttributes(t.at(path)).values();
}

/// Clocks of two machines differ, and storages round: what is made now is made within the hour.
bool isNow(Timestamp time) {
    auto const now = std::chrono::duration_cast<std::chrono::seconds>(
                         std::chrono::system_clock::now().time_since_epoch())
                         .count();
    return time.seconds > now - 3600 && time.seconds < now + 3600;
}

constexpr Timestamp longAgo{1'000'000'000, 0};

void setTime(Trial& t, ustring const& path, Timestamp time) {
    t.provider().setLastModified(t.at(path), toPtime(time));
}

void expectTime(Trial& t, Timestamp time, char const* what) {
    t.makeFile(u"file");
    t.makeFolder(u"folder");
    for (ustring const path : {u"file", u"folder"}) {
        if (t.expectDone("setLastModified to " + std::string(what),
                         [&] { setTime(t, path, time); })) {
            t.expectEqual("the time of " + textOf(path) + ", set to " + what,
                          path == u"file" ? fileValues(t, path).lastModified
                                          : folderValues(t, path).lastModified,
                          time);
        }
    }
}

constexpr Case cases[] = {
    {"OfAMissingFileAreNotFound",
     [](Trial& t) {
         t.content();
         t.expectRefused(
             "getFileAttributes of what is missing",
             [&] { t.provider().getFileAttributes(t.at(u"not here")); },
             ErrorCode::ResourceNotFound, t.at(u"not here"));
         StorageIRI const below = t.at(u"not here/nor below");
         t.expectNotFoundOnTheWay(
             "getFileAttributes below what is missing",
             [&] { t.provider().getFileAttributes(below); }, below);
     },
     Ability::FileAttributes},
    {"OfAFolderAreNotThoseOfAFile",
     [](Trial& t) {
         t.expectRefused(
             "getFileAttributes of the place", [&] { t.provider().getFileAttributes(t.at({})); },
             ErrorCode::InvalidLocation, t.at({}));
         for (DeclaredItem const& item : std::vector(t.content())) {
             if (item.kind == Kind::Folder) {
                 t.expectRefused(
                     "getFileAttributes of the folder " + textOf(item.path),
                     [&] { t.provider().getFileAttributes(t.at(item.path)); },
                     ErrorCode::InvalidLocation, t.at(item.path));
             }
         }
     },
     Ability::FileAttributes},
    {"OfAMissingFolderAreNotFound",
     [](Trial& t) {
         t.expectRefused(
             "getFolderAttributes of what is missing",
             [&] { t.provider().getFolderAttributes(t.at(u"not here")); },
             ErrorCode::ResourceNotFound, t.at(u"not here"));
     },
     Ability::FolderAttributes},
    {"OfAFileAreNotThoseOfAFolder",
     [](Trial& t) {
         for (DeclaredItem const& item : std::vector(t.content())) {
             if (item.kind == Kind::File) {
                 t.expectRefused(
                     "getFolderAttributes of the file " + textOf(item.path),
                     [&] { t.provider().getFolderAttributes(t.at(item.path)); },
                     ErrorCode::ResourceNotFound, t.at(item.path));
             }
         }
     },
     Ability::FolderAttributes},
    {"OfEveryFileAreThere",
     [](Trial& t) {
         for (DeclaredItem const& item : t.content()) {
             if (item.kind == Kind::File) {
                 AttributeValues const values = fileValues(t, item.path);
                 t.expect(values.lastModified.nanoseconds >= 0 &&
                              values.lastModified.nanoseconds < 1'000'000'000,
                          "lastModified of " + textOf(item.path) + " is no time");
                 if (values.size && t.has(Reading)) {
                     t.expectEqual("the size of " + textOf(item.path), *values.size,
                                   std::uint64_t{item.bytes.size()});
                 }
             }
         }
     },
     Ability::FileAttributes},
    {"OfEveryFolderAreThere",
     [](Trial& t) {
         folderValues(t, {});
         for (DeclaredItem const& item : t.content()) {
             if (item.kind == Kind::Folder) {
                 folderValues(t, item.path);
             }
         }
     },
     Ability::FolderAttributes},
    {"ExtendedOnesAreOfFilesAndFolders",
     [](Trial& t) {
         t.provider().getExtendedAttributes(t.at({}));
         for (DeclaredItem const& item : t.content()) {
             for (auto const& [key, value] : t.provider().getExtendedAttributes(t.at(item.path))) {
                 t.expect(key.find('.') != std::string::npos,
                          "the key " + textOf(key) + " has no namespace");
             }
         }
     },
     Ability::ExtendedAttributes},
    {"ExtendedOnesOfWhatIsMissingAreNotFound",
     [](Trial& t) {
         t.expectRefused(
             "getExtendedAttributes of what is missing",
             [&] { t.provider().getExtendedAttributes(t.at(u"not here")); },
             ErrorCode::ResourceNotFound, t.at(u"not here"));
     },
     Ability::ExtendedAttributes},
    {"WhatIsNewIsOfNow",
     [](Trial& t) {
         t.makeFile(u"file");
         t.makeFolder(u"folder");
         AttributeValues const file = fileValues(t, u"file");
         AttributeValues const folder = folderValues(t, u"folder");
         t.expect(isNow(file.lastModified),
                  "a new file is of " + textOf(file.lastModified) + ", not of now");
         t.expect(isNow(folder.lastModified),
                  "a new folder is of " + textOf(folder.lastModified) + ", not of now");
         t.expect(!file.created || isNow(*file.created), "a new file was not created now");
         t.expect(!folder.created || isNow(*folder.created), "a new folder was not created now");
     },
     forFiles | forFolders},
    {"WhatIsNewIsWritable",
     [](Trial& t) {
         t.makeFile(u"file");
         t.makeFolder(u"folder");
         t.expect(fileValues(t, u"file").writable, "a new file is read-only");
         t.expect(folderValues(t, u"folder").writable, "a new folder is read-only");
         t.expect(t.provider().getFileAttributes(t.at(u"file")).isWritable(),
                  "isWritable of a new file is false");
     },
     forFiles | forFolders},
    {"ANewFileHasNoBytes",
     [](Trial& t) {
         t.makeFile(u"file");
         t.expectEqual("the size of a new file", fileValues(t, u"file").size,
                       std::optional<std::uint64_t>(0));
     },
     forFiles},
    {"ATimeOfWholeSecondsIsKept", [](Trial& t) { expectTime(t, longAgo, "2001"); },
     forFiles | forFolders | Times},
    {"ATimeOfMicrosecondsIsKept",
     [](Trial& t) {
         expectTime(t, {1'234'567'890, 123'456'000}, "microseconds of 2009");
     },
     forFiles | forFolders | Times},
    {"TheEpochIsATime",
     [](Trial& t) {
         expectTime(t, {0, 0}, "the epoch");
     },
     forFiles | forFolders | Times},
    {"ATimeBeforeTheEpochIsKept",
     [](Trial& t) {
         expectTime(t, {-86'400, 500'000'000}, "1969");
     },
     forFiles | forFolders | Times},
    {"ATimeBehind2038IsKept",
     [](Trial& t) {
         expectTime(t, {4'000'000'000, 0}, "2096");
     },
     forFiles | forFolders | Times},
    {"WhatIsNoTimeIsRefusedAndChangesNothing",
     [](Trial& t) {
         t.makeFile(u"file");
         setTime(t, u"file", longAgo);
         for (auto const special : {boost::posix_time::not_a_date_time,
                                    boost::posix_time::pos_infin, boost::posix_time::neg_infin}) {
             try {
                 t.provider().setLastModified(t.at(u"file"), boost::posix_time::ptime(special));
                 t.remark("setLastModified to a special value is done");
             } catch (std::invalid_argument const&) {
             } catch (...) {
                 t.remark("setLastModified to a special value gave " + textOfCurrentException() +
                          " instead of std::invalid_argument");
             }
         }
         t.expectEqual("the time behind", fileValues(t, u"file").lastModified, longAgo);
     },
     forFiles | Times},
    {"TheTimeOfWhatIsMissingCannotBeSet",
     [](Trial& t) {
         t.expectRefused(
             "setLastModified of what is missing", [&] { setTime(t, u"missing", longAgo); },
             ErrorCode::ResourceNotFound, t.at(u"missing"));
         t.expectGone(u"missing");
     },
     Ability::Times},
    {"TheTimeOfAReadOnlyFileCanBeSet",
     [](Trial& t) {
         t.makeFile(u"file");
         t.makeReadOnly(u"file");
         setTime(t, u"file", longAgo);
         t.expectEqual("the time", fileValues(t, u"file").lastModified, longAgo);
         t.expect(!fileValues(t, u"file").writable, "the file is writable behind setLastModified");
     },
     forFiles | Times | ReadOnlyItems},
    {"SettingATimeChangesNothingElse",
     [](Trial& t) {
         t.makeFile(u"file", "content");
         t.makeFile(u"other", "content");
         Timestamp const other = fileValues(t, u"other").lastModified;
         setTime(t, u"file", longAgo);
         t.expectFile(u"file", "content");
         t.expectEqual("the time of another file", fileValues(t, u"other").lastModified, other);
         t.expect(fileValues(t, u"file").writable, "the file is read-only behind setLastModified");
     },
     forFiles | Times | Writing},
    {"WritingMakesTheTimeThatOfNow",
     [](Trial& t) {
         t.makeFile(u"file", "old");
         setTime(t, u"file", longAgo);
         t.makeFile(u"file", "new");
         t.expect(isNow(fileValues(t, u"file").lastModified),
                  "a file that was written is of " + textOf(fileValues(t, u"file").lastModified));
     },
     forFiles | Times | Writing},
    {"ReadingLeavesTheTime",
     [](Trial& t) {
         t.makeFile(u"file", "content");
         setTime(t, u"file", longAgo);
         t.expectFile(u"file", "content");
         t.expectEqual("the time behind reading", fileValues(t, u"file").lastModified, longAgo);
     },
     forFiles | Times | Writing | Reading},
    {"ChangesInAFolderMakeItsTimeThatOfNow",
     [](Trial& t) {
         t.makeFolder(u"folder");
         auto const expectMoved = [&](char const* what, Call const& change) {
             setTime(t, u"folder", longAgo);
             change();
             t.expect(isNow(folderValues(t, u"folder").lastModified),
                      std::string("the time of a folder does not move with ") + what);
         };
         expectMoved("a new file", [&] { t.makeFile(u"folder/file"); });
         expectMoved("a new folder", [&] { t.makeFolder(u"folder/inner"); });
         expectMoved("a removed file", [&] { t.provider().removeFile(t.at(u"folder/file")); });
         expectMoved("a removed folder", [&] { t.provider().removeFolder(t.at(u"folder/inner")); });
     },
     forFiles | forFolders | Times | FileRemoval | FolderRemoval},
    {"AFileCanBeReadOnlyAndWritableAgain",
     [](Trial& t) {
         t.makeFile(u"file");
         for (bool const writable : {false, false, true, true, false, true}) {
             t.provider().setWritable(t.at(u"file"), writable);
             t.expectEqual("writable", fileValues(t, u"file").writable, writable);
         }
     },
     forFiles | ReadOnlyItems},
    {"AFolderCanBeReadOnlyAndWritableAgain",
     [](Trial& t) {
         t.makeFolder(u"folder");
         for (bool const writable : {false, true}) {
             t.provider().setWritable(t.at(u"folder"), writable);
             t.expectEqual("writable", folderValues(t, u"folder").writable, writable);
         }
     },
     forFolders | ReadOnlyItems},
    {"WhatIsMissingCannotBeReadOnly",
     [](Trial& t) {
         for (bool const writable : {false, true}) {
             t.expectRefused(
                 "setWritable of what is missing",
                 [&] { t.provider().setWritable(t.at(u"missing"), writable); },
                 ErrorCode::ResourceNotFound, t.at(u"missing"));
         }
     },
     Ability::ReadOnlyItems},
    {"BeingReadOnlyIsAFilesOwn",
     [](Trial& t) {
         t.makeFile(u"file");
         t.makeFile(u"other");
         t.makeReadOnly(u"file");
         t.expect(fileValues(t, u"other").writable, "the file beside is read-only too");
     },
     forFiles | ReadOnlyItems},
};

} // namespace

Family attributeFamily() {
    return {"Attributes", cases};
}

} // namespace foundation::storage::conformance::detail
