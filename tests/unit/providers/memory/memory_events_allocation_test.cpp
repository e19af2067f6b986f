// Reports where memory runs out: each allocation of an operation and of its telling fails once.

#include "../local/allocation_failure.hpp"
#include "memory_watch.hpp"

#include <functional>
#include <map>
#include <new>

namespace {

using namespace memory_test;
using foundation::storage::provider::local::test::AllocationFailure;
using enum ReplacementPolicy;

using Items = std::map<ustring, EntryType>; // by path

Items itemsIn(Store const& store) {
    Items items;
    auto const cursor = store->listAllRecursiveNamesOnly(at(u"/w"), {});
    while (cursor->hasNext()) {
        cursor->advance();
        FolderEntry const entry = cursor->currentEntry();
        items[u"/w/" + entry.getName()] = entry.isFile() ? EntryType::File : EntryType::Folder;
    }
    return items;
}

Store tree() {
    Store store;
    store->createFolderRecursive(at(u"/w/deep/er"));
    store->createFolderRecursive(at(u"/out/below"));
    store.put(u"/w/file", "bytes");
    store.put(u"/w/deep/er/file", "bytes");
    store.put(u"/out/below/file with a name that is too long to be kept in place", "bytes");
    return store;
}

/// What somebody knows who only hears of changes.
struct Known {
    Items items;
    int modified = 0;
    int others = 0;
    bool hasToLook = false;

    void hear(Kind kind, StorageIRI const& entry, EntryType type) {
        switch (kind) {
        case Kind::Created:
            items[entry.getPath()] = type;
            break;
        case Kind::Removed:
            std::erase_if(items, [path = entry.getPath()](auto const& item) {
                return item.first == path || item.first.starts_with(path + u'/');
            });
            break;
        case Kind::Modified:
            ++modified;
            break;
        case Kind::Overflow:
            hasToLook = true;
            break;
        case Kind::AttributesChanged:
            ++others;
        }
    }
};

struct Case {
    char const* name;
    std::function<void(Store const&)> operation;
};

std::vector<Case> const cases{
    {"create",
     [](Store const& s) { s->createFolderRecursive(at(u"/w/a folder with a long name/b/c")); }},
    {"remove", [](Store const& s) { s->removeFolderRecursively(at(u"/w/deep")); }},
    {"rename", [](Store const& s) { s->moveFile(at(u"/w/file"), at(u"/w/deep/f"), FailIfExists); }},
    {"come in", [](Store const& s) { s->moveFolder(at(u"/out"), at(u"/w/in"), FailIfExists); }},
    {"go out", [](Store const& s) { s->moveFolder(at(u"/w/deep"), at(u"/deep"), FailIfExists); }},
    {"copy", [](Store const& s) { s.copy(u"/w/file", u"/w/deep/copy"); }},
    {"truncate", [](Store const& s) { s.put(u"/w/file", ""); }},
};

TEST(MemoryEventAllocations, WhatIsNotToldForLackOfMemoryIsAnOverflow) {
    for (Case const& each : cases) {
        SCOPED_TRACE(each.name);
        int overflows = 0;
        bool failed = true;
        for (std::size_t before = 0; failed; ++before) {
            Store const store = tree();
            Known known;
            known.items = itemsIn(store);
            store->publishFolderEvents(
                at(u"/w"),
                [&](Kind kind, StorageIRI const&, StorageIRI const& entry, EntryType type,
                    boost::property_tree::ptree const&) { known.hear(kind, entry, type); },
                everything, RecursiveFileWatching::Recursive);
            try {
                AllocationFailure const failure(before, failed);
                each.operation(store);
            } catch (std::bad_alloc const&) {
                // It may have changed something all the same.
            } catch (Exception const& e) {
                EXPECT_EQ(e.getErrorCode(), ErrorCode::NoSpaceLeft);
            }
            store->setWritable(at(u"/w"), true); // what was tried in vain is tried again
            EXPECT_TRUE(known.hasToLook || known.others == 1) << before;
            EXPECT_TRUE(known.hasToLook || known.items == itemsIn(store)) << before;
            bool const isTruncated = store.isThere(u"/w/file") && store.get(u"/w/file").empty();
            EXPECT_TRUE(known.hasToLook || known.modified == (isTruncated ? 1 : 0)) << before;
            EXPECT_TRUE(failed || !known.hasToLook) << "of nothing";
            overflows += known.hasToLook ? 1 : 0;
            known = {};
            store->createFile(at(u"/w/last"));
            EXPECT_EQ(known.items, (Items{{u"/w/last", EntryType::File}})) << before;
        }
        EXPECT_GT(overflows, 0);
    }
}

TEST(MemoryEventAllocations, ACallbackThatNeverHasMemoryHarmsNoOther) {
    Store const store;
    Log const before = watchTree(store, u"/");
    int calls = 0;
    store->publishFolderEvents(
        at(u"/"),
        [&](Kind, StorageIRI const&, StorageIRI const&, EntryType,
            boost::property_tree::ptree const&) {
            ++calls;
            throw std::bad_alloc();
        },
        everything, RecursiveFileWatching::Recursive);
    Log const behind = watchTree(store, u"/");
    store->createFile(at(u"/a"));
    EXPECT_EQ(calls, 2); // the report and the overflow
    store->createFile(at(u"/b"));
    EXPECT_EQ(calls, 3); // the overflow again
    EXPECT_EQ(before.take(), Lines({"created /a", "created /b"}));
    EXPECT_EQ(behind.take(), Lines({"created /a", "created /b"}));
}

} // namespace
