#include "listing.hpp"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <barrier>
#include <cstddef>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace memory_test;

void removeTree(Store const& store, ustring const& path) {
    store->removeFolderRecursively(at(path));
}

/// Folders of files, folders and links, with more entries than one turn of a removal takes.
void createTree(Store const& store, ustring const& path, std::size_t folders = 40,
                std::size_t files = 40) {
    for (std::size_t i = 0; i < folders; ++i) {
        ustring const folder = path + numbered(u"/d", i) + (i % 3 == 0 ? u"/below" : u"");
        store->createFolderRecursive(at(folder));
        createFiles(store, folder, files);
        store->createLink(at(folder + u"/up"), u"..");
    }
}

/// A chain of folders /t/d/d/d..., made from the inside out, so that no path is long on the way.
void createChain(Store const& store, std::size_t levels) {
    store->createFolder(at(u"/t"));
    for (std::size_t level = 1; level < levels; ++level) {
        store->createFolder(at(u"/n"));
        store->moveFolder(at(u"/t"), at(u"/n/d"), ReplacementPolicy::FailIfExists);
        store->moveFolder(at(u"/n"), at(u"/t"), ReplacementPolicy::FailIfExists);
    }
}

TEST(MemoryRemoval, ATreeGoesAndNothingBesideIt) {
    Store const store;
    createTree(store, u"/tree");
    store.put(u"/tree beside", "content");
    store->createFolder(at(u"/tre"));

    removeTree(store, u"/tree");

    EXPECT_EQ(restOf(store->listAllNamesOnly(at(u"/"), u"")),
              (std::vector<ustring>{u"tre", u"tree beside"}));
    EXPECT_EQ(failureOf([&] { removeTree(store, u"/tree"); }),
              failure(ErrorCode::ResourceNotFound, u"/tree"));
}

TEST(MemoryRemoval, ATreeInATreeGoesAlone) {
    Store const store;
    createTree(store, u"/outer/tree");
    store.put(u"/outer/file", "content");

    removeTree(store, u"/outer/./no/../tree/");

    EXPECT_EQ(restOf(store->listAllNamesOnly(at(u"/outer"), u"")), std::vector<ustring>{u"file"});
}

TEST(MemoryRemoval, WhatIsNoFolderIsAnsweredAsByTheRemovalOfAnEmptyOne) {
    Store const store;
    store.put(u"/folder/../file", "content");
    store->createFolder(at(u"/folder"));
    store.put(u"/folder/inner", "inside");
    store->createLink(at(u"/link to file"), u"file");
    store->createLink(at(u"/link to folder"), u"folder");
    store->createLink(at(u"/link to nothing"), u"nothing");
    store->createLink(at(u"/circle"), u"circle");
    store->createFolder(at(u"/closed"));
    store->createFile(at(u"/closed/file"));
    store->setWritable(at(u"/closed"), false);

    for (ustring const path : {u"/file", u"/link to file", u"/link to folder", u"/link to nothing",
                               u"/circle", u"/missing", u"/missing/child", u"/file/child",
                               u"/circle/child", u"/closed/file", u"/"}) {
        auto const expected = failureOf([&] { store->removeFolder(at(path)); });
        ASSERT_TRUE(expected);
        EXPECT_EQ(failureOf([&] { removeTree(store, path); }), expected);
    }
    EXPECT_EQ(store.get(u"/folder/inner"), "inside");
    EXPECT_EQ(store->readLink(at(u"/link to folder")), u"folder");
}

TEST(MemoryRemoval, TheRootStaysWithEverythingInIt) {
    Store const store;
    store.put(u"/file", "content");
    for (ustring const path : {u"/", u"/.", u"/folder/.."}) {
        EXPECT_EQ(failureOf([&] { removeTree(store, path); }),
                  failure(ErrorCode::ResourceInUse, path));
    }
    EXPECT_EQ(store.get(u"/file"), "content");
}

TEST(MemoryRemoval, LinksGoAndWhatTheyLeadToStays) {
    Store const store;
    store->createFolder(at(u"/folder"));
    store.put(u"/folder/inner", "inside");
    store->createFolderRecursive(at(u"/tree/below"));
    for (ustring const folder : {u"/tree", u"/tree/below"}) {
        store->createLink(at(folder + u"/to folder"), u"/folder");
        store->createLink(at(folder + u"/to file"), u"/folder/inner");
        store->createLink(at(folder + u"/to nothing"), u"nothing");
        store->createLink(at(folder + u"/to itself"), u"to itself");
        store->createLink(at(folder + u"/top"), u"/");
    }

    removeTree(store, u"/tree");

    EXPECT_FALSE(store.isThere(u"/tree"));
    EXPECT_EQ(store.get(u"/folder/inner"), "inside");
}

TEST(MemoryRemoval, ALinkOnTheWayToTheTreeIsFollowed) {
    Store const store;
    createTree(store, u"/folder/tree", 3, 3);
    store->createLink(at(u"/link"), u"folder");

    removeTree(store, u"/link/tree");

    EXPECT_TRUE(store.isThere(u"/link"));
    EXPECT_FALSE(store.isThere(u"/folder/tree"));
}

