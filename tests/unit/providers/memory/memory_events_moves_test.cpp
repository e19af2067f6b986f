// Moves as a publication sees them: as a pair where it sees both ends, as an end or a beginning
// where it sees one.

#include "memory_watch.hpp"

#include <functional>

namespace {

using namespace memory_test;
using enum ReplacementPolicy;

/// /w and /out, each with a file and a folder with content.
Store tree() {
    Store store;
    for (char16_t const* const folder : {u"/w", u"/out"}) {
        store->createFolderRecursive(at(folder + ustring(u"/deep/er")));
        store.put(folder + ustring(u"/file"), "bytes");
        store.put(folder + ustring(u"/deep/file"), "bytes");
        store.put(folder + ustring(u"/deep/er/file"), "bytes");
    }
    store->createFolder(at(u"/w/empty"));
    return store;
}

struct Case {
    char const* name;
    bool folder;
    ustring from;
    ustring to;
    Lines flat;
    Lines recursive;
};

std::vector<Case> const cases{
    {"a file is renamed",
     false,
     u"/w/file",
     u"/w/new",
     {"removed /w/file to /w/new", "created /w/new from /w/file"},
     {"removed /w/file to /w/new", "created /w/new from /w/file"}},
    {"a file goes down",
     false,
     u"/w/file",
     u"/w/deep/new",
     {"removed /w/file"},
     {"removed /w/file to /w/deep/new", "created /w/deep/new from /w/file"}},
    {"a file comes up",
     false,
     u"/w/deep/file",
     u"/w/new",
     {"created /w/new"},
     {"removed /w/deep/file to /w/new", "created /w/new from /w/deep/file"}},
    {"a file leaves", false, u"/w/file", u"/out/new", {"removed /w/file"}, {"removed /w/file"}},
    {"a file comes in", false, u"/out/file", u"/w/new", {"created /w/new"}, {"created /w/new"}},
    {"a file replaces one",
     false,
     u"/w/deep/file",
     u"/w/file",
     {"created /w/file"},
     {"removed /w/deep/file to /w/file", "created /w/file from /w/deep/file"}},
    {"a folder is renamed",
     true,
     u"/w/deep",
     u"/w/new",
     {"removed /w/deep/ to /w/new", "created /w/new/ from /w/deep"},
     {"removed /w/deep/ to /w/new", "created /w/new/ from /w/deep"}},
    {"a folder comes up",
     true,
     u"/w/deep/er",
     u"/w/er",
     {"created /w/er/"},
     {"removed /w/deep/er/ to /w/er", "created /w/er/ from /w/deep/er"}},
    {"a folder replaces an empty one",
     true,
     u"/w/deep",
     u"/w/empty",
     {"removed /w/deep/ to /w/empty", "created /w/empty/ from /w/deep"},
     {"removed /w/deep/ to /w/empty", "created /w/empty/ from /w/deep"}},
    {"a folder leaves", true, u"/w/deep", u"/out/new", {"removed /w/deep/"}, {"removed /w/deep/"}},
    {"a folder comes in",
     true,
     u"/out/deep",
     u"/w/new",
     {"created /w/new/"},
     {"created /w/new/", "created /w/new/er/", "created /w/new/er/file", "created /w/new/file"}},
    {"a folder below comes in",
     true,
     u"/out/deep/er",
     u"/w/deep/new",
     {},
     {"created /w/deep/new/", "created /w/deep/new/file"}},
    {"the watched folder leaves", true, u"/w", u"/gone", {"removed /w/"}, {"removed /w/"}},
    {"the watched folder leaves for elsewhere",
     true,
     u"/w",
     u"/out/w",
     {"removed /w/"},
     {"removed /w/"}},
    {"what happens elsewhere", true, u"/out", u"/ww", {}, {}},
};

void move(Store const& store, Case const& each) {
    auto const operation =
        each.folder ? &memory::MemoryProvider::moveFolder : &memory::MemoryProvider::moveFile;
    (store.operator->()->*operation)(at(each.from), at(each.to), ReplaceExisting);
}

TEST(MemoryEventsOfMoves, EachPublicationIsToldWhatItSees) {
    for (Case const& each : cases) {
        SCOPED_TRACE(each.name);
        Store const store = tree();
        Log const flat = watchFolder(store, u"/w");
        Log const recursive = watchTree(store, u"/w");
        Log const fromRoot = watchTree(store, u"/");
        move(store, each);
        EXPECT_EQ(flat.take(), each.flat);
        EXPECT_EQ(recursive.take(), each.recursive);
        std::string const slash = each.folder ? "/" : "";
        EXPECT_EQ(fromRoot.take(),
                  Lines({"removed " + text(each.from) + slash + " to " + text(each.to),
                         "created " + text(each.to) + slash + " from " + text(each.from)}));
    }
}

TEST(MemoryEventsOfMoves, AFolderMovedWithinATreeGoesOnBeingWatchedUnderItsNewName) {
    Store const store = tree();
    Log const log = watchTree(store, u"/w");
    store->moveFolder(at(u"/w/deep"), at(u"/w/new"), FailIfExists);
    log.take();
    store->createFile(at(u"/w/new/er/more"));
    store->createFolder(at(u"/w/deep"));
    EXPECT_EQ(log.take(), Lines({"created /w/new/er/more", "created /w/deep/"}));
}

TEST(MemoryEventsOfMoves, AFolderMovedToAWatchedPlaceIsFoundWithItsContents) {
    Store const store = tree();
    Log const flat = watchFolder(store, u"/w/deep");
    Log const recursive = watchTree(store, u"/w/deep");
    Log const file = watchFile(store, u"/w/deep/er/file");
    store->moveFolder(at(u"/w"), at(u"/gone"), FailIfExists);
    EXPECT_EQ(flat.take(), Lines({"removed /w/deep/"}));
    EXPECT_EQ(recursive.take(), Lines({"removed /w/deep/"}));
    EXPECT_EQ(file.take(), Lines({"removed /w/deep/er/file"}));

    store->moveFolder(at(u"/out"), at(u"/w"), FailIfExists); // with a folder deep of its own
    EXPECT_EQ(flat.take(),
              Lines({"created /w/deep/", "created /w/deep/er/", "created /w/deep/file"}));
    EXPECT_EQ(recursive.take(), Lines({"created /w/deep/", "created /w/deep/er/",
                                       "created /w/deep/er/file", "created /w/deep/file"}));
    EXPECT_EQ(file.take(), Lines({"created /w/deep/er/file"}));

    store->moveFolder(at(u"/w/deep"), at(u"/w/away"), FailIfExists);
    store->moveFolder(at(u"/w/away"), at(u"/w/deep"), FailIfExists);
    EXPECT_EQ(flat.take(), Lines({"removed /w/deep/", "created /w/deep/", "created /w/deep/er/",
                                  "created /w/deep/file"}));
}

TEST(MemoryEventsOfMoves, AWatchedEmptyFolderThatIsReplacedIsRemovedAndMadeAgain) {
    Store const store = tree();
    Log const log = watchTree(store, u"/w/empty");
    store->moveFolder(at(u"/out/deep/er"), at(u"/w/empty"), ReplaceExisting);
    EXPECT_EQ(log.take(),
              Lines({"removed /w/empty/", "created /w/empty/", "created /w/empty/file"}));
}

TEST(MemoryEventsOfMoves, WhatIsFoundCountsForThoseWhoWantIt) {
    Store const store = tree();
    Log const created = watchTree(store, u"/w", {Kind::Created});
    Log const removed = watchTree(store, u"/w", {Kind::Removed});
    store->moveFolder(at(u"/out/deep/er"), at(u"/w/new"), FailIfExists);
    store->moveFolder(at(u"/w/new"), at(u"/w/newer"), FailIfExists);
    EXPECT_EQ(created.take(),
              Lines({"created /w/new/", "created /w/new/file", "created /w/newer/ from /w/new"}));
    EXPECT_EQ(removed.take(), Lines({"removed /w/new/ to /w/newer"}));
}

TEST(MemoryEventsOfMoves, TheOtherEndIsSpelledAsTheWatchedLocationIs) {
    Store const store = tree();
    ustring from;
    ustring to;
    store->publishFolderEvents(
        StorageIRI(u"mem:///%77"),
        [&](Kind kind, StorageIRI const&, StorageIRI const&, EntryType,
            boost::property_tree::ptree const& extended) {
            auto const key = kind == Kind::Created ? "movedFrom" : "movedTo";
            (kind == Kind::Created ? from : to) =
                fl::i18n::to_ustring(extended.get<std::string>(key));
        },
        everything, RecursiveFileWatching::Recursive);
    store->moveFile(at(u"/w/file"), at(u"/w/deep/50%25%20\u00e9"), FailIfExists);
    EXPECT_EQ(from, u"mem:///%77/file");
    EXPECT_EQ(StorageIRI(to), StorageIRI(u"mem:///w/deep/50%25 \u00e9"));
    EXPECT_TRUE(to.starts_with(u"mem:///%77/deep/"));
}

} // namespace
