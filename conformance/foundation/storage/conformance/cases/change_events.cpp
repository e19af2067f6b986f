#include <foundation/storage/conformance/detail/case.hpp>
#include <foundation/storage/conformance/detail/trial.hpp>
#include <foundation/storage/conformance/detail/watching.hpp>

#include <foundation/storage/provider/extensions/i_folder_attributes.hpp>

#include <fl/i18n/conversion.hpp>

#include <algorithm>

namespace foundation::storage::conformance::detail {

namespace {

using enum Ability;
using events::EntryType;
using events::Kind;

constexpr AbilitySet forEvents = ChangeEvents | FileCreation;
constexpr AbilitySet forTrees = forEvents | RecursiveChangeEvents | FolderCreation;

std::string utf8(StorageIRI const& location) {
    return fl::i18n::toDisplayString(location.toString());
}

constexpr Case cases[] = {
    {"ANewFileIsTold",
     [](Trial& t) {
         EventLog const log = watch(t, t.at({}));
         t.provider().createFile(t.at(u"file"));
         expectTold(t, log, Kind::Created, t.at(u"file"));
         for (ChangeReport const& report : log.reports()) {
             t.expect(report.kind == Kind::Overflow || report.type == EntryType::File,
                      "a file is told as a folder");
             t.expectEqual("the watched location", report.watched, t.at({}));
         }
     },
     forEvents},
    {"ANewFolderIsToldAsOne",
     [](Trial& t) {
         EventLog const log = watch(t, t.at({}));
         t.provider().createFolder(t.at(u"folder"));
         expectTold(t, log, Kind::Created, t.at(u"folder"));
         for (ChangeReport const& report : log.reports()) {
             t.expect(report.entry != t.at(u"folder") || report.type == EntryType::Folder,
                      "a folder is told as a file");
         }
     },
     ChangeEvents | FolderCreation},
    {"WrittenBytesAreTold",
     [](Trial& t) {
         t.makeFile(u"file", "old");
         EventLog const log = watch(t, t.at({}));
         t.makeFile(u"file", "new and longer");
         expectTold(t, log, Kind::Modified, t.at(u"file"));
     },
     forEvents | Writing},
    {"AppendedBytesAreTold",
     [](Trial& t) {
         t.makeFile(u"file", "old");
         EventLog const log = watch(t, t.at({}));
         auto const stream = t.provider().openStream(
             t.at(u"file"), {ByteStreamAccess::WriteOnly, ByteStreamCreation::OpenExisting, 1, 0});
         write(*stream, "more");
         stream->close();
         expectTold(t, log, Kind::Modified, t.at(u"file"));
     },
     forEvents | Writing},
    {"ATimeThatIsSetIsNoWrittenByte",
     [](Trial& t) {
         t.makeFile(u"file");
         t.makeFolder(u"folder");
         EventLog const log = watch(t, t.at({}));
         for (ustring const path : {u"file", u"folder"}) {
             t.provider().setLastModified(t.at(path), toPtime({1'000'000'000, 0}));
             expectTold(t, log, Kind::AttributesChanged, t.at(path));
             expectUntold(t, log, "a write", isAbout(Kind::Modified, t.at(path)));
         }
     },
     forEvents | Times | FolderCreation},
    {"ATimeThatIsSetIsToldToWhoAsksForAttributesAlone",
     [](Trial& t) {
         t.makeFolder(u"folder");
         t.makeFile(u"folder/file");
         t.makeFolder(u"folder/inner");
         EventLog const file = watchFile(t, t.at(u"folder/file"), {Kind::AttributesChanged});
         EventLog const folder = watch(t, t.at(u"folder"), RecursiveFileWatching::NonRecursive,
                                       {Kind::AttributesChanged});
         for (ustring const path : {u"folder/file", u"folder/inner", u"folder"}) {
             t.provider().setLastModified(t.at(path), toPtime({1'000'000'000, 0}));
             expectTold(t, folder, Kind::AttributesChanged, t.at(path));
         }
         expectTold(t, file, Kind::AttributesChanged, t.at(u"folder/file"));
     },
     forEvents | Times | FolderCreation},
    {"AFolderUnderTheNameOfAWatchedFileIsNotTold",
     [](Trial& t) {
         t.makeFile(u"item");
         EventLog const log = watchFile(t, t.at(u"item"));
         EventLog const all = watch(t, t.at({}));
         t.provider().removeFile(t.at(u"item"));
         t.provider().createFolder(t.at(u"item"));
         t.makeFile(u"item/inner");
         expectTold(t, log, Kind::Removed, t.at(u"item"));
         settle(t, all, u"last");
         expectUntold(t, log, "a folder", [](ChangeReport const& report) {
             return report.kind != Kind::Removed && report.kind != Kind::Overflow;
         });
     },
     forEvents | FileRemoval | FolderCreation},
    {"AttributesOfAFolderAreTold",
     [](Trial& t) {
         t.makeFolder(u"folder");
         EventLog const log = watch(t, t.at({}));
         t.extension<extensions::IFolderAttributes>().setFolderAttributes(
             t.at(u"folder"), {{}, Timestamp{1'000'000'000, 0}, {}});
         expectTold(t, log, Kind::AttributesChanged, t.at(u"folder"));
         expectUntold(t, log, "a write", isAbout(Kind::Modified, t.at(u"folder")));
     },
     ChangeEvents | FolderAttributeChange | FolderCreation},
    {"BeingReadOnlyIsTold",
     [](Trial& t) {
         t.makeFile(u"file");
         EventLog const log = watch(t, t.at({}));
         t.provider().setWritable(t.at(u"file"), false);
         expectTold(t, log, Kind::AttributesChanged, t.at(u"file"));
     },
     forEvents | ReadOnlyItems},
    {"ARemovedFileIsTold",
     [](Trial& t) {
         t.makeFile(u"file");
         EventLog const log = watch(t, t.at({}));
         t.provider().removeFile(t.at(u"file"));
         expectTold(t, log, Kind::Removed, t.at(u"file"));
     },
     forEvents | FileRemoval},
    {"ARemovedFolderIsToldAsOne",
     [](Trial& t) {
         t.makeFolder(u"folder");
         EventLog const log = watch(t, t.at({}));
         t.provider().removeFolder(t.at(u"folder"));
         expectTold(t, log, Kind::Removed, t.at(u"folder"));
         for (ChangeReport const& report : log.reports()) {
             t.expect(report.entry != t.at(u"folder") || report.type == EntryType::Folder,
                      "a folder is told as a file");
         }
     },
     ChangeEvents | FolderCreation | FolderRemoval},
    {"ACopyIsToldAsANewFile",
     [](Trial& t) {
         t.makeFile(u"file", "content");
         EventLog const log = watch(t, t.at({}));
         t.copy(u"file", u"copy");
         expectTold(t, log, Kind::Created, t.at(u"copy"));
     },
     forEvents | FileCopies | Writing},
    {"ARenamedFileIsRemovedAndCreated",
     [](Trial& t) {
         t.makeFile(u"file");
         EventLog const log = watch(t, t.at({}));
         t.provider().moveFile(t.at(u"file"), t.at(u"moved"), ReplacementPolicy::FailIfExists);
         expectTold(t, log, Kind::Removed, t.at(u"file"));
         expectTold(t, log, Kind::Created, t.at(u"moved"));
         bool removed = false;
         for (ChangeReport const& report : log.reports()) {
             if (report.kind == Kind::Removed && report.entry == t.at(u"file")) {
                 removed = true;
                 t.expectEqual("movedTo of the removal", report.movedTo, utf8(t.at(u"moved")));
             }
             if (report.kind == Kind::Created && report.entry == t.at(u"moved")) {
                 t.expect(removed || log.hasOverflow(), "a move is told from behind");
                 t.expectEqual("movedFrom of the creation", report.movedFrom, utf8(t.at(u"file")));
             }
         }
     },
     forEvents | FileMoves},
    {"AFileThatMovesOutIsRemoved",
     [](Trial& t) {
         t.makeFolder(u"watched");
         t.makeFile(u"watched/file");
         EventLog const log = watch(t, t.at(u"watched"));
         t.provider().moveFile(t.at(u"watched/file"), t.at(u"moved"),
                               ReplacementPolicy::FailIfExists);
         expectTold(t, log, Kind::Removed, t.at(u"watched/file"));
     },
     forEvents | FileMoves | FolderCreation},
    {"AFileThatMovesInIsCreated",
     [](Trial& t) {
         t.makeFolder(u"watched");
         t.makeFile(u"file");
         EventLog const log = watch(t, t.at(u"watched"));
         t.provider().moveFile(t.at(u"file"), t.at(u"watched/moved"),
                               ReplacementPolicy::FailIfExists);
         expectTold(t, log, Kind::Created, t.at(u"watched/moved"));
     },
     forEvents | FileMoves | FolderCreation},
    {"OnlyTheKindsAskedForAreTold",
     [](Trial& t) {
         EventLog const log =
             watch(t, t.at({}), RecursiveFileWatching::NonRecursive, {Kind::Created});
         t.makeFile(u"file", "content");
         t.provider().removeFile(t.at(u"file"));
         settle(t, log, u"last");
         expectUntold(t, log, "a kind that was not asked for", [](ChangeReport const& report) {
             return report.kind != Kind::Created && report.kind != Kind::Overflow;
         });
     },
     forEvents | FileRemoval | Writing},
    {"WhatOneItemDoesIsToldInItsOrder",
     [](Trial& t) {
         EventLog const log = watch(t, t.at({}), RecursiveFileWatching::NonRecursive,
                                    {Kind::Created, Kind::Removed});
         for (int round = 0; round < 20; ++round) {
             t.provider().createFile(t.at(u"file"));
             t.provider().removeFile(t.at(u"file"));
         }
         settle(t, log, u"last");
         Kind before = Kind::Removed;
         int changes = 0;
         for (ChangeReport const& report : log.reports()) {
             if (report.entry == t.at(u"file") && !log.hasOverflow()) {
                 t.expect(report.kind != before, "a creation or removal is told twice");
                 before = report.kind;
                 ++changes;
             }
         }
         t.expect(log.hasOverflow() || (changes == 40 && before == Kind::Removed),
                  "of 40 changes " + textOf(changes) + " are told");
     },
     forEvents | FileRemoval},
    {"EachOfManyFilesIsToldOnce",
     [](Trial& t) {
         EventLog const log =
             watch(t, t.at({}), RecursiveFileWatching::NonRecursive, {Kind::Created});
         for (int number = 0; number < 300; ++number) {
             std::string const digits = std::to_string(number);
             t.makeFile(u"file " + ustring(digits.begin(), digits.end()));
         }
         settle(t, log, u"last");
         std::vector<StorageIRI> told;
         for (ChangeReport const& report : log.reports()) {
             told.push_back(report.entry);
         }
         std::sort(told.begin(), told.end());
         t.expect(log.hasOverflow() || (told.size() == 301 &&
                                        std::adjacent_find(told.begin(), told.end()) == told.end()),
                  "of 301 files " + textOf(static_cast<unsigned long>(told.size())) +
                      " creations are told, or one twice");
     },
     forEvents},
    {"WhatIsDeeperIsNotToldFlat",
     [](Trial& t) {
         t.makeFolder(u"inner");
         EventLog const log = watch(t, t.at({}));
         t.makeFile(u"inner/file");
         settle(t, log, u"last");
         expectUntold(t, log, "what is deeper", [&](ChangeReport const& report) {
             return report.entry == t.at(u"inner/file");
         });
     },
     forEvents | FolderCreation},
    {"WhatIsBesideIsNotTold",
     [](Trial& t) {
         t.makeFolder(u"watched");
         t.makeFolder(u"watched2");
         EventLog const log = watch(t, t.at(u"watched"));
         t.makeFile(u"watched2/file");
         t.makeFile(u"beside");
         settle(t, log, u"watched/last");
         expectUntold(t, log, "what is beside", [&](ChangeReport const& report) {
             return report.entry == t.at(u"watched2/file") || report.entry == t.at(u"beside");
         });
     },
     forEvents | FolderCreation},
    {"TheLocationIsToldAsItWasGiven",
     [](Trial& t) {
         t.makeFolder(u"a b");
         StorageIRI const spelled = t.spelled(u"%61%20b");
         EventLog const log = watch(t, spelled);
         t.makeFile(u"a b/file");
         expectTold(t, log, Kind::Created, t.at(u"a b/file"));
         for (ChangeReport const& report : log.reports()) {
             t.expectEqual("the text of the watched location", report.watched.toString(),
                           spelled.toString());
         }
     },
     forEvents | FolderCreation},
    {"TheRemovalOfTheWatchedFolderIsTold",
     [](Trial& t) {
         t.makeFolder(u"watched");
         EventLog const log = watch(t, t.at(u"watched"));
         t.provider().removeFolder(t.at(u"watched"));
         expectTold(t, log, Kind::Removed, t.at(u"watched"));
         for (ChangeReport const& report : log.reports()) {
             t.expect(report.kind != Kind::Removed || report.watched == report.entry,
                      "the removal of the watched folder is told of another item");
         }
     },
     ChangeEvents | FolderCreation | FolderRemoval},
    {"AFolderThatIsMadeAgainGoesOnBeingWatched",
     [](Trial& t) {
         t.makeFolder(u"watched");
         EventLog const log = watch(t, t.at(u"watched"));
         t.provider().removeFolder(t.at(u"watched"));
         expectTold(t, log, Kind::Removed, t.at(u"watched"));
         t.makeFolder(u"watched");
         expectTold(t, log, Kind::Created, t.at(u"watched"));
         t.makeFile(u"watched/file");
         expectTold(t, log, Kind::Created, t.at(u"watched/file"));
     },
     forEvents | FolderCreation | FolderRemoval},
    {"AFileIsWatchedByItsLocation",
     [](Trial& t) {
         t.makeFile(u"file", "old");
         EventLog const log = watchFile(t, t.at(u"file"));
         t.makeFile(u"file", "new");
         expectTold(t, log, Kind::Modified, t.at(u"file"));
         t.provider().removeFile(t.at(u"file"));
         expectTold(t, log, Kind::Removed, t.at(u"file"));
         t.makeFile(u"file");
         expectTold(t, log, Kind::Created, t.at(u"file"));
         for (ChangeReport const& report : log.reports()) {
             t.expectEqual("the watched location", report.watched, t.at(u"file"));
             t.expectEqual("the entry", report.entry, t.at(u"file"));
         }
     },
     forEvents | Writing | FileRemoval},
    {"OtherFilesAreNotToldOfAFile",
     [](Trial& t) {
         t.makeFile(u"file");
         EventLog const log = watchFile(t, t.at(u"file"));
         t.makeFile(u"file2");
         t.makeFile(u"other");
         t.provider().removeFile(t.at(u"file"));
         expectTold(t, log, Kind::Removed, t.at(u"file"));
         expectUntold(t, log, "another file",
                      [&](ChangeReport const& report) { return report.entry != t.at(u"file"); });
     },
     forEvents | FileRemoval},
    {"ATreeIsToldAllTheWayDown",
     [](Trial& t) {
         t.makeFolder(u"a");
         t.makeFolder(u"a/b");
         EventLog const log = watchTree(t, t.at({}));
         t.makeFile(u"a/b/file");
         expectTold(t, log, Kind::Created, t.at(u"a/b/file"));
         for (ChangeReport const& report : log.reports()) {
             t.expect(report.kind == Kind::Overflow || report.watched == t.at(u"a/b"),
                      "what is deep is told in " + textOf(report.watched) + ", not in its folder");
         }
     },
     forTrees},
    {"AFolderThatIsNewInATreeIsWatchedToo",
     [](Trial& t) {
         EventLog const log = watchTree(t, t.at({}));
         t.makeFolder(u"new");
         t.makeFolder(u"new/newer");
         t.makeFile(u"new/newer/file");
         expectTold(t, log, Kind::Created, t.at(u"new"));
         expectTold(t, log, Kind::Created, t.at(u"new/newer"));
         expectTold(t, log, Kind::Created, t.at(u"new/newer/file"));
         t.provider().removeFile(t.at(u"new/newer/file"));
         expectTold(t, log, Kind::Removed, t.at(u"new/newer/file"));
     },
     forTrees | FileRemoval},
    {"AFolderThatMovesIntoATreeIsCreatedWithAllThatIsInIt",
     [](Trial& t) {
         t.makeFolder(u"watched");
         t.makeFolder(u"outside");
         t.makeFile(u"outside/file");
         EventLog const log = watchTree(t, t.at(u"watched"));
         t.provider().moveFolder(t.at(u"outside"), t.at(u"watched/moved"),
                                 ReplacementPolicy::FailIfExists);
         expectTold(t, log, Kind::Created, t.at(u"watched/moved"));
         expectTold(t, log, Kind::Created, t.at(u"watched/moved/file"));
         settle(t, log, u"watched/moved/last");
     },
     forTrees | FolderMoves},
    {"AFolderThatMovesWithinATreeGoesOnBeingWatched",
     [](Trial& t) {
         t.makeFolder(u"folder");
         t.makeFile(u"folder/file");
         EventLog const log = watchTree(t, t.at({}));
         t.provider().moveFolder(t.at(u"folder"), t.at(u"moved"), ReplacementPolicy::FailIfExists);
         expectTold(t, log, Kind::Removed, t.at(u"folder"));
         expectTold(t, log, Kind::Created, t.at(u"moved"));
         settle(t, log, u"moved/last");
         expectUntold(t, log, "what lies in a folder that moves", [&](ChangeReport const& report) {
             return !log.hasOverflow() &&
                    (report.entry == t.at(u"folder/file") || report.entry == t.at(u"moved/file"));
         });
     },
     forTrees | FolderMoves},
    {"ATreeThatIsRemovedIsToldWhole",
     [](Trial& t) {
         t.makeFolder(u"tree");
         t.makeFolder(u"tree/inner");
         t.makeFile(u"tree/inner/file");
         EventLog const log = watchTree(t, t.at({}));
         t.provider().removeFolderRecursively(t.at(u"tree"));
         for (ustring const path : {u"tree/inner/file", u"tree/inner", u"tree"}) {
             expectTold(t, log, Kind::Removed, t.at(path));
         }
     },
     forTrees | TreeRemoval},
};

} // namespace

Family changeEventFamily() {
    return {"ChangeEvents", cases};
}

} // namespace foundation::storage::conformance::detail