TEST(MemoryRemoval, ReadOnlyItemsGoAsTheirFolderAllows) {
    Store const store;
    store->createFolderRecursive(at(u"/tree/empty"));
    store.put(u"/tree/file", "content");
    store->setWritable(at(u"/tree/empty"), false);
    store->setWritable(at(u"/tree/file"), false);

    removeTree(store, u"/tree");

    EXPECT_FALSE(store.isThere(u"/tree"));
}

TEST(MemoryRemoval, AReadOnlyFolderIsToldByWhatItHolds) {
    for (char16_t const* const kept : {u"/tree/a/b/\u00e4 %/file", u"/tree/a/b/\u00e4 %/folder"}) {
        Store const store;
        ustring const folder = u"/tree/a/b/\u00e4 %";
        store->createFolderRecursive(StorageIRI(at(u"/"), folder));
        StorageIRI const item(at(u"/"), kept);
        if (item.getName() == u"file") {
            store->createFile(item);
        } else {
            store->createFolder(item);
            store->createFile(StorageIRI(item, u"inner"));
        }
        store->setWritable(StorageIRI(at(u"/"), folder), false);
        std::optional<StorageIRI> told;
        try {
            removeTree(store, u"/tree");
        } catch (Exception const& e) {
            EXPECT_EQ(e.getErrorCode(), ErrorCode::PermissionDenied);
            told = e.getStorageIRI();
        }
        EXPECT_EQ(told, item);
        EXPECT_NE(store->exists(item), ExistsResult::Nothing);
    }
}

TEST(MemoryRemoval, AParentThatDeniesKeepsTheEmptiedRoot) {
    Store const store;
    createTree(store, u"/parent/tree", 2, 2);
    store->setWritable(at(u"/parent"), false);

    EXPECT_EQ(failureOf([&] { removeTree(store, u"/parent/tree"); }),
              failure(ErrorCode::PermissionDenied, u"/parent/tree"));
    EXPECT_TRUE(restOf(store->listAllNamesOnly(at(u"/parent/tree"), u"")).empty());
}

TEST(MemoryRemoval, AHundredThousandLevelsGo) {
    constexpr std::size_t levels = 100'000;
    Store const store;
    createChain(store, levels);
    store.put(u"/t/file", "content");

    removeTree(store, u"/t");

    EXPECT_TRUE(restOf(store->listAllNamesOnly(at(u"/"), u"")).empty());
}

TEST(MemoryRemoval, AFailureAHundredThousandLevelsDownIsTold) {
    constexpr std::size_t levels = 100'000;
    Store const store;
    store->createFolder(at(u"/t"));
    store->createFile(at(u"/t/file"));
    for (std::size_t level = 1; level < levels; ++level) {
        store->createFolder(at(u"/n"));
        store->moveFolder(at(u"/t"), at(u"/n/d"), ReplacementPolicy::FailIfExists);
        if (level == 1) { // a read-only folder would not move into another one
            store->setWritable(at(u"/n/d"), false);
        }
        store->moveFolder(at(u"/n"), at(u"/t"), ReplacementPolicy::FailIfExists);
    }

    auto const told = failureOf([&] { removeTree(store, u"/t"); });

    ASSERT_TRUE(told);
    EXPECT_EQ(told->first, ErrorCode::PermissionDenied);
    EXPECT_EQ(told->second.size(), 2 + 2 * (levels - 1) + 5);
    EXPECT_TRUE(told->second.ends_with(u"/d/d/file"));
}

