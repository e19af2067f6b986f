// What the store reports of each operation, and to whom.

#include "memory_watch.hpp"

#include <boost/date_time/posix_time/ptime.hpp>

#include <functional>

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

std::unique_ptr<ByteStream> open(Store const& store, ustring const& path, bool truncate,
                                 bool append = false) {
    return store->openStream(at(path), {ByteStreamAccess::WriteOnly,
                                        ByteStreamCreation::OpenOrCreate, truncate ? 0U : 1U,
                                        append ? 0U : 1U});
}

void replace(Store const& store, ustring const& path) {
    auto const stream = store->openReplacement(at(path), ReplaceExisting);
    stream->write("new", 3);
    stream->close();
}

struct Case {
    char const* name;
    std::function<void(Store const&)> operation;
    Lines flat;
    Lines recursive;
};

boost::posix_time::ptime const someTime(boost::gregorian::date(2024, 2, 29));

std::vector<Case> const cases{
    {"createFile", [](Store const& s) { s->createFile(at(u"/w/new")); }, {"created /w/new"},
     {"created /w/new"}},
    {"createFile deep", [](Store const& s) { s->createFile(at(u"/w/deep/new")); }, {},
     {"created /w/deep/new"}},
    {"createFile through a link to a folder",
     [](Store const& s) {
         s->createLink(at(u"/way"), u"w/deep");
         s->createFile(at(u"/way/new"));
     },
     {}, {"created /w/deep/new"}},
    {"createFolder", [](Store const& s) { s->createFolder(at(u"/w/new")); }, {"created /w/new/"},
     {"created /w/new/"}},
    {"createFolderRecursive",
     [](Store const& s) { s->createFolderRecursive(at(u"/w/deep/1/2")); }, {},
     {"created /w/deep/1/", "created /w/deep/1/2/"}},
    {"createFolderRecursive of what is there",
     [](Store const& s) { s->createFolderRecursive(at(u"/w/deep")); }, {}, {}},
    {"createLink", [](Store const& s) { s->createLink(at(u"/w/new"), u"nowhere"); },
     {"created /w/new"}, {"created /w/new"}},
    {"removeFile", [](Store const& s) { s->removeFile(at(u"/w/file")); }, {"removed /w/file"},
     {"removed /w/file"}},
    {"removeFile of a link", [](Store const& s) { s->removeFile(at(u"/w/link")); },
     {"removed /w/link"}, {"removed /w/link"}},
    {"removeFolder",
     [](Store const& s) {
         s->removeFile(at(u"/w/deep/file"));
         s->removeFolder(at(u"/w/deep"));
     },
     {"removed /w/deep/"}, {"removed /w/deep/file", "removed /w/deep/"}},
    {"removeFolderRecursively",
     [](Store const& s) {
         s->createFolderRecursive(at(u"/w/deep/1/2"));
         s->removeFolderRecursively(at(u"/w/deep"));
     },
     {"removed /w/deep/"},
     {"created /w/deep/1/", "created /w/deep/1/2/", "removed /w/deep/1/2/", "removed /w/deep/1/",
      "removed /w/deep/file", "removed /w/deep/"}},
    {"removeFolderRecursively of the watched folder",
     [](Store const& s) { s->removeFolderRecursively(at(u"/w")); },
     {"removed /w/deep/", "removed /w/file", "removed /w/link", "removed /w/"},
     {"removed /w/deep/file", "removed /w/deep/", "removed /w/file", "removed /w/link",
      "removed /w/"}},
    {"copyFile", [](Store const& s) { s.copy(u"/out/file", u"/w/new"); }, {"created /w/new"},
     {"created /w/new"}},
    {"copyFile onto a file",
     [](Store const& s) { s.copy(u"/out/file", u"/w/file", ReplaceExisting); }, {"created /w/file"},
     {"created /w/file"}},
    {"copyFile of a link", [](Store const& s) { s.copy(u"/w/link", u"/w/deep/new"); }, {},
     {"created /w/deep/new"}},
    {"setLastModified", [](Store const& s) { s->setLastModified(at(u"/w/file"), someTime); },
     {"attributes /w/file"}, {"attributes /w/file"}},
    {"setLastModified through a link",
     [](Store const& s) { s->setLastModified(at(u"/w/link"), someTime); }, {"attributes /w/file"},
     {"attributes /w/file"}},
    {"setLastModified of a folder",
     [](Store const& s) { s->setLastModified(at(u"/w/deep"), someTime); }, {"attributes /w/deep/"},
     {"attributes /w/deep/"}},
    {"setLastModified of the watched folder",
     [](Store const& s) { s->setLastModified(at(u"/w"), someTime); }, {"attributes /w/"},
     {"attributes /w/"}},
    {"setWritable", [](Store const& s) { s->setWritable(at(u"/w/deep/file"), false); }, {},
     {"attributes /w/deep/file"}},
    {"setFolderAttributes",
     [](Store const& s) { s->setFolderAttributes(at(u"/w/deep"), {0700, std::nullopt, std::nullopt}); },
     {"attributes /w/deep/"}, {"attributes /w/deep/"}},
    {"openStream of nothing", [](Store const& s) { open(s, u"/w/new", true); }, {"created /w/new"},
     {"created /w/new"}},
    {"openStream that truncates", [](Store const& s) { open(s, u"/w/file", true); },
     {"modified /w/file"}, {"modified /w/file"}},
    {"openStream that truncates nothing",
     [](Store const& s) {
         s->createFile(at(u"/w/new"));
         open(s, u"/w/new", true);
     },
     {"created /w/new"}, {"created /w/new"}},
    {"openStream that keeps the bytes", [](Store const& s) { open(s, u"/w/file", false); }, {}, {}},
    {"write",
     [](Store const& s) {
         auto const stream = open(s, u"/w/deep/file", false);
         stream->write("a", 1);
         stream->write("", 0);
         stream->write("b", 1);
         stream->close();
     },
     {}, {"modified /w/deep/file", "modified /w/deep/file"}},
    {"write at the end, through a link",
     [](Store const& s) { open(s, u"/w/link", false, true)->write("a", 1); }, {"modified /w/file"},
     {"modified /w/file"}},
    {"write to a file that was moved",
     [](Store const& s) {
         auto const stream = open(s, u"/out/file", false);
         s->moveFile(at(u"/out/file"), at(u"/w/new"), FailIfExists);
         stream->write("a", 1);
         s->moveFolder(at(u"/w"), at(u"/w2"), FailIfExists);
         stream->write("a", 1);
         s->moveFolder(at(u"/w2"), at(u"/out/w2"), FailIfExists);
         s->moveFile(at(u"/out/w2/new"), at(u"/back"), FailIfExists);
         s->createFolder(at(u"/w"));
         s->moveFile(at(u"/back"), at(u"/w/renamed"), FailIfExists);
         stream->write("a", 1);
     },
     {"created /w/new", "modified /w/new", "removed /w/", "created /w/", "created /w/renamed",
      "modified /w/renamed"},
     {"created /w/new", "modified /w/new", "removed /w/", "created /w/", "created /w/renamed",
      "modified /w/renamed"}},
    {"write to a file that was removed or replaced",
     [](Store const& s) {
         auto const first = open(s, u"/w/file", false);
         replace(s, u"/w/file");
         first->write("a", 1);
         auto const second = open(s, u"/w/file", false);
         s->removeFile(at(u"/w/file"));
         second->write("a", 1);
     },
     {"created /w/file", "removed /w/file"}, {"created /w/file", "removed /w/file"}},
    {"openReplacement", [](Store const& s) { replace(s, u"/w/deep/new"); }, {},
     {"created /w/deep/new"}},
    {"openReplacement that is not closed",
     [](Store const& s) {
         s->openReplacement(at(u"/w/file"), ReplaceExisting)->write("new", 3);
     },
     {}, {}},
    {"what fails",
     [](Store const& s) {
         EXPECT_TRUE(failureOf([&] { s->createFile(at(u"/w/file")); }));
         EXPECT_TRUE(failureOf([&] { s->createFolder(at(u"/w/deep")); }));
         EXPECT_TRUE(failureOf([&] { s->removeFolder(at(u"/w/deep")); }));
         EXPECT_TRUE(failureOf([&] { s->removeFile(at(u"/w/none")); }));
         EXPECT_TRUE(failureOf([&] { s->moveFolder(at(u"/w"), at(u"/w/deep/w"), FailIfExists); }));
         EXPECT_TRUE(failureOf([&] { s.copy(u"/out/file", u"/w/file"); }));
         EXPECT_TRUE(failureOf([&] { s->setWritable(at(u"/w/none"), true); }));
     },
     {}, {}},
    {"what happens elsewhere",
     [](Store const& s) {
         s->createFile(at(u"/ww"));
         s->createFile(at(u"/out/w"));
         s->createFolder(at(u"/w!"));
         s->createFile(at(u"/w!/file"));
         s->removeFolderRecursively(at(u"/out"));
     },
     {}, {}},
    {"createFolderRecursive that fails on the way",
     [](Store const& s) {
         EXPECT_TRUE(failureOf([&] { s->createFolderRecursive(at(u"/w/file/x")); }));
         s->createFolder(at(u"/w/ro"));
         s->setWritable(at(u"/w/ro"), false);
         EXPECT_TRUE(failureOf([&] { s->createFolderRecursive(at(u"/w/ro/x")); }));
     },
     {"created /w/ro/", "attributes /w/ro/"}, {"created /w/ro/", "attributes /w/ro/"}},
};

TEST(MemoryEvents, EveryOperationReportsWhatItChanged) {
    for (Case const& each : cases) {
        SCOPED_TRACE(each.name);
        Store const store = tree();
        Log const flat = watchFolder(store, u"/w");
        Log const recursive = watchTree(store, u"/w");
        Log const fromRoot = watchTree(store, u"/");
        Log const none = watchTree(store, u"/w", {});
        each.operation(store);
        EXPECT_EQ(flat.take(), each.flat);
        EXPECT_EQ(recursive.take(), each.recursive);
        Lines const all = fromRoot.take();
        for (std::string const& line : each.recursive) {
            EXPECT_TRUE(std::any_of(all.begin(), all.end(), [&](std::string const& other) {
                return other.starts_with(line);
            })) << line;
        }
        EXPECT_EQ(none.take(), Lines());
    }
}

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
    EXPECT_EQ(flat.watched(),
              std::vector<ustring>({u"mem:///out/../%77/", u"mem:///out/../%77/"}));
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
