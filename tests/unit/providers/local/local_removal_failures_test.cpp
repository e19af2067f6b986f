#include "allocation_failure.hpp"
#include "child_process.hpp"
#include "removal_fixture.hpp"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <new>
#include <optional>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace foundation::storage::provider::local::test {
namespace {

class LocalRemovalFailures : public RemovalTest {
  protected:
    std::string removingUnprivileged(std::string_view name) const {
        return inChild([&] {
            becomeUnprivileged();
            return removing(name);
        });
    }
};

TEST_F(LocalRemovalFailures, AFolderThatDeniesItsContentIsToldByWhatItHolds) {
    makeFolder("tree", 0777);
    makeFolder("tree/open", 0777);
    makeFile("tree/open/file");
    makeFolder("tree/read-only", 0555);
    makeFile("tree/read-only/kept");

    EXPECT_EQ(removingUnprivileged("tree"), "2 about tree/read-only/kept");
    EXPECT_TRUE(isThere("tree/read-only/kept"));
}

TEST_F(LocalRemovalFailures, AnUnreadableFolderWithContentIsDenied) {
    makeFolder("tree", 0777);
    makeFolder("tree/a", 0777);
    makeFolder("tree/a/closed", 0300);
    makeFile("tree/a/closed/kept");

    EXPECT_EQ(removingUnprivileged("tree"), "2 about tree/a/closed");
    EXPECT_EQ(removingUnprivileged("tree/a/closed"), "2 about tree/a/closed");
    EXPECT_TRUE(isThere("tree/a/closed/kept"));
}

TEST_F(LocalRemovalFailures, AnUnreadableFolderThatIsEmptyGoes) {
    makeFolder("tree", 0777);
    makeFolder("tree/closed", 0);
    makeFolder("tree/unsearchable", 0444);

    EXPECT_EQ(removingUnprivileged("tree/unsearchable"), "removed");
    ASSERT_EQ(::chmod(path("").c_str(), 0777), 0);
    EXPECT_EQ(removingUnprivileged("tree"), "removed");
    EXPECT_FALSE(isThere("tree"));
}

TEST_F(LocalRemovalFailures, AFolderThatMayNotBeSearchedIsToldByWhatItHolds) {
    makeFolder("tree", 0777);
    makeFolder("tree/unsearchable", 0666);
    makeFile("tree/unsearchable/kept");

    EXPECT_EQ(removingUnprivileged("tree"), "2 about tree/unsearchable/kept");
    EXPECT_TRUE(isThere("tree/unsearchable/kept"));
}

TEST_F(LocalRemovalFailures, AParentThatDeniesKeepsTheEmptiedRoot) {
    makeFolder("parent", 0555);
    ASSERT_EQ(::chmod(path("parent").c_str(), 0755), 0);
    makeFolder("parent/tree", 0777);
    makeFile("parent/tree/file");
    ASSERT_EQ(::chmod(path("parent").c_str(), 0555), 0);

    EXPECT_EQ(removingUnprivileged("parent/tree"), "2 about parent/tree");
    EXPECT_EQ(names("parent/tree"), Names());
}

TEST_F(LocalRemovalFailures, NamesThatAreNotUtf8AreTold) {
    makeFolder("tree", 0777);
    makeFolder("tree/caf\xE9", 0777);
    makeFolder("tree/caf\xE9/\xFF%41", 0555);
    makeFile("tree/caf\xE9/\xFF%41/\xC3");

    EXPECT_EQ(removingUnprivileged("tree"), "2 about tree/caf\xE9/\xFF%41/\xC3");
}

TEST_F(LocalRemovalFailures, DeepDownThePathIsToldInFull) {
    std::string deep = "tree";
    makeFolder(deep, 0777);
    for (int i = 0; i < 40; ++i) {
        deep += "/" + std::to_string(i);
        makeFolder(deep, 0777);
        makeFolder(deep + "/beside", 0777);
    }
    makeFile(deep + "/kept");
    ASSERT_EQ(::chmod(path(deep).c_str(), 0555), 0);

    std::string const told = removingUnprivileged("tree");

    EXPECT_TRUE(told == "2 about " + deep + "/kept" || told == "2 about " + deep + "/beside")
        << told;
}

TEST_F(LocalRemovalFailures, WhatIsMountedInsideIsInUseAndNotHarmed) {
    if (!mayMount()) {
        GTEST_SKIP() << "reason: needs the right to mount";
    }
    makeFolder("canary");
    makeFile("canary/file", "content");
    makeFile("canary file", "content");
    for (bool const byHand : {false, true}) {
        makeFolder("tree");
        makeFolder("tree/inner");
        makeFolder("tree/inner/mounted");
        makeFolder("bound");
        makeFolder("bound/folder");
        makeFolder("bound file");
        makeFile("bound file/file");
        std::string const outcome = inChild([&] {
            if (!mountMemory(path("tree/inner/mounted"), "1m") ||
                ::mount(path("canary").c_str(), path("bound/folder").c_str(), nullptr, MS_BIND,
                        nullptr) != 0 ||
                ::mount(path("canary file").c_str(), path("bound file/file").c_str(), nullptr,
                        MS_BIND, nullptr) != 0) {
                return std::string("not mounted");
            }
            makeFile("tree/inner/mounted/file", "content");
            if (byHand) {
                injectFaults({{SYS_openat2, 0, 0, ENOSYS}});
            }
            std::string const told = removing("tree") + ", " + removing("bound") + ", " +
                                     removing("bound file") + ", " + removing("bound/folder");
            return told + ", " + content("tree/inner/mounted/file");
        });
        EXPECT_EQ(outcome, "6 about tree/inner/mounted, 6 about bound/folder, "
                           "6 about bound file/file, 6 about bound/folder, content");
        EXPECT_EQ(content("canary/file"), "content");
        EXPECT_EQ(content("canary file"), "content");
        for (std::string const name : {"tree", "bound", "bound file"}) {
            remove(name);
        }
    }
}

TEST_F(LocalRemovalFailures, WithoutTheCallThatStaysInAMountTreesGoAllTheSame) {
    for (int const error : {ENOSYS, EPERM}) {
        makeTree("tree", 7);
        makeFolder("canary");
        makeFile("canary/file");
        makeLink("tree/link", path("canary"));

        std::string const outcome = inChild([&] {
            injectFaults({{SYS_openat2, 0, 0, error}});
            return removing("tree");
        });

        EXPECT_EQ(outcome, "removed");
        EXPECT_TRUE(isThere("canary/file"));
        remove("canary");
    }
}

TEST_F(LocalRemovalFailures, KindsThatTheFileSystemDoesNotTellAreFoundOut) {
    makeTree("tree", 8);
    makeFifo("tree/fifo");
    makeFolder("canary");
    makeFile("canary/file");
    makeLink("tree/link", path("canary"));

    std::string const outcome = inChild([&] {
        interceptCalls(SYS_getdents64, 0, 0, [](auto const* arguments) -> std::optional<long> {
            auto* const buffer = reinterpret_cast<char*>(arguments[1]);
            long const got = ::syscall(SYS_getdents64, arguments[0], buffer, arguments[2]);
            for (long at = 0; at < got;) {
                auto* const record = reinterpret_cast<dirent64*>(buffer + at);
                record->d_type = DT_UNKNOWN;
                at += record->d_reclen;
            }
            return got < 0 ? -errno : got;
        });
        return removing("tree");
    });

    EXPECT_EQ(outcome, "removed");
    EXPECT_EQ(names(""), Names{"canary"});
    EXPECT_TRUE(isThere("canary/file"));
}

TEST_F(LocalRemovalFailures, WhereRemovingAFolderAsAFileIsNotPermittedItIsAFolderAllTheSame) {
    makeFolder("tree");
    makeFile("tree/file");

    std::string const outcome = inChild([&] {
        interceptCalls(SYS_unlinkat, 0, 0, [&](auto const* arguments) -> std::optional<long> {
            auto const* const name = reinterpret_cast<char const*>(arguments[1]);
            if (arguments[2] != 0 || std::strcmp(name, "file") != 0 || isThere("tree/file/file")) {
                return std::nullopt;
            }
            makeFolder("tree/new", 0755);
            ::rename(path("tree/file").c_str(), path("tree/new/file").c_str());
            ::rename(path("tree/new").c_str(), path("tree/file").c_str());
            return -EPERM;
        });
        return removing("tree");
    });

    EXPECT_EQ(outcome, "removed");
    EXPECT_FALSE(isThere("tree"));
}

TEST_F(LocalRemovalFailures, NamesThatNoItemCanHaveAreNotFollowedOut) {
    makeFile("canary");
    makeFolder("tree");

    std::string const outcome = inChild([&] {
        interceptCalls(SYS_getdents64, 0, 0, [](auto const* arguments) -> std::optional<long> {
            static int calls = 0;
            if (calls++ % 2 != 0) {
                return 0;
            }
            auto* const record = reinterpret_cast<dirent64*>(arguments[1]);
            *record = dirent64{};
            record->d_reclen = 40;
            record->d_type = DT_REG;
            std::memcpy(record->d_name, "../canary", 10);
            return 40;
        });
        return removing("tree");
    });

    EXPECT_EQ(outcome, "removed");
    EXPECT_TRUE(isThere("canary"));
}

TEST_F(LocalRemovalFailures, AFailureOfAnyCallIsToldAndLeavesNothingOpen) {
    for (int const call : {SYS_unlinkat, SYS_getdents64, SYS_openat2}) {
        bool removed = false;
        for (int failing = 0; !removed; ++failing) {
            ASSERT_LT(failing, 100);
            makeFolder("tree");
            makeFolder("tree/a");
            makeFile("tree/a/file");
            makeFolder("tree/a/b");
            makeLink("tree/a/link", "b");
            std::string const outcome = inChild([&] {
                std::atomic<int> left = -1;
                interceptCalls(call, 0, 0, [&](auto const*) -> std::optional<long> {
                    return left >= 0 && left-- == 0 ? std::optional<long>(-EIO) : std::nullopt;
                });
                std::size_t const before = openDescriptors();
                left = failing;
                std::string const told = removing("tree");
                left = -1;
                return told.substr(0, 12) + (openDescriptors() == before ? "" : ", some open");
            });
            removed = outcome == "removed";
            EXPECT_EQ(outcome, removed ? "removed" : "9 about tree") << call << " " << failing;
            EXPECT_EQ(isThere("tree"), !removed) << call << " " << failing;
            if (!removed) {
                remove("tree"); // tried again
            }
        }
    }
}

TEST_F(LocalRemovalFailures, RunningOutOfMemoryLeavesNothingOpenAndIsTriedAgain) {
    std::size_t const before = openDescriptors();
    std::size_t failures = 0;
    for (bool happened = true; happened; ++failures) {
        makeFolder("tree");
        makeFolder("tree/" + std::string(100, 'a'));
        makeFolder("tree/" + std::string(100, 'a') + "/" + std::string(100, 'b'));
        makeFolder("tree/" + std::string(100, 'c'));
        bool thrown = false;
        {
            AllocationFailure const failure(failures, happened);
            try {
                remove("tree");
            } catch (std::bad_alloc const&) {
                thrown = true;
            }
        }
        EXPECT_EQ(thrown, happened) << failures;
        EXPECT_EQ(openDescriptors(), before) << failures;
        if (thrown) {
            remove("tree");
        }
        EXPECT_FALSE(isThere("tree"));
    }
    EXPECT_GT(failures, 3U);
}

TEST_F(LocalRemovalFailures, TheReasonsHaveTheirCodes) {
    struct {
        int call;
        int error;
        char const* told;
    } const cases[] = {
        {SYS_unlinkat, EROFS, "7 about tree/file"}, {SYS_unlinkat, EBUSY, "6 about tree/file"},
        {SYS_unlinkat, EIO, "9 about tree/file"},   {SYS_unlinkat, EACCES, "2 about tree/file"},
        {SYS_unlinkat, EPERM, "2 about tree/file"}, {SYS_getdents64, EIO, "9 about tree"},
        {SYS_openat2, EMFILE, "10 about tree"},     {SYS_openat2, EIO, "9 about tree"},
        {SYS_openat2, EACCES, "2 about tree"},
    };
    makeFolder("tree");
    makeFile("tree/file");
    for (auto const& [call, error, told] : cases) {
        EXPECT_EQ(inChild([&] {
                      injectFaults({{call, 0, 0, error}});
                      return removing("tree");
                  }),
                  told);
        EXPECT_TRUE(isThere("tree/file"));
    }
}

} // namespace
} // namespace foundation::storage::provider::local::test
