#include <foundation/storage/conformance/detail/case.hpp>
#include <foundation/storage/conformance/detail/trial.hpp>

namespace foundation::storage::conformance::detail {

namespace {

using enum Ability;

/// A path of this many folders below each other.
ustring chain(int depth) {
    ustring path = u"level";
    for (int level = 1; level < depth; ++level) {
        path += u"/level";
    }
    return path;
}

constexpr Case cases[] = {
    {"ANewFolderIsThereAndEmpty",
     [](Trial& t) {
         t.provider().createFolder(t.at(u"folder"));
         t.expectEqual("exists of the folder", t.exists(u"folder"), ExistsResult::Folder);
         t.expectEqual("the names in the new folder", t.names(u"folder"), {});
     },
     FolderCreation | Ability::Listing},
    {"WhatIsThereCannotBeCreated",
     [](Trial& t) {
         t.makeFolder(u"folder");
         t.makeFile(u"file");
         for (ustring const path : {u"folder", u"file", u""}) {
             t.expectRefused(
                 "createFolder of the existing " + textOf(path),
                 [&] { t.provider().createFolder(t.at(path)); }, ErrorCode::ResourceAlreadyExists,
                 t.at(path));
         }
         t.expectEqual("exists of the file", t.exists(u"file"), ExistsResult::File);
     },
     FolderCreation | FileCreation},
    {"NoneIsCreatedInAMissingFolder",
     [](Trial& t) {
         StorageIRI const location = t.at(u"missing/folder");
         t.expectNotFoundOnTheWay(
             "createFolder in a missing folder", [&] { t.provider().createFolder(location); },
             location);
         t.expectGone(u"missing");
     },
     FolderCreation},
    {"NoneIsCreatedBelowAFile",
     [](Trial& t) {
         t.makeFile(u"file");
         StorageIRI const location = t.at(u"file/below");
         t.expectNotFoundOnTheWay(
             "createFolder below a file", [&] { t.provider().createFolder(location); }, location);
     },
     FolderCreation | FileCreation},
    {"AFolderIsMadeInAFolder",
     [](Trial& t) {
         t.makeFolder(u"outer");
         t.provider().createFolder(t.at(u"outer/inner"));
         t.expectEqual("exists of the inner folder", t.exists(u"outer/inner"),
                       ExistsResult::Folder);
         t.expectGone(u"inner");
     },
     FolderCreation},
    {"AChainIsMadeWithAllAboveIt",
     [](Trial& t) {
         t.provider().createFolderRecursive(t.at(u"a/b/c"));
         for (ustring const path : {u"a", u"a/b", u"a/b/c"}) {
             t.expectEqual("exists of " + textOf(path), t.exists(path), ExistsResult::Folder);
         }
     },
     FolderChainCreation},
    {"AChainThatIsThereIsFine",
     [](Trial& t) {
         t.provider().createFolderRecursive(t.at(u"a/b"));
         t.expectDone("createFolderRecursive of what is there",
                      [&] { t.provider().createFolderRecursive(t.at(u"a/b")); });
         t.expectDone("createFolderRecursive of the place",
                      [&] { t.provider().createFolderRecursive(t.at({})); });
         t.provider().createFolderRecursive(t.at(u"a/b/c"));
         t.expectEqual("exists of the chain", t.exists(u"a/b/c"), ExistsResult::Folder);
     },
     FolderChainCreation},
    {"AChainThatIsThereKeepsItsContent",
     [](Trial& t) {
         t.provider().createFolderRecursive(t.at(u"a/b"));
         t.makeFile(u"a/b/file", "stays");
         t.provider().createFolderRecursive(t.at(u"a/b"));
         t.expectFile(u"a/b/file", "stays");
     },
     FolderChainCreation | Writing},
    {"AChainDoesNotEndInAFile",
     [](Trial& t) {
         t.makeFile(u"file");
         t.expectRefused(
             "createFolderRecursive of a file",
             [&] { t.provider().createFolderRecursive(t.at(u"file")); },
             ErrorCode::ResourceAlreadyExists, t.at(u"file"));
     },
     FolderChainCreation | FileCreation},
    {"AChainDoesNotGoThroughAFile",
     [](Trial& t) {
         t.makeFile(u"file");
         StorageIRI const location = t.at(u"file/a/b");
         t.expectNotFoundOnTheWay(
             "createFolderRecursive through a file",
             [&] { t.provider().createFolderRecursive(location); }, location);
         t.expectEqual("exists of the file", t.exists(u"file"), ExistsResult::File);
     },
     FolderChainCreation | FileCreation},
    {"AHundredLevelsAreMadeAtOnce",
     [](Trial& t) {
         t.provider().createFolderRecursive(t.at(chain(100)));
         t.expectEqual("exists of level 100", t.exists(chain(100)), ExistsResult::Folder);
         t.expectEqual("exists of level 50", t.exists(chain(50)), ExistsResult::Folder);
         t.expectGone(chain(101));
     },
     FolderChainCreation},
    {"AnEmptyFolderIsRemoved",
     [](Trial& t) {
         t.makeFolder(u"folder");
         t.makeFolder(u"other");
         t.provider().removeFolder(t.at(u"folder"));
         t.expectGone(u"folder");
         t.expectEqual("exists of the other folder", t.exists(u"other"), ExistsResult::Folder);
     },
     FolderCreation | FolderRemoval},
    {"AFolderWithAFileIsNotRemoved",
     [](Trial& t) {
         t.makeFolder(u"folder");
         t.makeFile(u"folder/file", "stays");
         t.expectRefused(
             "removeFolder of a folder with a file",
             [&] { t.provider().removeFolder(t.at(u"folder")); }, ErrorCode::FolderNotEmpty,
             t.at(u"folder"));
         t.expectFile(u"folder/file", "stays");
     },
     FolderCreation | FolderRemoval | Writing},
    {"AFolderWithAFolderIsNotRemoved",
     [](Trial& t) {
         t.makeFolder(u"folder");
         t.makeFolder(u"folder/inner");
         t.expectRefused(
             "removeFolder of a folder with a folder",
             [&] { t.provider().removeFolder(t.at(u"folder")); }, ErrorCode::FolderNotEmpty,
             t.at(u"folder"));
         t.expectEqual("exists of the inner folder", t.exists(u"folder/inner"),
                       ExistsResult::Folder);
     },
     FolderCreation | FolderRemoval},
    {"AnEmptiedFolderIsRemoved",
     [](Trial& t) {
         t.makeFolder(u"folder");
         t.makeFile(u"folder/file");
         t.provider().removeFile(t.at(u"folder/file"));
         t.expectEqual("exists of the emptied folder", t.exists(u"folder"), ExistsResult::Folder);
         t.provider().removeFolder(t.at(u"folder"));
         t.expectGone(u"folder");
     },
     FolderCreation | FolderRemoval | FileCreation | FileRemoval},
    {"WhatIsMissingCannotBeRemoved",
     [](Trial& t) {
         t.expectRefused(
             "removeFolder of what is missing",
             [&] { t.provider().removeFolder(t.at(u"missing")); }, ErrorCode::ResourceNotFound,
             t.at(u"missing"));
         StorageIRI const below = t.at(u"missing/below");
         t.expectNotFoundOnTheWay(
             "removeFolder below what is missing", [&] { t.provider().removeFolder(below); },
             below);
     },
     FolderRemoval},
    {"AFileIsNotRemovedAsAFolder",
     [](Trial& t) {
         t.makeFile(u"file");
         t.expectRefused(
             "removeFolder of a file", [&] { t.provider().removeFolder(t.at(u"file")); },
             ErrorCode::ResourceNotFound, t.at(u"file"));
         t.expectEqual("exists of the file", t.exists(u"file"), ExistsResult::File);
     },
     FolderRemoval | FileCreation},
    {"ARemovedFolderCanBeMadeAgain",
     [](Trial& t) {
         t.makeFolder(u"folder");
         t.provider().removeFolder(t.at(u"folder"));
         t.provider().createFolder(t.at(u"folder"));
         t.expectEqual("exists of the folder", t.exists(u"folder"), ExistsResult::Folder);
     },
     FolderCreation | FolderRemoval},
    {"AFileTakesTheNameOfARemovedFolder",
     [](Trial& t) {
         t.makeFolder(u"name");
         t.provider().removeFolder(t.at(u"name"));
         t.provider().createFile(t.at(u"name"));
         t.expectEqual("exists of the file", t.exists(u"name"), ExistsResult::File);
     },
     FolderCreation | FolderRemoval | FileCreation},
    {"AReadOnlyFolderIsRemovedWhereItsFolderAllows",
     [](Trial& t) {
         t.makeFolder(u"folder");
         t.makeReadOnly(u"folder");
         t.expectDone("removeFolder of a read-only folder",
                      [&] { t.provider().removeFolder(t.at(u"folder")); });
         t.expectGone(u"folder");
     },
     FolderCreation | FolderRemoval | ReadOnlyItems},
    {"ATreeIsRemovedWithAllThatIsInIt",
     [](Trial& t) {
         for (ustring const path : {u"tree", u"tree/a", u"tree/a/b", u"tree/empty"}) {
             t.makeFolder(path);
         }
         for (ustring const path : {u"tree/file", u"tree/a/file", u"tree/a/b/.hidden"}) {
             t.makeFile(path, "content");
         }
         t.provider().removeFolderRecursively(t.at(u"tree"));
         for (ustring const path : {u"tree", u"tree/a", u"tree/file", u"tree/a/b/.hidden"}) {
             t.expectGone(path);
         }
     },
     TreeRemoval | FolderCreation | Writing},
    {"WhatIsBesideARemovedTreeStays",
     [](Trial& t) {
         // Names that begin alike lie beside each other in a storage that knows keys alone.
         for (ustring const path : {u"tree", u"tree2", u"tre", u"tree.d"}) {
             t.makeFolder(path);
             t.makeFile(path + u"/file");
         }
         t.makeFile(u"tree!");
         t.makeFile(u"tree ");
         t.provider().removeFolderRecursively(t.at(u"tree"));
         t.expectGone(u"tree");
         for (ustring const path :
              {u"tree2/file", u"tre/file", u"tree.d/file", u"tree!", u"tree "}) {
             t.expectEqual("exists of " + textOf(path), t.exists(path), ExistsResult::File);
         }
     },
     TreeRemoval | FolderCreation | FileCreation},
    {"AnEmptyTreeIsRemoved",
     [](Trial& t) {
         t.makeFolder(u"tree");
         t.provider().removeFolderRecursively(t.at(u"tree"));
         t.expectGone(u"tree");
     },
     TreeRemoval | FolderCreation},
    {"AMissingTreeCannotBeRemoved",
     [](Trial& t) {
         t.expectRefused(
             "removeFolderRecursively of what is missing",
             [&] { t.provider().removeFolderRecursively(t.at(u"missing")); },
             ErrorCode::ResourceNotFound, t.at(u"missing"));
     },
     TreeRemoval},
    {"AFileIsNotRemovedAsATree",
     [](Trial& t) {
         t.makeFile(u"file", "stays");
         t.expectRefused(
             "removeFolderRecursively of a file",
             [&] { t.provider().removeFolderRecursively(t.at(u"file")); },
             ErrorCode::ResourceNotFound, t.at(u"file"));
         t.expectFile(u"file", "stays");
     },
     TreeRemoval | Writing},
    {"ATreeOfAHundredLevelsIsRemoved",
     [](Trial& t) {
         t.provider().createFolderRecursive(t.at(chain(100)));
         t.makeFile(chain(100) + u"/file");
         t.provider().removeFolderRecursively(t.at(u"level"));
         t.expectGone(u"level");
     },
     TreeRemoval | FolderChainCreation | FileCreation},
    {"ReadOnlyFilesGoWithTheirTree",
     [](Trial& t) {
         t.makeFolder(u"tree");
         t.makeFile(u"tree/file");
         t.makeReadOnly(u"tree/file");
         t.expectDone("removeFolderRecursively of a tree with a read-only file",
                      [&] { t.provider().removeFolderRecursively(t.at(u"tree")); });
         t.expectGone(u"tree");
     },
     TreeRemoval | FolderCreation | FileCreation | ReadOnlyItems},
    {"AFolderOfManyEntriesIsRemoved",
     [](Trial& t) {
         t.makeFolder(u"tree");
         for (int number = 0; number < 600; ++number) {
             std::string const digits = std::to_string(number);
             t.makeFile(u"tree/" + ustring(digits.begin(), digits.end()));
         }
         t.provider().removeFolderRecursively(t.at(u"tree"));
         t.expectGone(u"tree");
     },
     TreeRemoval | FolderCreation | FileCreation},
};

} // namespace

Family folderFamily() {
    return {"Folders", cases};
}

} // namespace foundation::storage::conformance::detail
