#include "child_process.hpp"
#include "listing_fixture.hpp"

#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <stdexcept>
#include <sys/syscall.h>
#include <thread>
#include <utility>

namespace foundation::storage::provider::local::test {
namespace {

using ::testing::ElementsAre;

class LocalRecursiveListing : public TreeListingTest {};

class LocalRecursiveListingWithLinksFollowed : public TreeListingTest {
  protected:
    LocalRecursiveListingWithLinksFollowed() : TreeListingTest({.followLinks = true}) {}
};

TEST_F(LocalRecursiveListing, DeliversEverythingBelow) {
    makeTree("tree", 1);

    EXPECT_EQ(listed(names("tree")), treeOnDisk(path("tree")));
    EXPECT_EQ(listed(entries("tree")), treeOnDisk(path("tree")));
}

TEST_F(LocalRecursiveListing, GoesDepthFirstWithTheFolderBeforeItsContents) {
    makeTree("tree", 2);

    Names const order = restOf(*names("tree"));

    EXPECT_GT(order.size(), 100U);
    EXPECT_TRUE(isDepthFirst(order));
}

TEST_F(LocalRecursiveListing, NamesArePathsBelowTheListedFolder) {
    makeFolder("tree");
    makeFolder("tree/caf\xe9");
    makeFile("tree/caf\xe9/two\nlines");
    makeFolder("tree/empty");
    makeFile("tree/file");

    EXPECT_THAT(listed(names("tree")),
                ElementsAre("caf\xe9/", "caf\xe9/two\nlines", "empty/", "file"));
    Cursor const cursor = names("tree");
    while (cursor->hasNext()) {
        cursor->advance();
        StorageIRI const item(at("tree"), cursor->currentEntry().getName());
        EXPECT_NE(provider_->exists(item), ExistsResult::Nothing) << item;
    }
}

TEST_F(LocalRecursiveListing, AnEmptyFolderHasNoEntries) {
    makeFolder("empty");
    Cursor const cursor = names("empty");

    EXPECT_FALSE(cursor->hasNext());
    EXPECT_FALSE(cursor->hasNext());
    EXPECT_THROW(cursor->advance(), std::logic_error);
    EXPECT_THROW(cursor->currentEntry(), std::logic_error);
}

TEST_F(LocalRecursiveListing, WhatCannotBeListedIsRefusedAtOnce) {
    makeFile("file");
    makeLink("circle", "circle");
    struct {
        char const* name;
        ErrorCode code;
    } const refusals[] = {{"missing", ErrorCode::ResourceNotFound},
                          {"file", ErrorCode::ResourceNotFound},
                          {"circle", ErrorCode::InvalidLocation}};
    for (auto const& [name, code] : refusals) {
        EXPECT_TRUE(isRefused([&] { names(name); }, code, at(name))) << name;
        EXPECT_TRUE(isRefused([&] { entries(name); }, code, at(name))) << name;
    }
}

TEST_F(LocalRecursiveListing, AttributesAreThoseThatTheItemsHave) {
    makeTree("tree", 3);
    setTimes("tree", {1, 2}, {3, 4});
    Cursor const cursor = entries("tree");

    while (cursor->hasNext()) {
        cursor->advance();
        FolderEntry const entry = cursor->currentEntry();
        StorageIRI const item(at("tree"), entry.getName());
        if (!entry.isFile()) {
            ASSERT_TRUE(entry.getFolderAttributes()) << item;
            EXPECT_EQ(entry.getFolderAttributes()->values().lastModified,
                      provider_->getFolderAttributes(item).values().lastModified);
        } else if (provider_->existsExtended(item) == ExtendedExistsResult::File) {
            ASSERT_TRUE(entry.getFileAttributes()) << item;
            EXPECT_EQ(entry.getFileAttributes()->values().created,
                      provider_->getFileAttributes(item).values().created);
            EXPECT_EQ(entry.getFileAttributes()->values().mode, 0644U);
        } else {
            ASSERT_TRUE(entry.getFileAttributes()) << item;
            EXPECT_EQ(entry.getFileAttributes()->values().size, 2U); // of a link to `..`
        }
    }
}

TEST_F(LocalRecursiveListing, PatternsFilterAndEnterEveryFolderAllTheSame) {
    makeTree("tree", 4);
    Names const all = treeOnDisk(path("tree"));

    for (fl::i18n::ustring const pattern :
         {u"*", u"*.txt", u"?", u"x*", u"*x1*", u"**", u"nothing", u"*/*", u"x?"}) {
        EXPECT_EQ(listed(names("tree", pattern)), matching(all, pattern));
        EXPECT_EQ(listed(entries("tree", pattern)), matching(all, pattern));
    }
}

TEST_F(LocalRecursiveListing, ACursorMovesOnOnlyByAdvancing) {
    makeTree("tree", 5);
    Names const order = restOf(*names("tree"));
    Cursor const cursor = names("tree");

    EXPECT_THROW(cursor->currentEntry(), std::logic_error);
    for (std::string const& name : order) {
        ASSERT_TRUE(cursor->hasNext());
        ASSERT_TRUE(cursor->hasNext());
        cursor->advance();
        ASSERT_EQ(textOf(cursor->currentEntry()), name);
        cursor->hasNext();
        ASSERT_EQ(textOf(cursor->currentEntry()), name);
    }
    EXPECT_FALSE(cursor->hasNext());
    EXPECT_FALSE(cursor->hasNext());
    EXPECT_THROW(cursor->advance(), std::logic_error);
    EXPECT_EQ(textOf(cursor->currentEntry()), order.back());
}

TEST_F(LocalRecursiveListing, AdvancesWithoutBeingAskedFirst) {
    makeTree("tree", 5);
    Names const order = restOf(*names("tree"));
    Cursor const cursor = names("tree");

    for (std::string const& name : order) {
        cursor->advance();
        ASSERT_EQ(textOf(cursor->currentEntry()), name);
    }
    EXPECT_THROW(cursor->advance(), std::logic_error);
}

TEST_F(LocalRecursiveListing, ClonesAtEveryPositionGoOnByThemselves) {
    makeTree("tree", 6);
    for (fl::i18n::ustring const pattern : {u"", u"*.txt"}) {
        Names const order = restOf(*names("tree", pattern));
        Cursor const cursor = names("tree", pattern);
        std::vector<Cursor> clones;

        clones.push_back(clone(cursor));
        while (cursor->hasNext()) {
            clones.push_back(clone(cursor)); // this one has looked ahead
            cursor->advance();
            clones.push_back(clone(cursor));
        }
        clones.push_back(clone(cursor));

        ASSERT_EQ(clones.size(), 2 * order.size() + 2);
        for (std::size_t i = 0; i < clones.size(); ++i) {
            std::size_t const before = i / 2;
            if (before != 0) {
                ASSERT_EQ(textOf(clones[i]->currentEntry()), order[before - 1]);
            }
            ASSERT_EQ(restOf(*clones[i]),
                      Names(order.begin() + static_cast<std::ptrdiff_t>(before), order.end()));
        }
    }
}

TEST_F(LocalRecursiveListing, ClonesMayBeReadOnTwoThreads) {
    makeTree("tree", 7);
    Names const expected = treeOnDisk(path("tree"));
    Cursor const cursor = entries("tree");
    Cursor const first = clone(cursor);
    Cursor const second = clone(cursor);
    Names left;
    Names right;

    std::thread one([&] { left = listed(first); });
    std::thread other([&] { right = listed(second); });
    one.join();
    other.join();

    EXPECT_EQ(left, expected);
    EXPECT_EQ(right, expected);
    EXPECT_EQ(listed(cursor), expected);
}

TEST_F(LocalRecursiveListing, ACloneMakesNoSystemCall) {
    makeTree("tree", 8);
    std::vector<Cursor> cursors; // out here, so that the child does not close their descriptors

    std::string const outcome = inChild([&] {
        std::size_t const entries = restOf(*names("tree")).size();
        for (std::size_t i = 0; i <= entries; i += 10) {
            cursors.push_back(names("tree"));
            for (std::size_t k = 0; k < i; ++k) {
                cursors.back()->advance();
            }
        }
        allowMemoryCallsOnly();
        for (Cursor const& cursor : cursors) {
            for (int i = 0; i < 100; ++i) {
                clone(cursor);
            }
        }
        return std::string("none");
    });

    EXPECT_EQ(outcome, "none");
}

TEST_F(LocalRecursiveListing, NamesAreListedWithoutAskingForTheirKind) {
    makeTree("tree", 10);
    std::size_t const expected = treeOnDisk(path("tree")).size();

    std::string const outcome = inChild([&] {
        injectFaults({{SYS_statx, 2, AT_SYMLINK_NOFOLLOW, EIO},
                      {SYS_newfstatat, 3, AT_SYMLINK_NOFOLLOW, EIO},
                      {SYS_stat, 0, 0, EIO},
                      {SYS_lstat, 0, 0, EIO}});
        return std::to_string(listed(names("tree")).size());
    });

    EXPECT_EQ(outcome, std::to_string(expected));
}

TEST_F(LocalRecursiveListing, FoldersOfManyChunksAmongOthersAreListedCompletely) {
    makeFolder("tree");
    for (int i = 0; i < 400; ++i) {
        std::string const name = "tree/" + std::string(150, 'n') + std::to_string(i);
        if (i % 50 == 0) {
            makeFolder(name);
            for (int k = 0; k < 300; ++k) {
                makeFile(name + "/" + std::string(120, 'm') + std::to_string(k));
            }
        } else {
            makeFile(name);
        }
    }
    Names const expected = treeOnDisk(path("tree"));
    Cursor const cursor = names("tree");
    Names found;
    std::vector<std::pair<std::size_t, Cursor>> clones;
    while (cursor->hasNext()) {
        cursor->advance();
        found.push_back(textOf(cursor->currentEntry()));
        if (found.size() % 100 == 0) {
            clones.emplace_back(found.size(), clone(cursor));
        }
    }

    EXPECT_EQ(sorted(found), expected);
    EXPECT_EQ(listed(entries("tree")), expected);
    for (auto const& [position, other] : clones) {
        EXPECT_EQ(restOf(*other),
                  Names(found.begin() + static_cast<std::ptrdiff_t>(position), found.end()));
    }
}

TEST_F(LocalRecursiveListing, LinksAreNotEntered) {
    makeFolder("tree");
    makeFolder("tree/folder");
    makeFile("tree/folder/file");
    makeLink("tree/to folder", "folder");
    makeLink("tree/folder/up", "..");

    EXPECT_THAT(listed(names("tree")),
                ElementsAre("folder/", "folder/file", "folder/up", "to folder"));
}

TEST_F(LocalRecursiveListingWithLinksFollowed, LinksAreEnteredUnlessTheyLeadUp) {
    makeFolder("tree");
    makeFolder("tree/a");
    makeFolder("tree/b");
    makeFile("tree/b/file");
    makeLink("tree/a/to b", "../b");
    makeLink("tree/a/up", "..");
    makeLink("tree/a/self", ".");
    makeLink("tree/b/to a", "../a");
    makeLink("tree/dangling", "missing");
    makeLink("tree/circle", "circle");

    Names const expected{"a/",           "a/self/",    "a/to b/", "a/to b/file", "a/to b/to a/",
                         "a/up/",        "b/",         "b/file",  "b/to a/",     "b/to a/self/",
                         "b/to a/to b/", "b/to a/up/", "circle",  "dangling"};
    EXPECT_EQ(listed(names("tree")), expected);
    EXPECT_EQ(listed(entries("tree")), expected);
}

TEST_F(LocalRecursiveListingWithLinksFollowed, AWalkGoesBackUpTheWayItCame) {
    // Behind a link `..` is another folder than the one that the walk came from.
    makeFolder("outside");
    std::string folder = "tree";
    makeFolder(folder);
    for (int level = 0; level < 30; ++level) {
        std::string const target = "outside/" + std::to_string(level);
        makeFolder(target);
        makeFile(target + "/file");
        makeFolder(folder + "/b");
        makeLink(folder + "/a" + std::to_string(level), path(target)); // before or behind `b`
        folder = target;
    }
    Cursor const cursor = names("tree");
    Names const order = restOf(*cursor);

    EXPECT_EQ(order.size(), 3U * 30U);
    EXPECT_TRUE(isDepthFirst(order));
    Cursor const again = names("tree");
    for (std::size_t i = 0; i < order.size(); ++i) {
        again->advance();
        EXPECT_EQ(restOf(*clone(again)),
                  Names(order.begin() + static_cast<std::ptrdiff_t>(i) + 1, order.end()));
    }
}

} // namespace
} // namespace foundation::storage::provider::local::test
