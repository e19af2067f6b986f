#include "child_process.hpp"
#include "listing_fixture.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/local/local_factory.hpp>
#include <foundation/storage/provider/local_path.hpp>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <optional>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace foundation::storage::provider::local::test {
namespace {

using ::testing::ElementsAre;

class LocalRecursiveFailures : public TreeListingTest {};

/// Lists on behind failures; these stand in the order of the listing as "code location".
std::string withFailures(Cursor const& cursor, StorageIRI const& base) {
    Names found;
    for (;;) {
        auto const refusal = refusalOf([&] {
            while (cursor->hasNext()) {
                cursor->advance();
                found.push_back(textOf(cursor->currentEntry()));
            }
        });
        if (!refusal) {
            break;
        }
        found.push_back("!" + std::to_string(static_cast<int>(refusal->code)) + ":" +
                        fl::i18n::ustringToStorageName(refusal->location.makePathRelativeTo(base)));
    }
    std::string result;
    for (std::string const& name : sorted(found)) {
        result += name + ' ';
    }
    return result;
}

TEST_F(LocalRecursiveFailures, FoldersBelowThatDenyAccessArePassedOver) {
    makeFolder("tree");
    makeFolder("tree/closed");
    makeFile("tree/closed/hidden");
    makeFolder("tree/open");
    makeFile("tree/open/file");
    makeFolder("tree/unsearchable");
    makeFolder("tree/unsearchable/folder");
    makeFile("tree/unsearchable/folder/hidden");
    ASSERT_EQ(::chmod(path("tree/closed").c_str(), 0), 0);
    ASSERT_EQ(::chmod(path("tree/unsearchable").c_str(), 0644), 0);

    std::string const outcome = inChild([&] {
        becomeUnprivileged();
        return listedLine(names("tree")) + " | " + listedLine(entries("tree"));
    });
    ::chmod(path("tree/closed").c_str(), 0755);
    ::chmod(path("tree/unsearchable").c_str(), 0755);

    std::string const expected = "closed/ open/ open/file unsearchable/ unsearchable/folder/";
    EXPECT_EQ(outcome, expected + " | " + expected);
}

TEST_F(LocalRecursiveFailures, TheListedFolderItselfMustBeReadable) {
    makeFolder("closed", 0311);

    std::string const outcome = inChild([&] {
        becomeUnprivileged();
        return std::string(
            isRefused([&] { names("closed"); }, ErrorCode::PermissionDenied, at("closed"))
                ? "denied"
                : "other");
    });
    ::chmod(path("closed").c_str(), 0755);

    EXPECT_EQ(outcome, "denied");
}

TEST_F(LocalRecursiveFailures, FoldersThatVanishArePassedOver) {
    makeFolder("tree");
    for (char const* name : {"a", "b", "c"}) {
        makeFolder(std::string("tree/") + name);
        makeFile(std::string("tree/") + name + "/inner");
    }
    Cursor const cursor = names("tree");
    for (char const* name : {"a", "b", "c"}) {
        std::filesystem::remove_all(path(std::string("tree/") + name));
    }

    EXPECT_THAT(listed(cursor), ElementsAre("a/", "b/", "c/"));
}

TEST_F(LocalRecursiveFailures, AFolderThatBecameALinkIsNotEntered) {
    makeFolder("outside");
    makeFile("outside/secret");
    makeFolder("tree");
    makeFolder("tree/victim");
    makeFile("tree/victim/inner");
    Cursor const cursor = names("tree");
    std::filesystem::remove_all(path("tree/victim"));
    makeLink("tree/victim", "../outside");

    EXPECT_THAT(listed(cursor), ElementsAre("victim/"));
}

TEST_F(LocalRecursiveFailures, AFolderThatIsMovedAwayEndsWhatIsBelowItAndNothingElse) {
    std::string folder = "tree";
    makeFolder(folder);
    for (int level = 0; level < 40; ++level) {
        makeFolder(folder + "/b");
        makeFile(folder + "/b/file");
        makeFolder(folder + "/c");
        makeFile(folder + "/c/file");
        folder += "/a" + std::to_string(level); // before, between or behind the others
        makeFolder(folder);
    }
    std::string moved = "tree";
    for (int level = 0; level < 10; ++level) {
        moved += "/a" + std::to_string(level);
    }
    // The order of listing is not known, so the move happens at every tenth position in turn.
    std::size_t const all = treeOnDisk(path("tree")).size();
    Names above;
    for (std::string const& name : treeOnDisk(path("tree"))) {
        if (!("tree/" + name).starts_with(moved + "/")) {
            above.push_back(name);
        }
    }
    for (std::size_t when = 0; when <= all; when += 10) {
        Cursor cursor = names("tree");
        Names found;
        for (std::size_t i = 0; i < when; ++i) {
            cursor->advance();
            found.push_back(textOf(cursor->currentEntry()));
        }
        Cursor other = clone(cursor);
        ASSERT_EQ(::rename(path(moved).c_str(), path("elsewhere").c_str()), 0);
        Names rest;
        Names restOfOther;
        EXPECT_NO_THROW(rest = restOf(*cursor));
        EXPECT_NO_THROW(restOfOther = restOf(*other));
        ASSERT_EQ(::rename(path("elsewhere").c_str(), path(moved).c_str()), 0);

        for (Names const& tail : {rest, restOfOther}) {
            Names once = found;
            once.insert(once.end(), tail.begin(), tail.end());
            once = sorted(std::move(once));
            EXPECT_EQ(std::adjacent_find(once.begin(), once.end()), once.end());
            EXPECT_TRUE(std::includes(once.begin(), once.end(), above.begin(), above.end()))
                << when;
        }
    }
}

TEST_F(LocalRecursiveFailures, AListedFolderThatIsRemovedIsNotFoundWhenMoreIsNeeded) {
    makeFolder("tree");
    for (int i = 0; i < 1000; ++i) {
        makeFile("tree/" + std::string(150, 'n') + std::to_string(i));
    }
    Cursor const cursor = names("tree");
    Cursor const other = clone(cursor);
    std::filesystem::remove_all(path("tree"));

    EXPECT_TRUE(isRefused([&] { restOf(*cursor); }, ErrorCode::ResourceNotFound, at("tree")));
    EXPECT_FALSE(cursor->hasNext());
    EXPECT_TRUE(isRefused([&] { restOf(*other); }, ErrorCode::ResourceNotFound, at("tree")));
    EXPECT_FALSE(other->hasNext());
}

TEST_F(LocalRecursiveFailures, AFolderThatFailsIsToldOnceAndTheListingGoesOnBehindIt) {
    makeFolder("tree");
    for (char const* name : {"a", "bad", "c"}) {
        makeFolder(std::string("tree/") + name);
        makeFile(std::string("tree/") + name + "/file");
        makeFolder(std::string("tree/") + name + "/folder");
    }
    for (int const call : {SYS_getdents64, SYS_openat}) {
        std::string const outcome = inChild([&] {
            std::string const bad = path("tree/bad");
            interceptCalls(call, 0, 0, [&](auto const* arguments) -> std::optional<long> {
                bool const isBad =
                    call == SYS_getdents64
                        ? folderOf(arguments[0]) == bad
                        : std::strcmp(reinterpret_cast<char const*>(arguments[1]), "bad") == 0;
                return isBad ? std::optional<long>(-EIO) : std::nullopt;
            });
            Cursor const cursor = names("tree");
            Cursor const other = clone(cursor);
            return withFailures(cursor, at("tree")) + "| " + withFailures(other, at("tree"));
        });
        std::string const expected = "!9:bad a/ a/file a/folder/ bad/ c/ c/file c/folder/ ";
        EXPECT_EQ(outcome, expected + "| " + expected);
    }
}

TEST_F(LocalRecursiveFailures, TheEntryBeforeAFailureStaysReadable) {
    makeFolder("tree");
    for (char const* name : {"a", "b"}) {
        makeFolder(std::string("tree/") + name);
        makeFile(std::string("tree/") + name + "/file of " + name);
    }

    std::string const outcome = inChild([&] {
        std::string good; // the folder that is entered first
        interceptCalls(SYS_getdents64, 0, 0, [&](auto const* arguments) -> std::optional<long> {
            std::string const folder = folderOf(arguments[0]);
            if (folder == path("tree")) {
                return std::nullopt;
            }
            good = good.empty() ? folder : good;
            return folder == good ? std::nullopt : std::optional<long>(-EIO);
        });
        Cursor const cursor = names("tree", u"file*"); // goes from one to the other in one step
        cursor->advance();
        std::string const before = textOf(cursor->currentEntry());
        auto const refusal = refusalOf([&] { cursor->advance(); });
        return std::string(refusal ? "failed " : "did not fail ") +
               (textOf(cursor->currentEntry()) == before ? "the same " : "another ") +
               (cursor->hasNext() ? "more" : "end");
    });

    EXPECT_EQ(outcome, "failed the same end");
}

TEST_F(LocalRecursiveFailures, AFailureInTheMiddleOfAFolderEndsThatFolder) {
    makeFolder("tree");
    makeFolder("tree/long");
    for (int i = 0; i < 1000; ++i) {
        makeFile("tree/long/" + std::string(150, 'n') + std::to_string(i));
    }
    makeFile("tree/after");
    makeFile("tree/before");

    std::string const outcome = inChild([&] {
        std::string const bad = path("tree/long");
        int calls = 0;
        interceptCalls(SYS_getdents64, 0, 0, [&](auto const* arguments) -> std::optional<long> {
            return folderOf(arguments[0]) == bad && calls++ >= 2 ? std::optional<long>(-EIO)
                                                                 : std::nullopt;
        });
        std::string const found = withFailures(names("tree"), at("tree"));
        std::size_t const inside =
            static_cast<std::size_t>(std::count(found.begin(), found.end(), ' ') - 4);
        return (inside > 100 && inside < 900 ? "some " : std::to_string(inside) + " ") +
               found.substr(0, found.find("long/n"));
    });

    EXPECT_EQ(outcome, "some !9:long after before long/ ");
}

TEST_F(LocalRecursiveFailures, AProcessThatEndsWhileItIsListedIsNoFailure) {
    std::string const outcome = inChild([] {
        pid_t const process = ::fork();
        if (process == 0) {
            ::pause();
            ::_exit(0);
        }
        std::string const folder = "/proc/" + std::to_string(process);
        bool ended = false;
        interceptCalls(SYS_getdents64, 0, 0, [&](auto const* arguments) -> std::optional<long> {
            // Once open, this folder of a process that has ended answers EINVAL.
            if (!ended && folderOf(arguments[0]) == folder + "/net") {
                ::kill(process, SIGKILL);
                ::waitpid(process, nullptr, 0);
                ended = true;
            }
            return std::nullopt;
        });
        auto const provider = buildLocalProvider();
        Names const found = restOf(*provider->listAllRecursive(fromLocalPath(folder), u""));
        return std::string(ended ? "ended " : "did not end ") +
               (std::count(found.begin(), found.end(), "net/") == 1 ? "listed" : "not listed");
    });

    EXPECT_EQ(outcome, "ended listed");
}

TEST_F(LocalRecursiveFailures, AnInvalidArgumentElsewhereIsAFailure) {
    makeFolder("tree");
    makeFolder("tree/bad");

    std::string const outcome = inChild([&] {
        interceptCalls(SYS_getdents64, 0, 0, [&](auto const* arguments) -> std::optional<long> {
            return folderOf(arguments[0]) == path("tree/bad") ? std::optional<long>(-EINVAL)
                                                              : std::nullopt;
        });
        return withFailures(names("tree"), at("tree"));
    });

    EXPECT_EQ(outcome, "!1:bad bad/ ");
}

TEST_F(LocalRecursiveFailures, AllProcessesAreListedWithoutAFailure) {
    std::string const outcome = inChild([] {
        pid_t const maker = ::fork();
        if (maker == 0) { // of processes that end at once
            for (;;) {
                pid_t const brief = ::fork();
                if (brief == 0) {
                    ::_exit(0);
                }
                ::waitpid(brief, nullptr, 0);
            }
        }
        auto const provider = buildLocalProvider();
        std::size_t entries = 0;
        for (int round = 0; round < 3; ++round) {
            Cursor const cursor =
                round == 0 ? provider->listAllRecursive(fromLocalPath("/proc"), u"")
                           : provider->listAllRecursiveNamesOnly(fromLocalPath("/proc"), u"");
            for (int i = 0; i < 200'000 && cursor->hasNext(); ++i) {
                cursor->advance();
                ++entries;
            }
        }
        ::kill(maker, SIGKILL);
        ::waitpid(maker, nullptr, 0);
        return std::string(entries > 1000 ? "listed" : "too few");
    });

    EXPECT_EQ(outcome, "listed");
}

} // namespace
} // namespace foundation::storage::provider::local::test
