#include "child_process.hpp"
#include "deep_tree.hpp"
#include "removal_fixture.hpp"

#include <foundation/storage/provider/local_path.hpp>

#include <atomic>
#include <barrier>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace foundation::storage::provider::local::test {
namespace {

class LocalRemovalRaces : public RemovalTest {
  protected:
    LocalRemovalRaces() {
        makeFolder("canary");
        makeFile("canary/file", "content");
    }

    /// Removes `tree` in a process where `meanwhile` runs once, before the first call `call` whose
    /// second argument is `name`.
    std::string removingWhile(int call, std::string const& name,
                              std::function<void()> const& meanwhile) const {
        return inChild([&] {
            bool done = false;
            interceptCalls(call, 0, 0, [&](auto const* arguments) -> std::optional<long> {
                if (!done && name == reinterpret_cast<char const*>(arguments[1])) {
                    done = true;
                    meanwhile();
                }
                return std::nullopt;
            });
            return removing("tree");
        });
    }
};

TEST_F(LocalRemovalRaces, WhatVanishesMeanwhileIsNoFailure) {
    makeFolder("tree");
    makeFolder("tree/folder");
    makeFile("tree/file");
    EXPECT_EQ(removingWhile(SYS_unlinkat, "file", [&] { ::unlink(path("tree/file").c_str()); }),
              "removed");

    makeFolder("tree");
    makeFolder("tree/folder");
    EXPECT_EQ(removingWhile(SYS_openat2, "folder", [&] { ::rmdir(path("tree/folder").c_str()); }),
              "removed");

    makeFolder("tree");
    makeFolder("tree/folder");
    EXPECT_EQ(removingWhile(SYS_unlinkat, "folder", [&] { ::rmdir(path("tree/folder").c_str()); }),
              "removed");
    EXPECT_FALSE(isThere("tree"));
}

TEST_F(LocalRemovalRaces, ARootThatVanishesMeanwhileIsNotFound) {
    makeFolder("tree");
    EXPECT_EQ(removingWhile(SYS_openat2, "tree", [&] { ::rmdir(path("tree").c_str()); }),
              "4 about tree");

    makeFolder("tree");
    EXPECT_EQ(removingWhile(SYS_unlinkat, "tree", [&] { ::rmdir(path("tree").c_str()); }),
              "4 about tree");
}

TEST_F(LocalRemovalRaces, AFolderThatBecomesALinkIsNotEntered) {
    for (int const call : {SYS_openat2, SYS_unlinkat}) {
        makeFolder("tree");
        makeFolder("tree/folder");

        EXPECT_EQ(removingWhile(call, "folder",
                                [&] {
                                    ::rmdir(path("tree/folder").c_str());
                                    makeLink("tree/folder", path("canary"));
                                }),
                  "removed");

        EXPECT_FALSE(isThere("tree"));
        EXPECT_EQ(content("canary/file"), "content");
    }
}

TEST_F(LocalRemovalRaces, ARootThatBecomesALinkIsNotEntered) {
    makeFolder("tree");
    makeFile("tree/file");

    EXPECT_EQ(removingWhile(SYS_openat2, "tree",
                            [&] {
                                ::rename(path("tree").c_str(), path("moved").c_str());
                                makeLink("tree", path("canary"));
                            }),
              "4 about tree");
    EXPECT_EQ(content("canary/file"), "content");
    EXPECT_TRUE(isThere("moved/file"));
    EXPECT_TRUE(isThere("tree"));
}

TEST_F(LocalRemovalRaces, AFileThatBecomesAFolderGoes) {
    makeFolder("tree");
    makeFile("tree/file");

    EXPECT_EQ(removingWhile(SYS_unlinkat, "file",
                            [&] {
                                ::unlink(path("tree/file").c_str());
                                makeFolder("tree/file");
                                makeFile("tree/file/inner");
                            }),
              "removed");
    EXPECT_FALSE(isThere("tree"));
}

TEST_F(LocalRemovalRaces, WhatIsAddedMeanwhileGoesToo) {
    makeFolder("tree");
    makeFolder("tree/folder");

    EXPECT_EQ(removingWhile(SYS_unlinkat, "folder",
                            [&] {
                                makeFile("tree/folder/late");
                                makeFolder("tree/folder/later");
                                makeFile("tree/folder/later/latest");
                            }),
              "removed");
    EXPECT_FALSE(isThere("tree"));
}

TEST_F(LocalRemovalRaces, AFolderThatIsFilledAgainAndAgainIsGivenUp) {
    makeFolder("tree");
    makeFolder("tree/folder");

    std::string const outcome = inChild([&] {
        interceptCalls(SYS_unlinkat, 2, AT_REMOVEDIR, [&](auto const*) -> std::optional<long> {
            makeFile("tree/folder/again");
            return std::nullopt;
        });
        return removing("tree");
    });

    EXPECT_EQ(outcome, "0 about tree/folder");
}

TEST_F(LocalRemovalRaces, TheWayBackUpIsNotTakenToAnotherFolder) {
    std::string deep = "tree";
    makeFolder(deep);
    for (int i = 0; i < 40; ++i) {
        deep += "/a" + std::to_string(i);
        makeFolder(deep);
    }
    makeFile(deep + "/last");
    makeFolder("elsewhere");
    makeFile("elsewhere/file", "content");
    std::string const moved = "tree/a0/a1/a2";

    // When the descriptor of the folder above has been given up.
    EXPECT_EQ(
        removingWhile(SYS_unlinkat, "last",
                      [&] { ::rename(path(moved).c_str(), path("elsewhere/moved").c_str()); }),
        "6 about tree/a0/a1/a2");

    EXPECT_EQ(content("elsewhere/file"), "content");
    EXPECT_EQ(names("elsewhere/moved"), Names());
    EXPECT_TRUE(isThere("tree/a0/a1"));
}

TEST_F(LocalRemovalRaces, AFolderThatIsMovedAwayBelowOpenOnesIsLeftWhereItIs) {
    makeFolder("tree");
    makeFolder("tree/folder");
    makeFile("tree/folder/last");
    makeFolder("elsewhere");
    makeFile("elsewhere/file", "content");

    EXPECT_EQ(removingWhile(
                  SYS_unlinkat, "last",
                  [&] { ::rename(path("tree/folder").c_str(), path("elsewhere/moved").c_str()); }),
              "removed");

    EXPECT_FALSE(isThere("tree"));
    EXPECT_EQ(content("elsewhere/file"), "content");
    EXPECT_TRUE(isThere("elsewhere/moved"));
}

TEST_F(LocalRemovalRaces, TwoRemovalsOfOneTreeBothEnd) {
    TemporaryFolder const place(placeForMany(path("")));
    makeTree("tree", 9);
    for (int round = 0; round < 50; ++round) {
        std::string const tree = place.path() + "/tree";
        std::filesystem::copy(path("tree"), tree,
                              std::filesystem::copy_options::recursive |
                                  std::filesystem::copy_options::copy_symlinks);
        std::barrier start(2);
        std::optional<Refusal> refusals[2];
        std::thread threads[2];
        for (int i = 0; i < 2; ++i) {
            threads[i] = std::thread([&, i] {
                start.arrive_and_wait();
                refusals[i] =
                    refusalOf([&] { provider_->removeFolderRecursively(fromLocalPath(tree)); });
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_FALSE(std::filesystem::exists(tree));
        EXPECT_FALSE(refusals[0] && refusals[1]);
        for (auto const& refusal : refusals) {
            if (refusal) { // the other one was a step ahead at the end
                EXPECT_EQ(refusal->code, ErrorCode::ResourceNotFound);
                EXPECT_EQ(refusal->location, fromLocalPath(tree));
            }
        }
    }
}

/// What the two processes of the race share.
struct Race {
    std::atomic<unsigned> round{0};
    std::atomic<unsigned long> swaps{0};
    std::atomic<bool> over{false};
};

constexpr int swapped = 8;

/// Swaps folders of the tree of each round for links to the canary, and back, as fast as it can.
void swapUntilOver(Race& race, int place) {
    while (!race.over) {
        std::string const round = std::to_string(race.round);
        for (int i = 0; i < swapped; ++i) {
            std::string const number = std::to_string(i);
            std::string const inside = "tree" + round + "/folder/" + number;
            std::string const beside = "links" + round + "/" + number;
            if (::renameat2(place, inside.c_str(), place, beside.c_str(), RENAME_EXCHANGE) == 0) {
                ++race.swaps;
            }
        }
    }
}

TEST_F(LocalRemovalRaces, FoldersSwappedForLinksLeadNowhere) {
    TemporaryFolder const place(placeForMany(path("")));
    auto const here = [&](std::string const& name) { return place.path() + "/" + name; };
    int const folder = ::open(place.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    auto const makeFolderHere = [&](std::string const& name) {
        ASSERT_EQ(::mkdirat(folder, name.c_str(), 0755), 0) << name;
    };
    auto const makeFileHere = [&](std::string const& name) {
        ASSERT_EQ(::mknodat(folder, name.c_str(), S_IFREG | 0644, 0), 0) << name;
    };
    Names const canaries{"one", "three", "two"};
    makeFolderHere("canary");
    makeFolderHere("canary/inner");
    for (std::string const& name : canaries) {
        makeFileHere("canary/" + name);
        makeFileHere("canary/inner/" + name);
    }
    void* const shared =
        ::mmap(nullptr, sizeof(Race), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(shared, MAP_FAILED);
    Race& race = *new (shared) Race;
    pid_t const swapper = ::fork();
    if (swapper == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        swapUntilOver(race, folder);
        ::_exit(0);
    }
    ASSERT_GT(swapper, 0);

    unsigned removed = 0;
    unsigned round = 0;
    for (; race.swaps < 100'000 && round < 100'000; ++round) {
        std::string const number = std::to_string(round);
        makeFolderHere("links" + number);
        for (int i = 0; i < swapped; ++i) {
            std::string const link = here("links" + number + "/" + std::to_string(i));
            ASSERT_EQ(::symlink("../../canary", link.c_str()), 0);
        }
        makeFolderHere("tree" + number);
        makeFolderHere("tree" + number + "/folder");
        race.round = round;
        for (int i = 0; i < swapped; ++i) {
            std::string const inside = "tree" + number + "/folder/" + std::to_string(i);
            makeFolderHere(inside);
        }
        auto const refusal = refusalOf(
            [&] { provider_->removeFolderRecursively(fromLocalPath(here("tree" + number))); });
        if (refusal) { // never anything but this
            EXPECT_EQ(refusal->code, ErrorCode::FolderNotEmpty);
        } else {
            ++removed;
            EXPECT_FALSE(std::filesystem::exists(here("tree" + number)));
        }
    }
    race.over = true;
    int status = 0;
    ASSERT_EQ(::waitpid(swapper, &status, 0), swapper);
    EXPECT_EQ(status, 0);

    EXPECT_GE(race.swaps, 100'000U);
    EXPECT_GT(removed, round / 2);
    std::size_t left = 0;
    for (std::string const name : {"canary", "canary/inner"}) {
        for (std::string const& file : canaries) {
            left += std::filesystem::exists(here(name + "/" + file));
        }
    }
    EXPECT_EQ(left, 2 * canaries.size());
    RecordProperty("swaps", std::to_string(race.swaps));
    RecordProperty("rounds", std::to_string(round));
    ::munmap(shared, sizeof(Race));
    ::close(folder);
}

} // namespace
} // namespace foundation::storage::provider::local::test
