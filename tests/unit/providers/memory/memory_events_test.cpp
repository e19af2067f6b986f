// Who is told what: the lines of the contract that change events of all providers keep.

#include "memory_watch.hpp"

#include <boost/date_time/posix_time/ptime.hpp>

namespace {

using namespace memory_test;
using enum ReplacementPolicy;

/// /w with a file, a folder with a file, and a link; beside it a file and a folder with content.
Store tree() {
    Store store;
    store->createFolderRecursive(at(u"/w/deep"));
    store->createFolderRecursive(at(u"/out/below"));
    store.put(u"/w/file", "bytes");
    store.put(u"/w/deep/file", "bytes");
    store.put(u"/out/file", "other");
    store.put(u"/out/below/file", "other");
    store->createLink(at(u"/w/link"), u"file");
    return store;
}

void replace(Store const& store, ustring const& path) {
    auto const stream = store->openReplacement(at(path), ReplaceExisting);
    stream->write("new", 3);
    stream->close();
}

boost::posix_time::ptime const someTime(boost::gregorian::date(2024, 2, 29));

TEST(MemoryEvents, AFileIsWatchedByItsLocation) {
    Store const store = tree();
    Log const log = watchFile(store, u"/w/file");
    store.put(u"/w/file", "longer");
    EXPECT_EQ(log.take(), Lines({"modified /w/file", "modified /w/file"}));
    store->setWritable(at(u"/w/file"), true);
    EXPECT_EQ(log.take(), Lines({"attributes /w/file"}));
    replace(store, u"/w/file");
    EXPECT_EQ(log.take(), Lines({"created /w/file"}));
    store->moveFile(at(u"/out/file"), at(u"/w/file"), ReplaceExisting);
    EXPECT_EQ(log.take(), Lines({"created /w/file"}));
    store->moveFile(at(u"/w/file"), at(u"/w/other"), FailIfExists);
    EXPECT_EQ(log.take(), Lines({"removed /w/file"}));
    store->createFolder(at(u"/w/file")); // a folder is no change of the file
    store->removeFolder(at(u"/w/file"));
    EXPECT_EQ(log.take(), Lines());
    store->createFile(at(u"/w/file"));
    store->removeFile(at(u"/w/file"));
    EXPECT_EQ(log.take(), Lines({"created /w/file", "removed /w/file"}));
    store->createFile(at(u"/w/file"));
    store->createFile(at(u"/w/beside"));
    EXPECT_EQ(log.take(), Lines({"created /w/file"}));
    store->moveFolder(at(u"/w"), at(u"/gone"), FailIfExists);
    EXPECT_EQ(log.take(), Lines({"removed /w/file"}));
    store->moveFolder(at(u"/gone"), at(u"/w"), FailIfExists);
    EXPECT_EQ(log.take(), Lines({"created /w/file"}));
}

TEST(MemoryEvents, AFolderThatIsRemovedAndMadeAgainGoesOnBeingWatched) {
    Store const store = tree();
    Log const flat = watchFolder(store, u"/w/deep");
    Log const recursive = watchTree(store, u"/w/deep");
    store->removeFolderRecursively(at(u"/w"));
    Lines const gone{"removed /w/deep/file", "removed /w/deep/"};
    EXPECT_EQ(flat.take(), gone);
    EXPECT_EQ(recursive.take(), gone);
    store->createFile(at(u"/w")); // no folder
    store->removeFile(at(u"/w"));
    EXPECT_EQ(recursive.take(), Lines());
    store->createFolderRecursive(at(u"/w/deep/er"));
    store->createFile(at(u"/w/deep/er/file"));
    EXPECT_EQ(flat.take(), Lines({"created /w/deep/", "created /w/deep/er/"}));
    EXPECT_EQ(recursive.take(),
              Lines({"created /w/deep/", "created /w/deep/er/", "created /w/deep/er/file"}));
}

TEST(MemoryEvents, WatchedIsTheTextThatWasGivenAndBelowItTheFolder) {
    Store const store = tree();
    Log flat;
    Log recursive;
    store->publishFolderEvents(StorageIRI(u"mem:///out/../%77/"), flat.callback(), everything,
                               RecursiveFileWatching::NonRecursive);
    store->publishFolderEvents(StorageIRI(u"mem:///%77"), recursive.callback(), everything,
                               RecursiveFileWatching::Recursive);
    store->createFile(at(u"/w/1"));
    store->createFile(at(u"/w/deep/a%20b"));
    store->setWritable(at(u"/w"), true);
    EXPECT_EQ(flat.watched(), std::vector<ustring>({u"mem:///out/../%77/", u"mem:///out/../%77/"}));
    EXPECT_EQ(recursive.watched(),
              std::vector<ustring>({u"mem:///%77", u"mem:///%77/deep", u"mem:///%77"}));
    EXPECT_EQ(recursive.take(),
              Lines({"created /%77/1", "created /%77/deep/a b", "attributes /%77/"}));
}

TEST(MemoryEvents, ALinkToAFolderIsWatchedWhereItLeads) {
    Store const store = tree();
    store->createLink(at(u"/way"), u"w/deep");
    Log const log = watchFolder(store, u"/way");
    store->createFile(at(u"/w/deep/new"));
    store->removeFile(at(u"/way"));
    store->removeFile(at(u"/w/deep/new"));
    EXPECT_EQ(log.take(), Lines({"created /way/new", "removed /way/new"}));
    store->stopPublishingFolderEvents(at(u"/way"));
    store->createFile(at(u"/w/deep/new"));
    EXPECT_EQ(log.take(), Lines());
}

TEST(MemoryEvents, ALinkIsWatchedAsAFileOfItsOwn) {
    Store const store = tree();
    Log const log = watchFile(store, u"/w/link");
    store.put(u"/w/link", "through it");
    EXPECT_EQ(log.take(), Lines());
    store->removeFile(at(u"/w/link"));
    store->createLink(at(u"/w/link"), u"deep");
    EXPECT_EQ(log.take(), Lines({"removed /w/link", "created /w/link"}));
}

TEST(MemoryEvents, TheRootIsAFolderLikeOthers) {
    Store const store;
    Log const flat = watchFolder(store, u"/");
    Log const recursive = watchTree(store, u"/");
    store->createFolderRecursive(at(u"/a/b"));
    store->setLastModified(at(u"/"), someTime);
    EXPECT_EQ(flat.take(), Lines({"created /a/", "attributes /"}));
    EXPECT_EQ(recursive.take(), Lines({"created /a/", "created /a/b/", "attributes /"}));
}

TEST(MemoryEvents, AmongManyPublicationsThoseThatSeeAChangeAreToldAndNoOther) {
    // Names whose order as text is not that of the folders: `!` comes before the slash.
    std::vector<ustring> const names{u"a", u"a!", u"ab", u"b"};
    std::vector<ustring> folders{u""};
    for (std::size_t parent = 0; parent < 1 + names.size() * (1 + names.size()); ++parent) {
        for (ustring const& name : names) {
            folders.push_back(folders[parent] + u'/' + name);
        }
    }
    Store const store;
    for (ustring const& folder : folders) {
        store->createFolderRecursive(at(folder + u"/"));
    }
    for (std::size_t every : {1U, 3U, 7U}) {
        std::vector<std::pair<ustring, Log>> flat;
        std::vector<std::pair<ustring, Log>> recursive;
        for (std::size_t i = 0; i < folders.size(); i += every) {
            flat.emplace_back(folders[i], watchFolder(store, folders[i] + u"/"));
            recursive.emplace_back(folders[i], watchTree(store, folders[i] + u"/"));
        }
        for (ustring const& changed : folders) {
            ustring const item = changed + u"/x";
            store->createFile(at(item));
            store->removeFile(at(item));
            for (auto const& [folder, log] : flat) {
                EXPECT_EQ(log.take().size(), folder == changed ? 2U : 0U)
                    << text(folder) << " of " << text(item);
            }
            for (auto const& [folder, log] : recursive) {
                EXPECT_EQ(log.take().size(), item.starts_with(folder + u'/') ? 2U : 0U)
                    << text(folder) << " of " << text(item);
            }
        }
        for (auto const& [folder, log] : flat) {
            store->stopPublishingFolderEvents(at(folder + u"/"));
            store->stopPublishingFolderEvents(at(folder + u"/"));
        }
    }
}

TEST(MemoryEvents, OnlyTheKindsAskedForAreDelivered) {
    struct {
        Kind kind;
        Lines expected;
    } const kinds[] = {
        {Kind::Created, {"created /w/new"}},
        {Kind::Modified, {"modified /w/new"}},
        {Kind::AttributesChanged, {"attributes /w/new"}},
        {Kind::Removed, {"removed /w/new"}},
        {Kind::Overflow, {}},
    };
    for (auto const& [kind, expected] : kinds) {
        Store const store = tree();
        Log const log = watchTree(store, u"/w", {kind, kind});
        store.put(u"/w/new", "bytes");
        store->setWritable(at(u"/w/new"), false);
        store->removeFile(at(u"/w/new"));
        EXPECT_EQ(log.take(), expected) << nameOf(kind);
    }
}

TEST(MemoryEvents, WhatCannotBeWatchedIsRefused) {
    Store const store = tree();
    store->createLink(at(u"/w/circle"), u"circle");
    store->createLink(at(u"/w/to nothing"), u"nothing");
    auto const file = [&](ustring const& path) {
        return failureOf([&] { watchFile(store, path); });
    };
    auto const folder = [&](ustring const& path) {
        return failureOf([&] { watchFolder(store, path); });
    };
    EXPECT_EQ(file(u"/w/none"), failure(ErrorCode::ResourceNotFound, u"/w/none"));
    EXPECT_EQ(file(u"/w/file/x"), failure(ErrorCode::ResourceNotFound, u"/w/file/x"));
    EXPECT_EQ(file(u"/w/deep"), failure(ErrorCode::InvalidLocation, u"/w/deep"));
    EXPECT_EQ(folder(u"/w/none"), failure(ErrorCode::ResourceNotFound, u"/w/none"));
    EXPECT_EQ(folder(u"/w/to nothing"), failure(ErrorCode::ResourceNotFound, u"/w/to nothing"));
    EXPECT_EQ(folder(u"/w/file"), failure(ErrorCode::InvalidLocation, u"/w/file"));
    EXPECT_EQ(folder(u"/w/link"), failure(ErrorCode::InvalidLocation, u"/w/link"));
    EXPECT_EQ(folder(u"/w/circle"), failure(ErrorCode::InvalidLocation, u"/w/circle"));
    EXPECT_EQ(failureOf([&] {
                  store->publishFileEvents(StorageIRI(u"mem://host/w/file"), {}, everything);
              }),
              failure(ErrorCode::InvalidLocation, u"/w/file"));
}

TEST(MemoryEvents, AStopTakesTheOldestOfItsKind) {
    Store const store = tree();
    Log const first = watchFolder(store, u"/w");
    Log const second = watchTree(store, u"/w");
    Log const file = watchFile(store, u"/w/file");
    auto const touch = [&] { store->setWritable(at(u"/w/file"), true); };
    Lines const told{"attributes /w/file"};

    store->stopPublishingFolderEvents(at(u"/w/file")); // none there
    store->stopPublishingFileEvents(at(u"/w"));
    touch();
    EXPECT_EQ(first.take(), told);
    EXPECT_EQ(second.take(), told);
    EXPECT_EQ(file.take(), told);

    store->stopPublishingFolderEvents(StorageIRI(u"mem:///%77/")); // another spelling
    touch();
    EXPECT_EQ(first.take(), Lines());
    EXPECT_EQ(second.take(), told);

    store->removeFile(at(u"/w/file"));
    store->stopPublishingFileEvents(at(u"/w/file")); // also where nothing is left
    store->createFile(at(u"/w/file"));
    EXPECT_EQ(file.take(), Lines({"attributes /w/file", "removed /w/file"}));

    store->stopPublishingFolderEvents(at(u"/w"));
    store->stopPublishingFolderEvents(at(u"/w"));
    second.take();
    touch();
    EXPECT_EQ(second.take(), Lines());
}

} // namespace
