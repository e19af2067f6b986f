#include <foundation/storage/conformance/detail/case.hpp>
#include <foundation/storage/conformance/detail/trial.hpp>

namespace foundation::storage::conformance::detail {

namespace {

using enum Ability;

constexpr AbilitySet forFiles = FileMoves | Writing;
constexpr AbilitySet forFolders = FolderMoves | FolderCreation;

void moveFile(Trial& t, ustring const& from, ustring const& to,
              ReplacementPolicy policy = ReplacementPolicy::FailIfExists) {
    t.provider().moveFile(t.at(from), t.at(to), policy);
}
void moveFolder(Trial& t, ustring const& from, ustring const& to,
                ReplacementPolicy policy = ReplacementPolicy::FailIfExists) {
    t.provider().moveFolder(t.at(from), t.at(to), policy);
}

using Move = void (*)(Trial&, ustring const&, ustring const&, ReplacementPolicy);

enum class Under { EveryPolicy, Replacing, Leaving };

void expectRefused(Trial& t, Move move, std::string const& what, ustring const& from,
                   ustring const& to, Under under, ErrorCode code, ustring const& named) {
    for (ReplacementPolicy const policy : allPolicies) {
        if (under == Under::EveryPolicy || replaces(policy) == (under == Under::Replacing)) {
            t.expectRefused(
                std::string(move == moveFile ? "moveFile " : "moveFolder ") + what + ", policy " +
                    textOf(static_cast<int>(policy)) + ",",
                [&] { move(t, from, to, policy); }, code, t.at(named));
        }
    }
}

/// A folder with something in it, to see whether it is whole.
void makeTree(Trial& t, ustring const& path) {
    t.makeFolder(path);
    t.makeFolder(path + u"/inner");
    t.makeFile(path + u"/inner/file");
}
void expectTree(Trial& t, ustring const& path) {
    t.expectEqual("exists of " + textOf(path), t.exists(path), ExistsResult::Folder);
    t.expectEqual("exists of the file in " + textOf(path), t.exists(path + u"/inner/file"),
                  ExistsResult::File);
}

constexpr Case cases[] = {
    {"AFileIsAtItsNewNameAlone",
     [](Trial& t) {
         for (ReplacementPolicy const policy : allPolicies) {
             ustring const to =
                 u"moved " + ustring(1, static_cast<char16_t>(u'0' + static_cast<int>(policy)));
             t.makeFile(u"file", "content");
             moveFile(t, u"file", to, policy);
             t.expectFile(to, "content");
             t.expectGone(u"file");
         }
     },
     forFiles},
    {"AFileMovesToAnotherFolder",
     [](Trial& t) {
         t.makeFolder(u"one");
         t.makeFolder(u"two");
         t.makeFile(u"one/file", pattern(200'000));
         moveFile(t, u"one/file", u"two/other");
         t.expectFile(u"two/other", pattern(200'000));
         t.expectGone(u"one/file");
     },
     forFiles | FolderCreation},
    {"AFileKeepsItsTime",
     [](Trial& t) {
         t.makeFile(u"file", "content");
         t.provider().setLastModified(t.at(u"file"), toPtime({1'000'000'000, 0}));
         moveFile(t, u"file", u"moved");
         t.expectEqual("the time of a moved file",
                       t.provider().getFileAttributes(t.at(u"moved")).values().lastModified,
                       Timestamp{1'000'000'000, 0});
     },
     forFiles | Times | Ability::FileAttributes},
    {"AReadOnlyFileMovesAndStaysThat",
     [](Trial& t) {
         t.makeFile(u"file", "content");
         t.makeReadOnly(u"file");
         moveFile(t, u"file", u"moved");
         t.expect(!t.provider().getFileAttributes(t.at(u"moved")).isWritable(),
                  "a read-only file is writable behind a move");
         t.expectGone(u"file");
     },
     forFiles | ReadOnlyItems | Ability::FileAttributes},
    {"AFileTakesThePlaceOfAnotherWhereThePolicySaysSo",
     [](Trial& t) {
         for (ReplacementPolicy const policy : allPolicies) {
             if (replaces(policy)) {
                 t.makeFile(u"file", "new");
                 t.makeFile(u"there", "old and longer");
                 moveFile(t, u"file", u"there", policy);
                 t.expectFile(u"there", "new");
                 t.expectGone(u"file");
             }
         }
     },
     forFiles},
    {"AFileLeavesWhatIsThereWhereThePolicySaysSo",
     [](Trial& t) {
         t.makeFile(u"file", "new");
         t.makeFile(u"there", "old");
         t.makeFolder(u"folder");
         expectRefused(t, moveFile, "over a file", u"file", u"there", Under::Leaving,
                       ErrorCode::ResourceAlreadyExists, u"there");
         expectRefused(t, moveFile, "over a folder", u"file", u"folder", Under::Leaving,
                       ErrorCode::ResourceAlreadyExists, u"folder");
         t.expectFile(u"there", "old");
         t.expectFile(u"file", "new");
     },
     forFiles | FolderCreation},
    {"AFileReplacesNoFolder",
     [](Trial& t) {
         t.makeFile(u"file", "stays");
         t.makeFolder(u"folder");
         expectRefused(t, moveFile, "over a folder", u"file", u"folder", Under::Replacing,
                       ErrorCode::InvalidLocation, u"folder");
         t.expectFile(u"file", "stays");
     },
     forFiles | FolderCreation},
    {"AFileReplacesNoReadOnlyFile",
     [](Trial& t) {
         t.makeFile(u"file", "new");
         t.makeFile(u"there", "old");
         t.makeReadOnly(u"there");
         expectRefused(t, moveFile, "over a read-only file", u"file", u"there", Under::Replacing,
                       ErrorCode::PermissionDenied, u"there");
         t.expectFile(u"there", "old");
         t.expectFile(u"file", "new");
     },
     forFiles | ReadOnlyItems},
    {"AMissingFileDoesNotMove",
     [](Trial& t) {
         t.makeFile(u"there", "stays");
         expectRefused(t, moveFile, "of what is missing", u"missing", u"moved", Under::EveryPolicy,
                       ErrorCode::ResourceNotFound, u"missing");
         expectRefused(t, moveFile, "of what is missing over a file", u"missing", u"there",
                       Under::EveryPolicy, ErrorCode::ResourceNotFound, u"missing");
         t.expectFile(u"there", "stays");
     },
     forFiles},
    {"AFolderDoesNotMoveAsAFile",
     [](Trial& t) {
         makeTree(t, u"folder");
         expectRefused(t, moveFile, "of a folder", u"folder", u"moved", Under::EveryPolicy,
                       ErrorCode::InvalidLocation, u"folder");
         expectTree(t, u"folder");
         t.expectGone(u"moved");
     },
     forFiles | FolderCreation | FileCreation},
    {"AFileDoesNotMoveToAMissingFolder",
     [](Trial& t) {
         t.makeFile(u"file", "stays");
         expectRefused(t, moveFile, "to a missing folder", u"file", u"missing/moved",
                       Under::EveryPolicy, ErrorCode::ResourceNotFound, u"missing/moved");
         t.expectFile(u"file", "stays");
         t.expectGone(u"missing");
     },
     forFiles},
    {"AFileDoesNotMoveBelowAFile",
     [](Trial& t) {
         t.makeFile(u"file", "stays");
         t.makeFile(u"other", "stays too");
         expectRefused(t, moveFile, "below a file", u"file", u"other/moved", Under::EveryPolicy,
                       ErrorCode::ResourceNotFound, u"other/moved");
         t.expectFile(u"file", "stays");
         t.expectFile(u"other", "stays too");
     },
     forFiles},
    {"AFileDoesNotMoveOntoItself",
     [](Trial& t) {
         t.makeFile(u"file", "stays");
         expectRefused(t, moveFile, "onto itself", u"file", u"file", Under::EveryPolicy,
                       ErrorCode::InvalidLocation, u"file");
         t.expectFile(u"file", "stays");
     },
     forFiles},
    {"AFileIsLeftToTheCallerForAnotherStorage",
     [](Trial& t) {
         t.makeFile(u"file", "stays");
         StorageIRI const elsewhere(u"elsewhere:/moved");
         for (ReplacementPolicy const policy : allPolicies) {
             t.expectRefused(
                 "moveFile to another scheme",
                 [&] { t.provider().moveFile(t.at(u"file"), elsewhere, policy); },
                 ErrorCode::UnsupportedOperation, elsewhere);
         }
         t.expectFile(u"file", "stays");
     },
     forFiles},
    {"AChangeOfCaseAloneIsAMove",
     [](Trial& t) {
         t.makeFile(u"name", "content");
         moveFile(t, u"name", u"NAME");
         t.expectFile(u"NAME", "content");
         t.expectEqual("the names behind", t.names({}), {u"NAME"});
     },
     forFiles | Ability::Listing},
    {"NothingElseIsLeftBehind",
     [](Trial& t) {
         t.makeFile(u"file", "new");
         t.makeFile(u"there", "old");
         moveFile(t, u"file", u"there", ReplacementPolicy::ReplaceExisting);
         moveFile(t, u"there", u"moved");
         t.expectEqual("the names that are left", t.names({}), {u"moved"});
     },
     forFiles | Ability::Listing},
    {"AFolderMovesWithAllThatIsInIt",
     [](Trial& t) {
         for (ReplacementPolicy const policy : allPolicies) {
             ustring const to =
                 u"moved " + ustring(1, static_cast<char16_t>(u'0' + static_cast<int>(policy)));
             makeTree(t, u"folder");
             moveFolder(t, u"folder", to, policy);
             expectTree(t, to);
             t.expectGone(u"folder");
             t.expectGone(u"folder/inner/file");
         }
     },
     forFolders | FileCreation},
    {"AFolderMovesToAnotherFolder",
     [](Trial& t) {
         makeTree(t, u"folder");
         t.makeFolder(u"other");
         moveFolder(t, u"folder", u"other/moved");
         expectTree(t, u"other/moved");
         t.expectGone(u"folder");
     },
     forFolders | FileCreation},
    {"AFolderMovesUp",
     [](Trial& t) {
         t.makeFolder(u"outer");
         makeTree(t, u"outer/folder");
         moveFolder(t, u"outer/folder", u"moved");
         expectTree(t, u"moved");
         t.expectGone(u"outer/folder");
     },
     forFolders | FileCreation},
    {"WhatIsBesideAMovedFolderStays",
     [](Trial& t) {
         makeTree(t, u"folder");
         makeTree(t, u"folder2");
         t.makeFile(u"folder!");
         moveFolder(t, u"folder", u"moved");
         expectTree(t, u"folder2");
         t.expectEqual("exists of folder!", t.exists(u"folder!"), ExistsResult::File);
     },
     forFolders | FileCreation},
    {"AMissingFolderDoesNotMove",
     [](Trial& t) {
         expectRefused(t, moveFolder, "of what is missing", u"missing", u"moved",
                       Under::EveryPolicy, ErrorCode::ResourceNotFound, u"missing");
     },
     forFolders},
    {"AFileDoesNotMoveAsAFolder",
     [](Trial& t) {
         t.makeFile(u"file");
         expectRefused(t, moveFolder, "of a file", u"file", u"moved", Under::EveryPolicy,
                       ErrorCode::InvalidLocation, u"file");
         t.expectEqual("exists of the file", t.exists(u"file"), ExistsResult::File);
     },
     forFolders | FileCreation},
    {"AFolderDoesNotMoveOntoItself",
     [](Trial& t) {
         makeTree(t, u"folder");
         expectRefused(t, moveFolder, "onto itself", u"folder", u"folder", Under::EveryPolicy,
                       ErrorCode::InvalidLocation, u"folder");
         expectTree(t, u"folder");
     },
     forFolders | FileCreation},
    {"AFolderDoesNotMoveIntoItself",
     [](Trial& t) {
         makeTree(t, u"folder");
         for (ustring const to :
              {u"folder/moved", u"folder/inner/moved", u"folder/inner", u"folder/inner/file"}) {
             expectRefused(t, moveFolder, "to " + textOf(to), u"folder", to, Under::EveryPolicy,
                           ErrorCode::InvalidLocation, to);
         }
         expectTree(t, u"folder");
     },
     forFolders | FileCreation},
    {"AFolderWhoseNameBeginsAlikeIsNotInIt",
     [](Trial& t) {
         makeTree(t, u"folder");
         t.makeFolder(u"folder2");
         moveFolder(t, u"folder", u"folder2/folder");
         expectTree(t, u"folder2/folder");
     },
     forFolders | FileCreation},
    {"AFolderDoesNotMoveOntoOneThatIsAboveAndLeadsBack",
     [](Trial& t) {
         makeTree(t, u"a");
         t.makeFolder(u"a/b");
         t.makeFolder(u"a/b/b");
         expectRefused(t, moveFolder, "of a/b to a, where a/b/b is", u"a/b", u"a",
                       Under::EveryPolicy, ErrorCode::InvalidLocation, u"a");
         expectTree(t, u"a");
         t.expectEqual("exists of a/b/b", t.exists(u"a/b/b"), ExistsResult::Folder);
     },
     forFolders | FileCreation},
    {"AFolderLeavesWhatIsThereWhereThePolicySaysSo",
     [](Trial& t) {
         makeTree(t, u"folder");
         makeTree(t, u"full");
         t.makeFolder(u"empty");
         t.makeFile(u"file");
         for (ustring const to : {u"full", u"empty", u"file"}) {
             expectRefused(t, moveFolder, "over " + textOf(to), u"folder", to, Under::Leaving,
                           ErrorCode::ResourceAlreadyExists, to);
         }
         expectTree(t, u"folder");
         expectTree(t, u"full");
     },
     forFolders | FileCreation},
    {"AFolderReplacesNoFile",
     [](Trial& t) {
         makeTree(t, u"folder");
         t.makeFile(u"file");
         expectRefused(t, moveFolder, "over a file", u"folder", u"file", Under::Replacing,
                       ErrorCode::InvalidLocation, u"file");
         expectTree(t, u"folder");
         t.expectEqual("exists of the file", t.exists(u"file"), ExistsResult::File);
     },
     forFolders | FileCreation},
    {"AFolderReplacesNoReadOnlyFolder",
     [](Trial& t) {
         makeTree(t, u"folder");
         t.makeFolder(u"closed");
         t.makeReadOnly(u"closed");
         expectRefused(t, moveFolder, "over a read-only folder", u"folder", u"closed",
                       Under::Replacing, ErrorCode::PermissionDenied, u"closed");
         expectTree(t, u"folder");
     },
     forFolders | FileCreation | ReadOnlyItems},
    {"AFolderReplacesNoFolderWithContent",
     [](Trial& t) {
         makeTree(t, u"folder");
         makeTree(t, u"full");
         expectRefused(t, moveFolder, "over a folder with content", u"folder", u"full",
                       Under::Replacing, ErrorCode::FolderNotEmpty, u"full");
         expectTree(t, u"folder");
         expectTree(t, u"full");
     },
     forFolders | FileCreation},
    {"AFolderReplacesAnEmptyFolder",
     [](Trial& t) {
         for (ReplacementPolicy const policy : allPolicies) {
             if (replaces(policy)) {
                 ustring const to =
                     u"empty " + ustring(1, static_cast<char16_t>(u'0' + static_cast<int>(policy)));
                 makeTree(t, u"folder");
                 t.makeFolder(to);
                 moveFolder(t, u"folder", to, policy);
                 expectTree(t, to);
                 t.expectGone(u"folder");
             }
         }
     },
     forFolders | FileCreation},
    {"AFolderDoesNotMoveToAMissingFolder",
     [](Trial& t) {
         makeTree(t, u"folder");
         for (ReplacementPolicy const policy : allPolicies) {
             StorageIRI const to = t.at(u"missing/moved");
             t.expectNotFoundOnTheWay(
                 "moveFolder to a missing folder",
                 [&] { moveFolder(t, u"folder", u"missing/moved", policy); }, to);
         }
         expectTree(t, u"folder");
     },
     forFolders | FileCreation},
    {"AFolderIsLeftToTheCallerForAnotherStorage",
     [](Trial& t) {
         makeTree(t, u"folder");
         StorageIRI const elsewhere(u"elsewhere:/moved");
         for (ReplacementPolicy const policy : allPolicies) {
             t.expectRefused(
                 "moveFolder to another scheme",
                 [&] { t.provider().moveFolder(t.at(u"folder"), elsewhere, policy); },
                 ErrorCode::UnsupportedOperation, elsewhere);
         }
         expectTree(t, u"folder");
     },
     forFolders | FileCreation},
};

} // namespace

Family moveFamily() {
    return {"Moves", cases};
}

} // namespace foundation::storage::conformance::detail
