// Listings of whole trees.

#include "listing.hpp"

#include <foundation/storage/provider/wildcard.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <stdexcept>

namespace {

using namespace memory_test;

using Names = std::vector<ustring>;

/// The tree below a folder, from flat listings.
void walk(Store const& store, ustring const& prefix, Names& names) {
    auto const cursor = store->listAllNamesOnly(at(u"/" + prefix), u"");
    while (cursor->hasNext()) {
        cursor->advance();
        FolderEntry const entry = cursor->currentEntry();
        names.push_back(prefix + entry.getName());
        if (!entry.isFile()) {
            walk(store, prefix + entry.getName() + u"/", names);
        }
    }
}

Names everythingIn(Store const& store) {
    Names names;
    walk(store, u"", names);
    return names;
}

ustring lastOf(ustring const& path) {
    return path.substr(path.rfind(u'/') + 1);
}

/// Files, folders and links, empty folders and large ones.
Store randomTree(unsigned seed) {
    std::mt19937 random(seed);
    Store store;
    Names folders{u"/"};
    for (unsigned i = 0; i < 400; ++i) {
        ustring const parent = folders[random() % folders.size()];
        StorageIRI const location(at(parent), numbered(u"", random() % 1000));
        if (store->exists(location) != ExistsResult::Nothing) {
            continue;
        }
        switch (random() % 4) {
        case 0:
        case 1:
            store->createFolder(location);
            folders.push_back(location.getResolvedPath());
            break;
        case 2:
            store->createLink(location, folders[random() % folders.size()]);
            break;
        default:
            store->createFile(location);
        }
        if (random() % 100 == 0) {
            createFiles(store, folders.back(), 300);
        }
    }
    return store;
}

TEST(MemoryRecursiveListing, AFolderComesBeforeItsContents) {
    Store const store;
    store->createFolderRecursive(at(u"/r/a"));
    store->createFile(at(u"/r/a/x"));
    store->createFile(at(u"/r/a/y"));
    store->createFile(at(u"/r/b"));
    store->createFolder(at(u"/r/c"));
    store->createFile(at(u"/r/d"));
    for (Listing const list :
         {&IProvider::listAllRecursive, &IProvider::listAllRecursiveNamesOnly}) {
        auto const cursor = listed(store, list, at(u"/r"), u"");
        EXPECT_EQ(restOf(cursor), (Names{u"a", u"a/x", u"a/y", u"b", u"c", u"d"}));
        EXPECT_FALSE(cursor->hasNext());
        EXPECT_THROW(cursor->advance(), std::logic_error);
    }
}

TEST(MemoryRecursiveListing, IsTheSameAsListingFolderByFolder) {
    for (unsigned seed = 0; seed < 20; ++seed) {
        Store const store = randomTree(seed);
        Names const expected = everythingIn(store);
        EXPECT_EQ(restOf(store->listAllRecursive(at(u"/"), u"")), expected);
        EXPECT_EQ(restOf(store->listAllRecursiveNamesOnly(at(u"/"), u"")), expected);
    }
}

TEST(MemoryRecursiveListing, APatternDecidesWhatIsShownAndNotWhatIsEntered) {
    Store const store = randomTree(1);
    for (char16_t const* const pattern : {u"*1", u"0*", u"*", u"f*9", u"?????1", u"**", u"none"}) {
        Names expected = everythingIn(store);
        std::erase_if(expected,
                      [&](ustring const& path) { return !matchesWildcard(pattern, lastOf(path)); });
        EXPECT_EQ(restOf(store->listAllRecursive(at(u"/"), pattern)), expected);
        EXPECT_EQ(restOf(store->listAllRecursiveNamesOnly(at(u"/"), pattern)), expected);
    }
}

TEST(MemoryRecursiveListing, NamesAreThePathsBelowTheListedFolder) {
    Store const store;
    store->createFolderRecursive(at(u"/r/s/t"));
    ustring const odd = ustring(u"\u00e4 %") + ustring(1, char16_t{0xDCFF});
    store->createFile(StorageIRI(at(u"/r/s/t"), odd));
    Names const names = restOf(store->listAllRecursive(at(u"/r//"), u""));
    EXPECT_EQ(names, (Names{u"s", u"s/t", u"s/t/" + odd}));
    EXPECT_TRUE(store->fileExists(StorageIRI(at(u"/r"), names.back())));
}

TEST(MemoryRecursiveListing, ALinkIsShownAndNotEntered) {
    Store const store;
    store->createFolderRecursive(at(u"/r/a/b"));
    store->createLink(at(u"/r/a/up"), u"..");
    store->createLink(at(u"/r/a/b/root"), u"/");
    store->createLink(at(u"/r/a/b/self"), u"self");
    EXPECT_EQ(restOf(store->listAllRecursive(at(u"/r"), u"")),
              (Names{u"a", u"a/b", u"a/b/root", u"a/b/self", u"a/up"}));
}

TEST(MemoryRecursiveListing, ClonesAtEveryPositionGoOnByThemselves) {
    Store const store = randomTree(2);
    for (char16_t const* const pattern : {u"", u"*1", u"f*"}) {
        Names const all = restOf(store->listAllRecursive(at(u"/"), pattern));
        for (bool const askFirst : {false, true}) {
            auto const cursor = store->listAllRecursive(at(u"/"), pattern);
            std::vector<CursorPtr> clones;
            for (std::size_t i = 0; i <= all.size(); ++i) {
                EXPECT_EQ(!askFirst || cursor->hasNext(), !askFirst || i < all.size());
                clones.push_back(clone(cursor));
                if (i < all.size()) {
                    cursor->advance();
                    EXPECT_EQ(cursor->currentEntry().getName(), all[i]);
                }
            }
            for (std::size_t i = 0; i < clones.size(); ++i) {
                if (i > 0) {
                    EXPECT_EQ(clones[i]->currentEntry().getName(), all[i - 1]);
                }
                EXPECT_EQ(restOf(clones[i]), Names(all.begin() + static_cast<long>(i), all.end()));
            }
        }
    }
}

TEST(MemoryRecursiveListing, PassesOverAFolderThatVanishesBelow) {
    Store const store;
    store->createFolderRecursive(at(u"/r/a"));
    createFiles(store, u"/r/a", 300);
    store->createFile(at(u"/r/b"));
    auto const cursor = store->listAllRecursive(at(u"/r"), u"");
    cursor->advance();
    cursor->advance();
    EXPECT_EQ(cursor->currentEntry().getName(), u"a/f000000");
    removeFiles(store, u"/r/a", 300);
    store->removeFolder(at(u"/r/a"));
    Names const rest = restOf(cursor);
    EXPECT_EQ(rest.size(), 256U); // what was fetched, and b
    EXPECT_EQ(rest.back(), u"b");
    EXPECT_FALSE(cursor->hasNext());
}

TEST(MemoryRecursiveListing, PassesOverAFolderThatIsNoneAnyMoreWhenItIsEntered) {
    Store const store;
    for (char16_t const* const folder : {u"/r/a", u"/r/b", u"/r/c"}) {
        store->createFolderRecursive(at(folder));
    }
    store->createFile(at(u"/r/c/x"));
    auto const cursor = store->listAllRecursive(at(u"/r"), u"");
    cursor->advance();
    store->removeFolder(at(u"/r/a"));
    store->removeFolder(at(u"/r/b"));
    store->createLink(at(u"/r/a"), u"c");
    store->createFile(at(u"/r/b"));
    EXPECT_EQ(restOf(cursor), (Names{u"b", u"c", u"c/x"}));
}

TEST(MemoryRecursiveListing, AFolderThatCameInThePlaceOfAnotherIsEntered) {
    Store const store;
    store->createFolderRecursive(at(u"/r/a"));
    auto const cursor = store->listAllRecursive(at(u"/r"), u"");
    cursor->advance();
    store->removeFolder(at(u"/r/a"));
    store->createFolder(at(u"/r/a"));
    store->createFile(at(u"/r/a/new"));
    EXPECT_EQ(restOf(cursor), Names{u"a/new"});
}

std::size_t countOf(CursorPtr const& cursor) {
    std::size_t count = 0;
    for (; cursor->hasNext(); ++count) {
        cursor->advance();
    }
    return count;
}

/// Folders in folders, with the folder e beside each d. From the inside out, so that no path is
/// long on the way.
Store deepTree(std::size_t levels) {
    Store store;
    store->createFolderRecursive(at(u"/t/e"));
    for (std::size_t level = 0; level < levels; ++level) {
        store->createFolderRecursive(at(u"/n/e"));
        store->moveFolder(at(u"/t"), at(u"/n/d"), ReplacementPolicy::FailIfExists);
        store->moveFolder(at(u"/n"), at(u"/t"), ReplacementPolicy::FailIfExists);
    }
    return store;
}

TEST(MemoryRecursiveListing, TwentyThousandLevelsAreNotTooMany) {
    constexpr std::size_t levels = 20'000;
    Store const store = deepTree(levels);
    for (Listing const list :
         {&IProvider::listAllRecursive, &IProvider::listAllRecursiveNamesOnly}) {
        auto const cursor = listed(store, list, at(u"/t"), u"");
        for (std::size_t level = 0; level < levels; ++level) {
            cursor->advance();
        }
        ustring const deepest = cursor->currentEntry().getName();
        EXPECT_EQ(deepest.size(), 2 * levels - 1);
        EXPECT_TRUE(deepest.ends_with(u"/d/d"));
        cursor->advance();
        EXPECT_EQ(cursor->currentEntry().getName(), deepest + u"/e");
        auto const other = clone(cursor);
        EXPECT_EQ(countOf(other), levels);
        EXPECT_EQ(other->currentEntry().getName(), u"e");
        EXPECT_EQ(cursor->currentEntry().getName(), deepest + u"/e");
        cursor->advance();
        EXPECT_EQ(cursor->currentEntry().getName(), deepest.substr(0, deepest.size() - 1) + u"e");
        EXPECT_EQ(countOf(cursor), levels - 1);
    }
}

} // namespace