TEST(MemoryRemoval, AStoreAHundredThousandLevelsDeepEnds) {
    Store const store;
    createChain(store, 100'000);
    EXPECT_TRUE(store.isThere(u"/t/d/d"));
}

TEST(MemoryRemoval, GivesBackAllThatTheTreeTook) {
    constexpr std::size_t entries = 3000;
    Store const store({.maximumBytes = 1'000'000, .maximumEntries = entries});
    for (int round = 0; round < 3; ++round) {
        store->createFolder(at(u"/tree"));
        createFiles(store, u"/tree", entries - 2);
        store.put(u"/tree/all", std::string(1'000'000, 'x'));
        removeTree(store, u"/tree");
    }
    EXPECT_FALSE(store.isThere(u"/tree"));
}

TEST(MemoryRemoval, AnOpenStreamKeepsItsFile) {
    Store const store;
    store->createFolder(at(u"/tree"));
    store.put(u"/tree/file", "content");
    auto const stream = store->openReadOnlyStream(at(u"/tree/file"));

    removeTree(store, u"/tree");

    EXPECT_EQ(Store::contentOf(*stream), "content");
}

TEST(MemoryRemoval, AReplacementThatWasOpenedInTheTreeFindsItsFolderGone) {
    Store const store;
    createTree(store, u"/tree", 2, 2);
    auto const stream =
        store->openReplacement(at(u"/tree/d000001/f000000"), ReplacementPolicy::ReplaceExisting);

    removeTree(store, u"/tree");

    EXPECT_EQ(streamFailureOf<ByteStreamCloseFailure>([&] { stream->close(); }),
              ErrorCode::ResourceNotFound);
    EXPECT_FALSE(store.isThere(u"/tree"));
}

TEST(MemoryRemoval, ListingsOfTheTreeEnd) {
    Store const store;
    createTree(store, u"/tree", 40, 400);
    auto const root = store->listAllNamesOnly(at(u"/tree"), u"");
    auto const below = store->listAllNamesOnly(at(u"/tree/d000001"), u"");
    auto const all = store->listAllRecursive(at(u"/tree"), u"");
    auto const outer = store->listAllRecursiveNamesOnly(at(u"/"), u"");
    for (auto const& cursor : {&root, &below, &all, &outer}) {
        (*cursor)->advance();
    }

    removeTree(store, u"/tree");

    EXPECT_EQ(restOf(root).size(), 39U); // one chunk, and the end was known
    EXPECT_EQ(failureOf([&] { restOf(below); }),
              failure(ErrorCode::ResourceNotFound, u"/tree/d000001"));
    EXPECT_EQ(restOf(all).size(), 39U); // nothing is below the folders any more
    EXPECT_EQ(restOf(outer).size(), 0U);
}

/// Runs both at the same time, the second one again and again until the first one has ended.
template<class First, class Second>
void beside(First const& first, Second const& second) {
    std::atomic<bool> over = false;
    std::barrier start(2);
    std::thread other([&] {
        start.arrive_and_wait();
        for (unsigned round = 0; !over; ++round) {
            second(round);
        }
    });
    start.arrive_and_wait();
    first();
    over = true;
    other.join();
}

TEST(MemoryRemovalConcurrency, ListingsBesideItDeliverWhatIsThereAndEnd) {
    Store const store;
    for (int round = 0; round < 5; ++round) {
        createTree(store, u"/tree", 60, 60);
        store.put(u"/stays", "content");
        beside([&] { removeTree(store, u"/tree"); },
               [&](unsigned) {
                   auto const names = restOf(store->listAllRecursive(at(u"/"), u""));
                   ASSERT_FALSE(names.empty());
                   EXPECT_EQ(names.front(), u"stays");
                   failureOf([&] { restOf(store->listAllRecursiveNamesOnly(at(u"/tree"), u"")); });
               });
        EXPECT_FALSE(store.isThere(u"/tree"));
        store->removeFile(at(u"/stays"));
    }
}

TEST(MemoryRemovalConcurrency, WhatIsMadeInTheTreeMeanwhileGoesToo) {
    Store const store;
    for (int round = 0; round < 5; ++round) {
        createTree(store, u"/tree", 60, 60);
        beside([&] { removeTree(store, u"/tree"); },
               [&](unsigned made) {
                   // In every part of the tree, so that some of it comes behind the removal.
                   ustring const folder = u"/tree" + numbered(u"/d", made % 60);
                   failureOf([&] { store->createFolder(at(folder + numbered(u"/new", made))); });
               });
        EXPECT_FALSE(store.isThere(u"/tree"));
    }
}

TEST(MemoryRemovalConcurrency, WhatIsMovedOutIsNotFollowed) {
    Store const store;
    for (int round = 0; round < 20; ++round) {
        createTree(store, u"/tree", 30, 60);
        store->createFolder(at(u"/out"));
        store.put(u"/out/stays", "content");
        beside([&] { EXPECT_EQ(failureOf([&] { removeTree(store, u"/tree"); }), std::nullopt); },
               [&](unsigned moved) {
                   ustring const name = numbered(u"/d", moved % 30);
                   failureOf([&] {
                       store->moveFolder(at(u"/tree" + name), at(u"/out" + name),
                                         ReplacementPolicy::FailIfExists);
                   });
               });
        EXPECT_FALSE(store.isThere(u"/tree"));
        EXPECT_EQ(store.get(u"/out/stays"), "content");
        removeTree(store, u"/out");
    }
}

TEST(MemoryRemovalConcurrency, TwoRemovalsOfOneTreeBothEnd) {
    Store const store;
    for (int round = 0; round < 50; ++round) {
        createTree(store, u"/tree", 20, 60);
        std::array<std::optional<std::pair<ErrorCode, ustring>>, 2> failures;
        std::barrier start(2);
        std::vector<std::thread> threads;
        for (auto& failed : failures) {
            threads.emplace_back([&] {
                start.arrive_and_wait();
                failed = failureOf([&] { removeTree(store, u"/tree"); });
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_FALSE(store.isThere(u"/tree"));
        EXPECT_FALSE(failures[0] && failures[1]);
        for (auto const& failed : failures) {
            if (failed) { // the other one was a step ahead at the end
                EXPECT_EQ(failed, failure(ErrorCode::ResourceNotFound, u"/tree"));
            }
        }
    }
}

} // namespace
