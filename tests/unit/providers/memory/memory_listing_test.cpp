// Listings of one folder, and what all eight listings have in common.

#include "listing.hpp"

#include <foundation/storage/provider/wildcard.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <random>
#include <stdexcept>

namespace {

using namespace memory_test;

using Names = std::vector<ustring>;

/// One of everything in /r.
Store oneOfEverything() {
    Store store;
    store->createFolder(at(u"/r"));
    store->createFolder(at(u"/r/folder"));
    store.put(u"/r/file", "12345");
    store->setWritable(at(u"/r/file"), false);
    store->createLink(at(u"/r/to file"), u"file");
    store->createLink(at(u"/r/to folder"), u"folder");
    store->createLink(at(u"/r/to nothing"), u"no\u00e4where");
    store->createLink(at(u"/r/circle"), u"circle");
    return store;
}

TEST(MemoryListing, DeclaresWhatItDoes) {
    Store const store;
    EXPECT_TRUE(store->hasFeature(at(u"/"), ExtendedFeature::RecursiveListing));
    EXPECT_TRUE(store->hasFeature(at(u"/"), ExtendedFeature::FlatWildcardListing));
    EXPECT_TRUE(store->hasFeature(at(u"/"), ExtendedFeature::RecursiveWildcardListing));
    EXPECT_TRUE(store->hasFeature(at(u"/"), ExtendedFeature::RecursiveFolderRemoval));
    EXPECT_TRUE(store->hasFeature(at(u"/"), ExtendedFeature::RecursiveChangeEvents));
}

TEST(MemoryListing, EntriesComeInTheOrderOfTheirNames) {
    Store const store = oneOfEverything();
    Names const files{u"circle", u"file", u"to file", u"to folder", u"to nothing"};
    Names const folders{u"folder"};
    Names const all{u"circle", u"file", u"folder", u"to file", u"to folder", u"to nothing"};
    for (NamedListing const& listing : listings) {
        auto const cursor = listed(store, listing.list, at(u"/r"), u"");
        EXPECT_EQ(restOf(cursor), !listing.files     ? folders
                                  : !listing.folders ? files
                                                     : all)
            << listing.name;
    }
}

TEST(MemoryListing, ALinkIsAFileWhateverItLeadsTo) {
    Store const store = oneOfEverything();
    auto const cursor = store->listAllNamesOnly(at(u"/r"), u"");
    while (cursor->hasNext()) {
        cursor->advance();
        FolderEntry const entry = cursor->currentEntry();
        EXPECT_EQ(entry.isFile(), entry.getName() != u"folder");
    }
}

TEST(MemoryListing, ListingsOfNamesCarryNoAttributes) {
    Store const store = oneOfEverything();
    for (NamedListing const& listing : listings) {
        auto const cursor = listed(store, listing.list, at(u"/r"), u"");
        while (cursor->hasNext()) {
            cursor->advance();
            FolderEntry const entry = cursor->currentEntry();
            EXPECT_EQ(entry.getFileAttributes().has_value(), listing.attributes && entry.isFile());
            EXPECT_EQ(entry.getFolderAttributes().has_value(),
                      listing.attributes && !entry.isFile());
        }
    }
}

void expectSame(AttributeValues const& found, AttributeValues const& expected) {
    EXPECT_EQ(found.lastModified, expected.lastModified);
    EXPECT_EQ(found.created, expected.created);
    EXPECT_EQ(found.lastAccessed, expected.lastAccessed);
    EXPECT_EQ(found.size, expected.size);
    EXPECT_EQ(found.mode, expected.mode);
    EXPECT_EQ(found.writable, expected.writable);
}

TEST(MemoryListing, AttributesAreThoseOfTheItemItself) {
    Store const store = oneOfEverything();
    for (Listing const list : {&IProvider::listAll, &IProvider::listAllRecursive}) {
        auto const cursor = listed(store, list, at(u"/r"), u"");
        std::size_t seen = 0;
        for (; cursor->hasNext(); ++seen) {
            cursor->advance();
            FolderEntry const entry = cursor->currentEntry();
            StorageIRI const location(at(u"/r"), entry.getName());
            if (!entry.isFile()) {
                expectSame(entry.getFolderAttributes()->values(),
                           store->getFolderAttributes(location).values());
            } else if (entry.getName() == u"file") {
                expectSame(entry.getFileAttributes()->values(),
                           store->getFileAttributes(location).values());
            } else {
                AttributeValues const values = entry.getFileAttributes()->values();
                EXPECT_EQ(values.mode, 0777U);
                EXPECT_EQ(values.size, fl::i18n::toDisplayString(store->readLink(location)).size());
            }
        }
        EXPECT_EQ(seen, 6U);
    }
}

TEST(MemoryListing, AListedLinkToAFolderIsFollowed) {
    Store const store = oneOfEverything();
    store->createFile(at(u"/r/folder/inside"));
    for (Listing const list : {&IProvider::listAll, &IProvider::listAllRecursive}) {
        EXPECT_EQ(restOf(listed(store, list, at(u"/r/to folder"), u"")), Names{u"inside"});
    }
}

TEST(MemoryListing, WhatIsNoFolderFailsInTheOperationItself) {
    struct Case {
        char16_t const* path;
        ErrorCode code;
    };
    Store const store = oneOfEverything();
    for (auto const& [path, code] : {Case{u"/r/missing", ErrorCode::ResourceNotFound},
                                     {u"/r/missing/too", ErrorCode::ResourceNotFound},
                                     {u"/r/file", ErrorCode::ResourceNotFound},
                                     {u"/r/file/in", ErrorCode::ResourceNotFound},
                                     {u"/r/to file", ErrorCode::ResourceNotFound},
                                     {u"/r/to nothing", ErrorCode::ResourceNotFound},
                                     {u"/r/circle", ErrorCode::InvalidLocation},
                                     {u"/r/circle/in", ErrorCode::InvalidLocation},
                                     {u"//host/r", ErrorCode::InvalidLocation},
                                     {u"/r?query", ErrorCode::InvalidLocation}}) {
        for (NamedListing const& listing : listings) {
            StorageIRI const location = at(path);
            try {
                listed(store, listing.list, location, u"*");
                ADD_FAILURE() << listing.name << " of " << location << " did not fail";
            } catch (Exception const& e) {
                EXPECT_EQ(e.getErrorCode(), code) << listing.name << " of " << location;
                EXPECT_EQ(e.getStorageIRI().toString(), location.toString());
            }
        }
    }
}

TEST(MemoryListing, AnEmptyFolderHasNoEntries) {
    Store const store;
    for (NamedListing const& listing : listings) {
        auto const cursor = listed(store, listing.list, at(u"/"), u"");
        EXPECT_FALSE(cursor->hasNext());
        EXPECT_FALSE(cursor->hasNext());
        EXPECT_THROW(cursor->advance(), std::logic_error);
        EXPECT_THROW(cursor->currentEntry(), std::logic_error);
        EXPECT_FALSE(cursor->hasNext());
    }
}

TEST(MemoryListing, AFolderOfAnySizeIsListedCompletely) {
    for (std::size_t const count : {1U, 2U, 255U, 256U, 257U, 511U, 512U, 513U, 3000U}) {
        Store const store;
        createFiles(store, u"/", count);
        for (NamedListing const& listing : listings) {
            Names expected;
            for (std::size_t i = 0; i < count && listing.files; ++i) {
                expected.push_back(numbered(u"f", i));
            }
            auto const cursor = listed(store, listing.list, at(u"/"), u"");
            EXPECT_EQ(restOf(cursor), expected) << count << ' ' << listing.name;
            EXPECT_THROW(cursor->advance(), std::logic_error);
        }
    }
}

TEST(MemoryListing, AdvancesWithoutBeingAsked) {
    Store const store;
    createFiles(store, u"/", 600);
    auto const cursor = store->listAll(at(u"/"), u"");
    for (std::size_t i = 0; i < 600; ++i) {
        cursor->advance();
        EXPECT_EQ(cursor->currentEntry().getName(), numbered(u"f", i));
    }
    EXPECT_THROW(cursor->advance(), std::logic_error);
    EXPECT_EQ(cursor->currentEntry().getName(), numbered(u"f", 599));
}

TEST(MemoryListing, TheFewAmongManyAreFound) {
    Store const store;
    createFiles(store, u"/", 20'000);
    store->createFolder(at(u"/z"));
    EXPECT_EQ(restOf(store->listFolders(at(u"/"), u"")), Names{u"z"});
    EXPECT_EQ(restOf(store->listFilesNamesOnly(at(u"/"), u"*19999")), Names{u"f019999"});
    EXPECT_EQ(restOf(store->listFilesNamesOnly(at(u"/"), u"nothing")), Names{});
}

TEST(MemoryListing, NamesOfAnyLengthAreListed) {
    Store const store;
    Names expected;
    for (std::size_t i = 0; i < 300; ++i) {
        expected.push_back(numbered(u"n", i) + ustring(i % 3 == 0 ? 10'000 : 1, u'x'));
        store->createFile(StorageIRI(at(u"/"), expected.back()));
    }
    EXPECT_EQ(restOf(store->listAllNamesOnly(at(u"/"), u"")), expected);
}

TEST(MemoryListing, NamesThatAreNotUnicodeLeadBackToTheirItems) {
    Store const store;
    Names const expected{u"\U0001F600", ustring(u"a") + ustring(1, char16_t{0xDCFF}) + u"z",
                         ustring(1, char16_t{0xDC80}), u"\uFFFD"};
    for (ustring const& name : expected) {
        store->createFile(StorageIRI(at(u"/"), name));
    }
    Names found = restOf(store->listAll(at(u"/"), u""));
    EXPECT_TRUE(std::is_sorted(found.begin(), found.end()));
    EXPECT_TRUE(std::is_permutation(found.begin(), found.end(), expected.begin(), expected.end()));
    for (ustring const& name : found) {
        EXPECT_EQ(store->exists(StorageIRI(at(u"/"), name)), ExistsResult::File);
    }
}

TEST(MemoryListing, APatternIsMatchedAsEverywhere) {
    std::mt19937 random(7);
    auto const text = [&](char16_t const* letters, std::size_t count, std::size_t longest) {
        ustring result;
        for (std::size_t length = 1 + random() % longest; length > 0; --length) {
            result += letters[random() % count];
        }
        return result;
    };
    Store const store;
    for (int i = 0; i < 300; ++i) {
        StorageIRI const location(at(u"/"), text(u"abA", 3, 6));
        if (store->exists(location) == ExistsResult::Nothing) {
            i % 3 == 0 ? store->createFolder(location) : store->createFile(location);
        }
    }
    for (int i = 0; i < 300; ++i) {
        ustring const pattern = text(u"ab*?*", 5, 5);
        for (NamedListing const& listing : listings) {
            Names expected = restOf(listed(store, listing.list, at(u"/"), u""));
            std::erase_if(expected,
                          [&](ustring const& name) { return !matchesWildcard(pattern, name); });
            EXPECT_EQ(restOf(listed(store, listing.list, at(u"/"), pattern)), expected)
                << listing.name << ' ' << fl::i18n::toDisplayString(pattern);
        }
    }
}

TEST(MemoryListing, AFolderRemovedMeanwhileFailsBehindWhatWasFetched) {
    Store const store;
    store->createFolder(at(u"/r"));
    createFiles(store, u"/r", 600);
    for (Listing const list : {&IProvider::listAllNamesOnly, &IProvider::listAllRecursive}) {
        auto const cursor = listed(store, list, at(u"/r"), u"");
        cursor->advance();
        auto const other = clone(cursor);
        removeFiles(store, u"/r", 600);
        store->removeFolder(at(u"/r"));
        store->createFolder(at(u"/r")); // another one
        store->createFile(at(u"/r/g"));

        for (CursorPtr const& removed : {std::cref(cursor), std::cref(other)}) {
            std::size_t count = 0;
            while (removed->currentEntry().getName() != numbered(u"f", 255)) {
                ASSERT_TRUE(removed->hasNext());
                removed->advance();
                ++count;
            }
            EXPECT_EQ(count, 255U);
            EXPECT_TRUE(removed->hasNext());
            EXPECT_TRUE(removed->hasNext());
            EXPECT_EQ(failureOf([&] { removed->advance(); }),
                      failure(ErrorCode::ResourceNotFound, u"/r"));
            EXPECT_EQ(removed->currentEntry().getName(), numbered(u"f", 255));
            EXPECT_FALSE(removed->hasNext());
            EXPECT_FALSE(removed->hasNext());
            EXPECT_THROW(removed->advance(), std::logic_error);
        }
        store->removeFile(at(u"/r/g"));
        createFiles(store, u"/r", 600);
    }
}

TEST(MemoryListing, AFolderRemovedBeforeTheFirstEntryFailsInAdvance) {
    Store const store;
    for (NamedListing const& listing : listings) {
        store->createFolder(at(u"/r"));
        auto const cursor = listed(store, listing.list, at(u"/r"), u"");
        store->removeFolder(at(u"/r"));
        EXPECT_TRUE(cursor->hasNext());
        EXPECT_EQ(failureOf([&] { cursor->advance(); }),
                  failure(ErrorCode::ResourceNotFound, u"/r"));
        EXPECT_FALSE(cursor->hasNext());
        EXPECT_THROW(cursor->currentEntry(), std::logic_error);
    }
}

TEST(MemoryListing, AFolderMovedMeanwhileIsListedToItsEnd) {
    Store const store;
    store->createFolder(at(u"/r"));
    createFiles(store, u"/r", 600);
    auto const cursor = store->listAllNamesOnly(at(u"/r"), u"");
    cursor->advance();
    store->moveFolder(at(u"/r"), at(u"/s"), ReplacementPolicy::FailIfExists);
    EXPECT_EQ(restOf(cursor).size(), 599U);
}

TEST(MemoryListing, WhatIsAddedBehindTheEndStaysUnseen) {
    Store const store;
    createFiles(store, u"/", 256);
    auto const cursor = store->listAllNamesOnly(at(u"/"), u"");
    EXPECT_EQ(restOf(cursor).size(), 256U);
    store->createFile(at(u"/z"));
    EXPECT_FALSE(cursor->hasNext());
    EXPECT_EQ(restOf(store->listAllNamesOnly(at(u"/"), u"")).size(), 257U);
}

TEST(MemoryListing, ANextEntryThatWasPromisedIsDelivered) {
    Store const store;
    createFiles(store, u"/", 257);
    auto const cursor = store->listAllNamesOnly(at(u"/"), u"");
    for (int i = 0; i < 256; ++i) {
        cursor->advance();
    }
    EXPECT_TRUE(cursor->hasNext());
    removeFiles(store, u"/", 257);
    EXPECT_TRUE(cursor->hasNext());
    cursor->advance();
    EXPECT_EQ(cursor->currentEntry().getName(), numbered(u"f", 256));
    EXPECT_FALSE(cursor->hasNext());
}

TEST(MemoryListing, ClonesAtEveryPositionGoOnByThemselves) {
    Store const store;
    createFiles(store, u"/", 600);
    for (bool const askFirst : {false, true}) {
        auto const cursor = store->listAll(at(u"/"), u"");
        Names const all = restOf(store->listAll(at(u"/"), u""));
        std::vector<CursorPtr> clones;
        for (std::size_t i = 0; i <= all.size(); ++i) {
            EXPECT_EQ(!askFirst || cursor->hasNext(), !askFirst || i < all.size());
            clones.push_back(clone(cursor));
            if (i < all.size()) {
                cursor->advance();
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

TEST(MemoryListing, ACursorOutlivesTheProvider) {
    std::optional<Store> store(std::in_place);
    createFiles(*store, u"/", 600);
    auto const cursor = (*store)->listAll(at(u"/"), u"");
    cursor->advance();
    auto const other = clone(cursor);
    store.reset();
    EXPECT_EQ(restOf(cursor).size(), 599U);
    EXPECT_EQ(restOf(other).size(), 599U);
}

TEST(MemoryListing, ARemovedFolderIsAnEntryUntilItsLastCursorIsGone) {
    Store const store({.maximumBytes = std::nullopt, .maximumEntries = 1});
    store->createFolder(at(u"/r"));
    auto cursor = store->listAll(at(u"/r"), u"");
    store->removeFolder(at(u"/r"));
    EXPECT_EQ(failureOf([&] { store->createFile(at(u"/f")); }),
              failure(ErrorCode::NoSpaceLeft, u"/f"));
    cursor.reset();
    store->createFile(at(u"/f"));
}

} // namespace
