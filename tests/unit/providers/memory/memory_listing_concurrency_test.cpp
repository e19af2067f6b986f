// Listings while other threads change what is listed. Run under the thread sanitizer too.

#include "listing.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <random>
#include <thread>
#include <vector>

namespace {

using namespace memory_test;

using Names = std::vector<ustring>;

constexpr std::size_t lasting = 1500;
constexpr unsigned writers = 2;
constexpr unsigned readers = 4;

/// Makes and removes entries around those that last, until told to stop.
void change(Store const& store, unsigned seed, std::atomic<bool> const& done) {
    std::mt19937 random(seed);
    while (!done) {
        ustring const name = numbered(u"f", random() % lasting) + u"+";
        StorageIRI const location(at(u"/r"), name);
        // What the other writers did first is none of this one's business.
        failureOf([&] { store->createFolder(location); });
        failureOf([&] { store->createFile(StorageIRI(location, u"inside")); });
        failureOf([&] { store->setWritable(StorageIRI(location, u"inside"), random() % 2 == 0); });
        failureOf([&] { store->removeFile(StorageIRI(location, u"inside")); });
        failureOf([&] { store->removeFolder(location); });
    }
}

void expectAllThatLasts(CursorPtr const& cursor, std::size_t first) {
    Names names = restOf(cursor);
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    std::erase_if(names, [](ustring const& name) { return name.find(u'+') != ustring::npos; });
    ASSERT_EQ(names.size(), lasting - first);
    for (std::size_t i = 0; i < names.size(); ++i) {
        ASSERT_EQ(names[i], numbered(u"f", first + i));
    }
}

TEST(MemoryListingConcurrency, WhatIsThereThroughoutIsDeliveredOnceAndInOrder) {
    Store const store;
    store->createFolder(at(u"/r"));
    createFiles(store, u"/r", lasting);
    std::atomic<bool> done{false};
    std::vector<std::jthread> changing;
    for (unsigned i = 0; i < writers; ++i) {
        changing.emplace_back([&, i] { change(store, i, done); });
    }
    {
        std::vector<std::jthread> listing;
        for (unsigned i = 0; i < readers; ++i) {
            listing.emplace_back([&, i] {
                for (unsigned round = 0; round < 6; ++round) {
                    NamedListing const& chosen = listings.at((i + round * readers) % 8);
                    if (chosen.files) {
                        expectAllThatLasts(listed(store, chosen.list, at(u"/r"), u""), 0);
                    }
                }
            });
        }
    }
    done = true;
}

TEST(MemoryListingConcurrency, ClonesOfOneCursorGoOnOnManyThreads) {
    Store const store;
    store->createFolder(at(u"/r"));
    createFiles(store, u"/r", lasting);
    for (Listing const list : {&IProvider::listAll, &IProvider::listAllRecursive}) {
        auto const cursor = listed(store, list, at(u"/r"), u"");
        for (std::size_t i = 0; i < 100; ++i) {
            cursor->advance();
        }
        std::vector<std::jthread> threads;
        for (unsigned i = 0; i < readers; ++i) {
            threads.emplace_back([own = clone(cursor)] { expectAllThatLasts(own, 100); });
        }
        threads.emplace_back([&] { expectAllThatLasts(cursor, 100); });
    }
}

TEST(MemoryListingConcurrency, ClonesDeepInATreeGoOnOnManyThreads) {
    Store const store;
    ustring path = u"/r";
    store->createFolder(at(path));
    for (int level = 0; level < 200; ++level) {
        store->createFile(at(path + u"/z"));
        path += u"/d";
        store->createFolder(at(path));
    }
    auto cursor = store->listAllRecursive(at(u"/r"), u"");
    for (int i = 0; i < 200; ++i) {
        cursor->advance();
    }
    std::vector<std::jthread> threads;
    for (unsigned i = 0; i < readers; ++i) {
        threads.emplace_back([own = clone(cursor)] {
            Names const names = restOf(own);
            EXPECT_EQ(names.size(), 200U);
            EXPECT_EQ(names.back(), u"z");
        });
    }
    cursor.reset();
}

} // namespace
