#include "watch_fixture.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace foundation::storage::provider::local::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int usualQueue = 16'384; // events; more than are made here at once

/// Folders that change their names faster than that is read.
class LocalWatchRenames : public LocalWatchTest {
  protected:
    void makeFolders(std::string const& name) const {
        std::filesystem::create_directories(path(name));
    }
    /// Whether an overflow was told that the kernel cannot have had.
    bool isOverflowTold() const {
        int queue = 0;
        std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> queue;
        auto const lines = log_.lines();
        return queue >= usualQueue && std::any_of(lines.begin(), lines.end(), [](auto const& line) {
                   return line.starts_with('!');
               });
    }
    void exchange(std::string const& one, std::string const& other) const {
        ASSERT_EQ(::renameat2(AT_FDCWD, path(one).c_str(), AT_FDCWD, path(other).c_str(),
                              RENAME_EXCHANGE),
                  0);
    }
};

TEST_F(LocalWatchRenames, AFolderMovedOverOneThatWasJustMadeGoesOnBelow) {
    makeFolders("w/a/s");
    publishTree("w", namesOnly);
    hold();

    makeFolder("w/d");
    rename("w/a", "w/d");
    makeFolder("w/d/s/b");
    release();

    EXPECT_THAT(reports(), ElementsAre("+ folder w/d", "- folder w/a -> w/d", "+ folder w/d <- w/a",
                                       "+ folder w/d/s/b"));
    EXPECT_THAT(deafFolders(), IsEmpty());
}

TEST_F(LocalWatchRenames, AFolderUnderANameThatWasGivenUpMeanwhileGoesOnBelow) {
    makeFolders("w/a/s");
    publishTree("w", namesOnly);
    hold();

    makeFolder("w/d");
    remove("w/d");
    rename("w/a", "w/d");
    makeFolder("w/d/s/b");
    makeFile("w/d/s/file");
    release();

    EXPECT_THAT(reports(),
                ElementsAre("+ folder w/d", "- folder w/d", "- folder w/a -> w/d",
                            "+ folder w/d <- w/a", "+ folder w/d/s/b", "+ file w/d/s/file"));
    EXPECT_THAT(deafFolders(), IsEmpty());
}

TEST_F(LocalWatchRenames, FoldersThatPassOnTheirNamesGoOnBelow) {
    makeFolders("w/a/s");
    makeFolders("w/x/t");
    publishTree("w", namesOnly);
    hold();

    rename("w/x", "w/d");
    rename("w/d", "w/e");
    rename("w/a", "w/d");
    makeFolder("w/d/s/b");
    makeFolder("w/e/t/c");
    release();

    EXPECT_THAT(reports(),
                ElementsAre("- folder w/x -> w/d", "+ folder w/d <- w/x", "- folder w/d -> w/e",
                            "+ folder w/e <- w/d", "- folder w/a -> w/d", "+ folder w/d <- w/a",
                            "+ folder w/d/s/b", "+ folder w/e/t/c"));
    EXPECT_THAT(deafFolders(), IsEmpty());
}

TEST_F(LocalWatchRenames, OfManyFoldersMovedOverNewOnesNoneIsLost) {
    constexpr int folders = 200;
    for (int number = 0; number < folders; ++number) {
        makeFolders("w/a" + std::to_string(number) + "/s");
    }
    publishTree("w", namesOnly);

    for (int number = 0; number < folders; ++number) {
        std::string const name = "w/d" + std::to_string(number);
        makeFolder(name);
        rename("w/a" + std::to_string(number), name);
        makeFolder(name + "/s/b");
    }

    EXPECT_THAT(deafFolders(), IsEmpty());
    EXPECT_FALSE(isOverflowTold());
}

TEST_F(LocalWatchRenames, AnExchangeIsAMoveAndAnArrival) {
    makeFolders("w/a/s");
    makeFolders("w/b/t");
    publishTree("w", namesOnly);
    hold();

    exchange("w/a", "w/b");
    makeFile("w/a/t/file");
    makeFile("w/b/s/file");
    release();

    EXPECT_THAT(reports(), ElementsAre("- folder w/a", "- folder w/b -> w/a", "+ folder w/a <- w/b",
                                       "+ folder w/b", "+ folder w/b/s", "+ file w/b/s/file",
                                       "+ file w/a/t/file"));
    EXPECT_THAT(deafFolders(), IsEmpty());
}

