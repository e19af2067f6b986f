#include "child_process.hpp"
#include "listing_fixture.hpp"

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <gmock/gmock.h>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace foundation::storage::provider::local::test {
namespace {

class LocalCursor : public FlatListingTest {};

TEST_F(LocalCursor, ACursorMovesOnOnlyByAdvancing) {
    makeFile("a");
    makeFile("b");
    Cursor const cursor = names();

    EXPECT_THROW(cursor->currentEntry(), std::logic_error);
    EXPECT_TRUE(cursor->hasNext());
    EXPECT_TRUE(cursor->hasNext());
    cursor->advance();
    std::string const first = textOf(cursor->currentEntry());
    EXPECT_TRUE(cursor->hasNext());
    EXPECT_EQ(textOf(cursor->currentEntry()), first);
    cursor->advance();
    std::string const second = textOf(cursor->currentEntry());
    EXPECT_THAT((std::vector{first, second}), ::testing::UnorderedElementsAre("a", "b"));
    EXPECT_FALSE(cursor->hasNext());
    EXPECT_THROW(cursor->advance(), std::logic_error);
    EXPECT_FALSE(cursor->hasNext());
    EXPECT_EQ(textOf(cursor->currentEntry()), second);
}

TEST_F(LocalCursor, EntriesStayReadableWhileTheCursorLooksAhead) {
    makeMany("many");
    Cursor const cursor = names("many");

    while (cursor->hasNext()) {
        cursor->advance();
        std::string const before = textOf(cursor->currentEntry());
        cursor->hasNext();
        ASSERT_EQ(textOf(cursor->currentEntry()), before);
    }
}

TEST_F(LocalCursor, ClonesAtEveryPositionGoOnByThemselves) {
    makeMany("many");
    std::vector<std::string> const order = restOf(*names("many"));
    Cursor const cursor = names("many");
    std::vector<Cursor> clones;

    clones.push_back(clone(cursor));
    for (std::size_t i = 0; i < order.size(); ++i) {
        ASSERT_TRUE(cursor->hasNext());
        cursor->advance();
        clones.push_back(clone(cursor));
    }
    ASSERT_FALSE(cursor->hasNext());

    for (std::size_t i = 0; i < clones.size(); ++i) {
        if (i != 0) {
            ASSERT_EQ(textOf(clones[i]->currentEntry()), order[i - 1]);
        }
        if (i != order.size()) {
            clones[i]->advance();
            ASSERT_EQ(textOf(clones[i]->currentEntry()), order[i]);
        }
    }
    for (std::size_t i = 0; i < order.size(); i += 177) {
        EXPECT_EQ(restOf(*clones[i]),
                  std::vector(order.begin() + static_cast<std::ptrdiff_t>(i) + 1, order.end()));
    }
}

TEST_F(LocalCursor, ClonesMayBeReadOnTwoThreads) {
    std::vector<std::string> const expected = makeMany("many");
    Cursor const cursor = list(&IProvider::listAll, "many");
    Cursor const first = clone(cursor);
    Cursor const second = clone(cursor);
    std::vector<std::string> left;
    std::vector<std::string> right;

    std::thread one([&] { left = listed(first); });
    std::thread other([&] { right = listed(second); });
    one.join();
    other.join();

    EXPECT_EQ(left, expected);
    EXPECT_EQ(right, expected);
    EXPECT_EQ(listed(cursor), expected);
}

TEST_F(LocalCursor, ACloneMakesNoSystemCall) {
    makeMany("many");

    Cursor fresh; // out here, so that the child does not close their descriptors
    Cursor inside;
    Cursor ahead;
    std::string const outcome = inChild([&] {
        fresh = names("many");
        inside = names("many");
        ahead = names("many");
        inside->advance();
        for (int i = 1; i < many - 1; ++i) {
            ahead->advance();
        }
        allowMemoryCallsOnly();
        for (int i = 0; i < 1000; ++i) {
            for (Cursor const* cursor : {&fresh, &inside, &ahead}) {
                clone(*cursor);
            }
        }
        return std::string("none");
    });

    EXPECT_EQ(outcome, "none");
}

TEST_F(LocalCursor, ASmallFolderIsClosedBeforeItsFirstEntry) {
    makeFolder("small");
    for (int i = 0; i < 50; ++i) {
        makeFile("small/" + std::to_string(i));
    }
    std::size_t const before = openDescriptors();

    std::vector<Cursor> cursors;
    for (Listing const listing : flatListings) {
        cursors.push_back(list(listing, "small"));
    }

    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(listed(cursors[0]).size(), 50U);
}

TEST_F(LocalCursor, ALargeFolderHasOneDescriptorUntilItsEndIsRead) {
    makeMany("many");
    std::size_t const before = openDescriptors();
    Cursor const cursor = names("many");
    std::vector<Cursor> clones;
    for (int i = 0; i < 200; ++i) {
        cursor->advance();
        clones.push_back(clone(cursor));
    }
    EXPECT_EQ(openDescriptors(), before + 1);

    restOf(*cursor);
    EXPECT_EQ(openDescriptors(), before);

    // One that is behind opens the folder again, and it is shared again.
    for (int i = 0; i < 700; ++i) {
        clones.front()->advance();
        clones.back()->advance();
    }
    EXPECT_EQ(openDescriptors(), before + 1);
    EXPECT_EQ(restOf(*clones.front()).size(), static_cast<std::size_t>(many - 701));
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(LocalCursor, AnAbandonedCursorLeavesNoDescriptor) {
    makeMany("many");
    std::size_t const before = openDescriptors();

    Cursor cursor = names("many");
    cursor->advance();
    EXPECT_EQ(openDescriptors(), before + 1);
    cursor.reset();

    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(LocalCursor, HundredsOfLevelsMayBeOpenAtOnceWithFewDescriptors) {
    std::string const outcome = inChild([&] {
        std::string deep = "level";
        for (int i = 0; i < 300; ++i) {
            makeFolder(deep);
            deep += "/l";
        }
        rlimit const few{40, 40};
        ::setrlimit(RLIMIT_NOFILE, &few);
        std::vector<Cursor> open;
        std::string folder = "level";
        for (int i = 0; i < 299; ++i) {
            open.push_back(names(folder));
            open.push_back(clone(open.back()));
            open.back()->advance();
            folder += "/" + textOf(open.back()->currentEntry()).substr(0, 1);
        }
        return std::to_string(open.size());
    });

    EXPECT_EQ(outcome, "598");
}

TEST_F(LocalCursor, ASmallFolderTakesAsManyCallsAsAPlainLoop) {
    makeFile("file");

    std::string const outcome = inChild([&] {
        int calls = 0;
        std::mutex mutex;
        interceptCalls(SYS_getdents64, 0, 0, [&](auto const*) -> std::optional<long> {
            std::lock_guard const lock(mutex);
            ++calls;
            return std::nullopt;
        });
        listed(names());
        std::lock_guard const lock(mutex);
        return std::to_string(calls);
    });

    EXPECT_EQ(outcome, "2");
}

TEST_F(LocalCursor, WhatIsThereThroughoutIsListedOnceWhileTheFolderChanges) {
    std::vector<std::string> const before = makeMany("many");
    Cursor const cursor = names("many");
    std::vector<std::string> found;
    std::set<std::string> removed;
    for (int step = 0; cursor->hasNext(); ++step) {
        cursor->advance();
        found.push_back(textOf(cursor->currentEntry()));
        if (step < 300) {
            std::string const gone = nameOf(step * 4);
            ASSERT_EQ(::unlink(path("many/" + gone).c_str()), 0);
            removed.insert(gone);
            makeFile("many/added " + nameOf(step));
        }
    }

    std::map<std::string, int> times;
    for (std::string const& name : found) {
        EXPECT_EQ(++times[name], 1) << name;
    }
    for (std::string const& name : before) {
        EXPECT_TRUE(times.count(name) == 1 || removed.count(name) == 1) << name;
    }
}

TEST_F(LocalCursor, AFolderThatIsRemovedWhileItIsListedIsNotFound) {
    makeMany("many");
    Cursor const cursor = names("many");
    Cursor const other = clone(cursor);
    std::filesystem::remove_all(path("many"));

    EXPECT_TRUE(isRefused([&] { restOf(*cursor); }, ErrorCode::ResourceNotFound, at("many")));
    EXPECT_FALSE(cursor->hasNext());
    EXPECT_THROW(cursor->advance(), std::logic_error);
    EXPECT_TRUE(isRefused([&] { restOf(*other); }, ErrorCode::ResourceNotFound, at("many")));
}

TEST_F(LocalCursor, AnotherFolderUnderTheNameIsNotTakenForTheListedOne) {
    makeMany("many");
    Cursor const cursor = names("many");
    Cursor const behind = clone(cursor);
    restOf(*cursor); // the descriptor is closed now
    ASSERT_EQ(::rename(path("many").c_str(), path("moved").c_str()), 0);
    makeMany("many");

    EXPECT_TRUE(isRefused([&] { restOf(*behind); }, ErrorCode::ResourceNotFound, at("many")));
}

TEST_F(LocalCursor, AFailureInTheMiddleComesOutOfAdvanceOnce) {
    makeMany("many");

    std::string const outcome = inChild([&] {
        Cursor const cursor = names("many");
        cursor->advance();
        Cursor const other = clone(cursor);
        injectFaults({{SYS_getdents64, 0, 0, EIO}});
        std::string text;
        auto const refusal = refusalOf([&] {
            while (cursor->hasNext() && cursor->hasNext()) {
                cursor->advance();
            }
        });
        text += refusal && refusal->code == ErrorCode::IOError && refusal->location == at("many")
                    ? "failed, "
                    : "other, ";
        text += cursor->hasNext() ? "more, " : "end, ";
        text += textOf(cursor->currentEntry()).starts_with("nn") ? "entry, " : "none, ";
        auto const again = refusalOf([&] { restOf(*other); });
        return text + (again && again->code == ErrorCode::IOError ? "failed" : "other");
    });

    EXPECT_EQ(outcome, "failed, end, entry, failed");
}

} // namespace
} // namespace foundation::storage::provider::local::test
