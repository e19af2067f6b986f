#include <foundation/storage/conformance/detail/case.hpp>
#include <foundation/storage/conformance/detail/trial.hpp>

namespace foundation::storage::conformance::detail {

namespace {

using enum Ability;

constexpr Case cases[] = {
    {"ANewFileIsThereAndEmpty",
     [](Trial& t) {
         t.provider().createFile(t.at(u"file"));
         t.expectFile(u"file", "");
     },
     FileCreation},
    {"WhatIsThereCannotBeCreated",
     [](Trial& t) {
         t.makeFile(u"file");
         t.makeFolder(u"folder");
         for (ustring const path : {u"file", u"folder"}) {
             t.expectRefused(
                 "createFile of the existing " + textOf(path),
                 [&] { t.provider().createFile(t.at(path)); }, ErrorCode::ResourceAlreadyExists,
                 t.at(path));
         }
         t.expectEqual("exists of the file", t.exists(u"file"), ExistsResult::File);
         t.expectEqual("exists of the folder", t.exists(u"folder"), ExistsResult::Folder);
     },
     FileCreation | FolderCreation},
    {"ARefusedCreationKeepsTheContent",
     [](Trial& t) {
         t.makeFile(u"file", "old");
         t.expectRefused(
             "createFile of an existing file", [&] { t.provider().createFile(t.at(u"file")); },
             ErrorCode::ResourceAlreadyExists, t.at(u"file"));
         t.expectFile(u"file", "old");
     },
     FileCreation | Writing | Reading},
    {"NoneIsCreatedInAMissingFolder",
     [](Trial& t) {
         StorageIRI const location = t.at(u"missing/file");
         t.expectNotFoundOnTheWay(
             "createFile in a missing folder", [&] { t.provider().createFile(location); },
             location);
         t.expectGone(u"missing");
     },
     FileCreation},
    {"NoneIsCreatedBelowAFile",
     [](Trial& t) {
         t.makeFile(u"file");
         StorageIRI const location = t.at(u"file/below");
         t.expectNotFoundOnTheWay(
             "createFile below a file", [&] { t.provider().createFile(location); }, location);
         t.expectEqual("exists of the file", t.exists(u"file"), ExistsResult::File);
     },
     FileCreation},
    {"ThePlaceCannotBeCreatedAsAFile",
     [](Trial& t) {
         t.expectRefused(
             "createFile of the place's folder", [&] { t.provider().createFile(t.at({})); },
             ErrorCode::ResourceAlreadyExists, t.at({}));
     },
     FileCreation},
    {"ARemovedFileIsGone",
     [](Trial& t) {
         t.makeFile(u"file", "content");
         t.makeFile(u"other", "stays");
         t.provider().removeFile(t.at(u"file"));
         t.expectGone(u"file");
         t.expectFile(u"other", "stays");
     },
     FileRemoval | Writing},
    {"AnEmptyFileIsRemoved",
     [](Trial& t) {
         t.provider().createFile(t.at(u"file"));
         t.provider().removeFile(t.at(u"file"));
         t.expectGone(u"file");
     },
     FileCreation | FileRemoval},
    {"WhatIsMissingCannotBeRemoved",
     [](Trial& t) {
         for (ustring const path : {u"missing", u"missing/below"}) {
             t.expectNotFoundOnTheWay(
                 "removeFile of the missing " + textOf(path),
                 [&] { t.provider().removeFile(t.at(path)); }, t.at(path));
         }
     },
     FileRemoval},
    {"WhatIsMissingIsNamedByTheRemoval",
     [](Trial& t) {
         t.expectRefused(
             "removeFile of what is missing", [&] { t.provider().removeFile(t.at(u"missing")); },
             ErrorCode::ResourceNotFound, t.at(u"missing"));
     },
     FileRemoval},
    {"AFileIsRemovedOnce",
     [](Trial& t) {
         t.makeFile(u"file");
         t.provider().removeFile(t.at(u"file"));
         t.expectRefused(
             "removeFile once more", [&] { t.provider().removeFile(t.at(u"file")); },
             ErrorCode::ResourceNotFound, t.at(u"file"));
     },
     FileCreation | FileRemoval},
    {"NothingIsRemovedBelowAFile",
     [](Trial& t) {
         t.makeFile(u"file");
         StorageIRI const location = t.at(u"file/below");
         t.expectNotFoundOnTheWay(
             "removeFile below a file", [&] { t.provider().removeFile(location); }, location);
         t.expectEqual("exists of the file", t.exists(u"file"), ExistsResult::File);
     },
     FileCreation | FileRemoval},
    {"AFolderIsNotRemovedAsAFile",
     [](Trial& t) {
         t.makeFolder(u"folder");
         t.expectRefused(
             "removeFile of a folder", [&] { t.provider().removeFile(t.at(u"folder")); },
             ErrorCode::InvalidLocation, t.at(u"folder"));
         t.expectEqual("exists of the folder", t.exists(u"folder"), ExistsResult::Folder);
     },
     FileRemoval | FolderCreation},
    {"ARemovedFileCanBeMadeAgainAndIsEmpty",
     [](Trial& t) {
         t.makeFile(u"file", "old");
         t.provider().removeFile(t.at(u"file"));
         t.provider().createFile(t.at(u"file"));
         t.expectFile(u"file", "");
     },
     FileCreation | FileRemoval | Writing | Reading},
    {"AFolderTakesTheNameOfARemovedFile",
     [](Trial& t) {
         t.makeFile(u"name");
         t.provider().removeFile(t.at(u"name"));
         t.provider().createFolder(t.at(u"name"));
         t.expectEqual("exists of the folder", t.exists(u"name"), ExistsResult::Folder);
     },
     FileCreation | FileRemoval | FolderCreation},
    {"AReadOnlyFileIsRemoved",
     [](Trial& t) {
         t.makeFile(u"file");
         t.makeReadOnly(u"file");
         t.expectDone("removeFile of a read-only file",
                      [&] { t.provider().removeFile(t.at(u"file")); });
         t.expectGone(u"file");
     },
     FileCreation | FileRemoval | ReadOnlyItems},
    {"AFileInAFolderIsOfThatFolderAlone",
     [](Trial& t) {
         t.makeFolder(u"one");
         t.makeFolder(u"two");
         t.makeFile(u"one/name", "first");
         t.makeFile(u"two/name", "second");
         t.makeFile(u"name", "third");
         t.expectFile(u"one/name", "first");
         t.expectFile(u"two/name", "second");
         t.provider().removeFile(t.at(u"one/name"));
         t.expectGone(u"one/name");
         t.expectFile(u"two/name", "second");
         t.expectFile(u"name", "third");
     },
     FolderCreation | FileRemoval | Writing},
    {"AThousandFilesAreMadeAndRemoved",
     [](Trial& t) {
         auto const name = [](int number) {
             std::string const digits = std::to_string(number);
             return u"file " + ustring(digits.begin(), digits.end());
         };
         for (int number = 0; number < 1000; ++number) {
             t.provider().createFile(t.at(name(number)));
         }
         for (int number = 0; number < 1000; number += 2) {
             t.provider().removeFile(t.at(name(number)));
         }
         for (int number = 0; number < 1000; ++number) {
             if (!t.expectEqual("a file is there behind removals: " + std::to_string(number),
                                t.isThere(name(number)), number % 2 == 1)) {
                 return;
             }
         }
     },
     FileCreation | FileRemoval},
};

} // namespace

Family fileFamily() {
    return {"Files", cases};
}

} // namespace foundation::storage::conformance::detail