TEST_F(LocalWatchRenames, AnExchangeAcrossFoldersLeavesBothWatched) {
    makeFolders("w/a/s");
    makeFolders("w/c/b/t");
    publishTree("w", namesOnly);

    exchange("w/a", "w/c/b");
    settle();

    EXPECT_THAT(deafFolders(), IsEmpty());
}

TEST_F(LocalWatchRenames, AnExchangeOfFilesLeavesBoth) {
    makeFile("w/a");
    makeFile("w/b");
    publish("w", namesOnly);
    hold();

    exchange("w/a", "w/b");
    release();

    EXPECT_THAT(reports(),
                ElementsAre("- file w/a", "- file w/b -> w/a", "+ file w/a <- w/b", "+ file w/b"));
}

TEST_F(LocalWatchRenames, AnExchangeOfAFileAndAFolderLeavesBoth) {
    makeFile("w/a");
    makeFolders("w/b/t");
    publishTree("w", namesOnly);
    hold();

    exchange("w/a", "w/b");
    release();

    EXPECT_THAT(reports(), ElementsAre("- file w/a", "- folder w/b -> w/a", "+ folder w/a <- w/b",
                                       "+ file w/b"));
    EXPECT_THAT(deafFolders(), IsEmpty());
}

TEST_F(LocalWatchRenames, AFileThatGoesAndComesBackIsNoExchange) {
    makeFile("w/a");
    publish("w", namesOnly);
    hold();

    rename("w/a", "w/b");
    rename("w/b", "w/a");
    release();

    EXPECT_THAT(reports(), ElementsAre("- file w/a -> w/b", "+ file w/b <- w/a",
                                       "- file w/b -> w/a", "+ file w/a <- w/b"));
}

TEST_F(LocalWatchRenames, AFolderThatGoesOverAnotherAndBackIsNoExchange) {
    makeFolders("w/a/s");
    makeFolder("w/b");
    log_.keepView([&](auto const& top) { return disk(top); });
    publishTree("w", namesOnly);
    hold();

    rename("w/a", "w/b");
    rename("w/b", "w/a");
    makeFolder("w/b"); // another one
    release();

    settle();
    EXPECT_EQ(log_.view(), disk());
    EXPECT_EQ(log_.lines().front(), "- folder w/a -> w/b");
    EXPECT_THAT(deafFolders(), IsEmpty());
}

TEST_F(LocalWatchRenames, AnExchangeInAFolderThatHasMovedLeavesBoth) {
    makeFolders("w/d/a/c/d/x");
    makeFolders("w/d/b/y");
    log_.keepView([&](auto const& top) { return disk(top); });
    publishTree("w", namesOnly);
    hold();

    rename("w/d/a/c", "w/b");
    exchange("w/d/b", "w/b/d");
    release();

    EXPECT_THAT(deafFolders(), IsEmpty());
    settle();
    EXPECT_EQ(log_.view(), disk());
}

TEST_F(LocalWatchRenames, AnExchangeThatCannotBeLookedAtAnyMoreLeavesBoth) {
    makeFolders("w/d/a/c/d/x");
    makeFolders("w/d/b/y");
    log_.keepView([&](auto const& top) { return disk(top); });
    publishTree("w", namesOnly);
    hold();

    rename("w/d/a/c", "w/b");
    exchange("w/d/b", "w/b/d");
    rename("w/d", "w/b/d/b"); // which is not within itself, as it would be without the exchange
    release();

    EXPECT_THAT(deafFolders(), IsEmpty());
    settle();
    EXPECT_EQ(log_.view(), disk());
}

TEST_F(LocalWatchRenames, AFolderMovedOverOneThatWasTakenForAnotherReplacesWhatWasTold) {
    makeFolders("w/a/s");
    log_.keepView([&](auto const& top) { return disk(top); });
    publishTree("w", namesOnly);
    hold();

    makeFolder("w/d");
    makeFolder("w/c");
    exchange("w/c", "w/d");
    rename("w/a", "w/c");
    makeFolder("w/d/d");
    release();

    EXPECT_THAT(deafFolders(), IsEmpty());
    settle();
    EXPECT_EQ(log_.view(), disk());
}

TEST_F(LocalWatchRenames, AWatchedFileThatIsExchangedIsAnotherOne) {
    makeFile("w/a");
    makeFile("w/b");
    publishFile("w/a", namesOnly);
    publishFile("w/b", namesOnly);
    hold();

    exchange("w/a", "w/b");
    makeFile("gate/second");
    release();

    ASSERT_TRUE(log_.waitFor([](auto const& changes) { return changes.size() >= 4; }));
    EXPECT_THAT(log_.lines(), ElementsAre("- file w/a", "- file w/b", "+ file w/a", "+ file w/b"));
}

/// Does one thing at random in a tree three levels deep, where names are few and so are taken again
/// and again. What cannot be done is left.
class RandomWalk {
  public:
    RandomWalk(std::string base, unsigned seed) : base_(std::move(base)), random_(seed) {}

    void step() {
        unsigned const what = below(20);
        std::error_code ignored;
        if (what < 7) {
            ::mkdir(item().c_str(), 0755);
        } else if (what < 9) {
            ::rmdir(item().c_str());
        } else if (what < 16) {
            std::filesystem::rename(item(), item(), ignored);
        } else if (what < 17) {
            std::filesystem::rename(item(), base_ + "/out/" + name(), ignored);
        } else if (what < 18) {
            std::filesystem::rename(base_ + "/out/" + name(), item(), ignored);
        } else if (what < 19) {
            std::ofstream(item() + "/file" + name()).flush();
        } else {
            ::renameat2(AT_FDCWD, item().c_str(), AT_FDCWD, item().c_str(), RENAME_EXCHANGE);
        }
    }
    unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }

  private:
    std::string name() { return std::string(1, static_cast<char>('a' + below(4))); }
    std::string item() {
        std::string result = base_ + "/w";
        for (unsigned level = 0, depth = 1 + below(3); level < depth; ++level) {
            result += '/' + name();
        }
        return result;
    }

    std::string const base_;
    std::mt19937 random_;
};

class LocalWatchWalk : public LocalWatchRenames, public ::testing::WithParamInterface<unsigned> {};

TEST_P(LocalWatchWalk, LeavesEveryFolderWatchedAndToldOfUnderItsName) {
    makeFolder("out");
    log_.keepView([&](auto const& top) { return disk(top); });
    publishTree("w", namesOnly);
    RandomWalk walk(path(""), GetParam());

    for (int round = 0; round < 25; ++round) {
        for (unsigned step = 0, steps = 1 + walk.below(200); step < steps; ++step) {
            walk.step();
            if (walk.below(16) == 0) {
                std::this_thread::yield();
            }
            if (walk.below(64) == 0) {
                std::this_thread::sleep_for(std::chrono::milliseconds(walk.below(5)));
            }
        }
        ASSERT_THAT(deafFolders(), IsEmpty()) << "round " << round;
        settle();
        ASSERT_EQ(log_.view(), disk()) << "round " << round;
    }
    EXPECT_FALSE(isOverflowTold());
}

TEST_P(LocalWatchWalk, OfSeveralAtOnceLeavesEveryFolderWatchedUnderItsName) {
    makeFolder("out");
    publishTree("w", namesOnly);

    for (unsigned round = 0; round < 10; ++round) {
        std::vector<std::thread> walkers;
        for (unsigned number = 0; number < 3; ++number) {
            walkers.emplace_back([&, seed = GetParam() * 1000 + round * 10 + number] {
                RandomWalk walk(path(""), seed);
                for (int step = 0; step < 100; ++step) {
                    walk.step();
                }
            });
        }
        for (auto& walker : walkers) {
            walker.join();
        }
        ASSERT_THAT(deafFolders(), IsEmpty()) << "round " << round;
    }
    EXPECT_FALSE(isOverflowTold());
}

INSTANTIATE_TEST_SUITE_P(Seeds, LocalWatchWalk, ::testing::Range(1U, 7U));

} // namespace

} // namespace foundation::storage::provider::local::test
