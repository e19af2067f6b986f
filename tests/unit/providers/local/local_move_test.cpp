#include "child_process.hpp"
#include "local_fixture.hpp"

#include <fl/i18n/conversion.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <mutex>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace foundation::storage::provider::local::test {
namespace {

class LocalMoves : public LocalProviderTest {
  protected:
    LocalMoves() {
        makeFile("file", "content");
        makeFile("other", "other content");
        makeFolder("folder");
        makeFile("folder/inner", "inside");
        makeFolder("empty");
        makeLink("link to file", "file");
        makeLink("link to nothing", "missing");
    }

    void moveFile(std::string_view from, std::string_view to,
                  ReplacementPolicy policy = ReplacementPolicy::FailIfExists) const {
        provider_->moveFile(at(from), at(to), policy);
    }
    void moveFolder(std::string_view from, std::string_view to,
                    ReplacementPolicy policy = ReplacementPolicy::FailIfExists) const {
        provider_->moveFolder(at(from), at(to), policy);
    }
};

constexpr bool replacesFiles(ReplacementPolicy policy) {
    return policy != ReplacementPolicy::FailIfExists && policy != ReplacementPolicy::KeepExisting;
}

TEST_F(LocalMoves, AFileIsRenamedWithEverythingItHas) {
    ino_t const inode = status("file").st_ino;
    setTimes("file", {1, 2}, {3, 4});

    moveFile("file", "folder/moved");

    EXPECT_FALSE(isThere("file"));
    EXPECT_EQ(status("folder/moved").st_ino, inode);
    EXPECT_EQ(status("folder/moved").st_mtim.tv_nsec, 4);
}

TEST_F(LocalMoves, AFolderIsRenamedWithItsContent) {
    moveFolder("folder", "moved");

    EXPECT_FALSE(isThere("folder"));
    EXPECT_EQ(content("moved/inner"), "inside");
}

TEST_F(LocalMoves, ALinkAndAFifoAreMovedThemselves) {
    makeFifo("fifo");

    moveFile("link to nothing", "moved link");
    moveFile("fifo", "moved fifo");

    EXPECT_EQ(target("moved link"), "missing");
    EXPECT_TRUE(S_ISFIFO(status("moved fifo").st_mode));
}

TEST_F(LocalMoves, ThePolicyDecidesOverAnExistingFile) {
    for (ReplacementPolicy const policy : allPolicies) {
        makeFile("source", "new");
        makeFile("destination", "old");
        auto const refusal = refusalOf([&] { moveFile("source", "destination", policy); });

        EXPECT_EQ(!refusal, replacesFiles(policy));
        EXPECT_EQ(content("destination"), replacesFiles(policy) ? "new" : "old");
        EXPECT_EQ(isThere("source"), !replacesFiles(policy));
        if (refusal) {
            EXPECT_EQ(refusal->code, ErrorCode::ResourceAlreadyExists);
            EXPECT_EQ(refusal->location, at("destination"));
        }
    }
}

TEST_F(LocalMoves, AReadOnlyDestinationIsDeniedEvenToTheSuperUser) {
    makeFile("destination", "old", 0444);
    makeFolder("closed", 0555);
    for (ReplacementPolicy const policy : allPolicies) {
        ErrorCode const code =
            replacesFiles(policy) ? ErrorCode::PermissionDenied : ErrorCode::ResourceAlreadyExists;
        EXPECT_TRUE(
            isRefused([&] { moveFile("file", "destination", policy); }, code, at("destination")));
        EXPECT_TRUE(isRefused([&] { moveFolder("folder", "closed", policy); }, code, at("closed")));
    }
    EXPECT_EQ(content("destination"), "old");
    EXPECT_TRUE(isThere("file"));
    EXPECT_TRUE(isThere("folder/inner"));
}

TEST_F(LocalMoves, AReadOnlySourceMoves) {
    ASSERT_EQ(::chmod(path("file").c_str(), 0444), 0);

    moveFile("file", "moved");

    EXPECT_EQ(status("moved").st_mode & 07777, 0444U);
}

TEST_F(LocalMoves, TheWrongKindIsRefusedOnBothSides) {
    EXPECT_TRUE(
        isRefused([&] { moveFile("folder", "new"); }, ErrorCode::InvalidLocation, at("folder")));
    EXPECT_TRUE(
        isRefused([&] { moveFolder("file", "new"); }, ErrorCode::InvalidLocation, at("file")));
    EXPECT_TRUE(isRefused([&] { moveFolder("link to file", "new"); }, ErrorCode::InvalidLocation,
                          at("link to file")));
    EXPECT_TRUE(isRefused([&] { moveFile("file", "empty", ReplacementPolicy::ReplaceExisting); },
                          ErrorCode::InvalidLocation, at("empty")));
    EXPECT_TRUE(isRefused([&] { moveFolder("empty", "file", ReplacementPolicy::ReplaceExisting); },
                          ErrorCode::InvalidLocation, at("file")));
    EXPECT_TRUE(isThere("folder/inner"));
    EXPECT_EQ(content("file"), "content");
}

TEST_F(LocalMoves, WhatIsMissingIsNamed) {
    EXPECT_TRUE(
        isRefused([&] { moveFile("missing", "new"); }, ErrorCode::ResourceNotFound, at("missing")));
    EXPECT_TRUE(isRefused([&] { moveFolder("missing", "new"); }, ErrorCode::ResourceNotFound,
                          at("missing")));
    EXPECT_TRUE(isRefused([&] { moveFile("file", "missing/new"); }, ErrorCode::ResourceNotFound,
                          at("missing/new")));
    EXPECT_TRUE(isRefused([&] { moveFile("file", "other/new"); }, ErrorCode::ResourceNotFound,
                          at("other/new")));
    std::string const tooLong(256, 'n');
    EXPECT_TRUE(
        isRefused([&] { moveFile("file", tooLong); }, ErrorCode::InvalidLocation, at(tooLong)));
}

TEST_F(LocalMoves, AMoveOntoItselfIsRefusedUnderEveryNameAndPolicy) {
    makeLink("way around", ".");
    makeLink("link to folder", "folder");
    std::pair<char const*, char const*> const pairs[] = {
        {"file", "file"},
        {"file", "link to file"},
        {"link to file", "file"},
        {"link to file", "link to file"},
        {"link to file", "way around/link to file"},
        {"file", "way around/file"},
        {"link to nothing", "way around/link to nothing"}};
    for (ReplacementPolicy const policy : allPolicies) {
        for (auto const& pair : pairs) {
            EXPECT_TRUE(isRefused([&] { moveFile(pair.first, pair.second, policy); },
                                  ErrorCode::InvalidLocation, at(pair.first)))
                << pair.first << " to " << pair.second;
        }
        for (char const* const name :
             {"folder", "way around/folder", "link to folder", "way around/link to folder",
              "folder/", "./folder", "empty/../folder", "folder/."}) {
            StorageIRI const spelling(fl::i18n::to_ustring("file:" + path(name)));
            EXPECT_TRUE(isRefused([&] { provider_->moveFolder(at("folder"), spelling, policy); },
                                  ErrorCode::InvalidLocation, at("folder")))
                << name;
        }
    }
    EXPECT_EQ(content("file"), "content");
    EXPECT_EQ(target("link to file"), "file");
    EXPECT_EQ(content("folder/inner"), "inside");
}

TEST_F(LocalMoves, AMoveOntoItselfOverAnotherMountIsRefused) {
    if (!mayMount()) {
        GTEST_SKIP() << "reason: needs the right to mount";
    }
    std::string const outcome = inChild([&] {
        if (!mountMemory(path("empty"), "1m")) {
            return std::string("not mounted");
        }
        makeFolder("empty/a");
        makeFolder("empty/b");
        makeFile("empty/a/file", "content");
        if (::mount(path("empty/a").c_str(), path("empty/b").c_str(), nullptr, MS_BIND, nullptr) !=
            0) {
            return std::string("not mounted");
        }
        auto const refusal = refusalOf(
            [&] { moveFile("empty/a/file", "empty/b/file", ReplacementPolicy::ReplaceExisting); });
        return std::string(refusal && refusal->code == ErrorCode::InvalidLocation ? "refused "
                                                                                  : "other ") +
               content("empty/a/file");
    });

    EXPECT_EQ(outcome, "refused content");
}

TEST_F(LocalMoves, OntoAHardLinkOnlyTheSourceNameGoes) {
    makeFolder("elsewhere");
    for (char const* second : {"second name", "elsewhere/second name"}) {
        makeFile("first name", "shared");
        ASSERT_EQ(::link(path("first name").c_str(), path(second).c_str()), 0);

        EXPECT_TRUE(isRefused([&] { moveFile("first name", second); },
                              ErrorCode::ResourceAlreadyExists, at(second)));
        moveFile("first name", second, ReplacementPolicy::ReplaceExisting);

        EXPECT_FALSE(isThere("first name"));
        EXPECT_EQ(content(second), "shared");
        EXPECT_EQ(status(second).st_nlink, 1U);
    }
    EXPECT_EQ(names().size(), 8U);
}

TEST_F(LocalMoves, ALinkMovesOverAnotherLinkToTheSameItem) {
    makeLink("second link", "./file");

    moveFile("link to file", "second link", ReplacementPolicy::ReplaceExisting);

    EXPECT_FALSE(isThere("link to file"));
    EXPECT_EQ(target("second link"), "file");
    EXPECT_EQ(content("file"), "content");
}

TEST_F(LocalMoves, ALinkOverASecondNameOfItsTargetIsRenamed) {
    ASSERT_EQ(::link(path("file").c_str(), path("second name").c_str()), 0);

    moveFile("link to file", "second name", ReplacementPolicy::ReplaceExisting);

    EXPECT_FALSE(isThere("link to file"));
    EXPECT_EQ(target("second name"), "file");
    EXPECT_EQ(content("file"), "content");
}

TEST_F(LocalMoves, AFileOverALinkToItsSecondNameIsRenamed) {
    ASSERT_EQ(::link(path("file").c_str(), path("second name").c_str()), 0);
    makeLink("link to second name", "second name");

    moveFile("file", "link to second name", ReplacementPolicy::ReplaceExisting);

    EXPECT_FALSE(isThere("file"));
    EXPECT_TRUE(S_ISREG(status("link to second name").st_mode));
    EXPECT_EQ(status("link to second name").st_ino, status("second name").st_ino);
    EXPECT_EQ(content("second name"), "content");
}

TEST_F(LocalMoves, TheLastNameOfAFileStaysWhateverTakesThePlaceOfItsSecondOne) {
    struct {
        char const* meanwhile;
        ReplacementPolicy policy;
        char const* expected;
    } const cases[] = {
        {"file", ReplacementPolicy::ReplaceExisting, "moved: shared"},
        {"link", ReplacementPolicy::ReplaceExisting, "moved: shared"},
        {"nothing", ReplacementPolicy::ReplaceExisting, "moved: shared"},
        {"protected", ReplacementPolicy::ReplaceExisting, "2: shared"},
        {"folder", ReplacementPolicy::ReplaceExisting, "1: shared"},
    };
    for (auto const& expected : cases) {
        std::string const outcome = inChild([&] {
            ::rmdir(path("second name").c_str());
            ::unlink(path("second name").c_str());
            ::unlink(path("first name").c_str());
            makeFile("first name", "shared");
            ::link(path("first name").c_str(), path("second name").c_str());
            bool first = true;
            interceptCalls(SYS_renameat2, 4, 1, [&](auto const*) -> std::optional<long> {
                if (std::exchange(first, false)) {
                    std::string const what = expected.meanwhile;
                    ::unlink(path("second name").c_str());
                    if (what == "file" || what == "protected") {
                        makeFile("second name", "theirs", what == "file" ? 0644 : 0444);
                    } else if (what == "link") {
                        makeLink("second name", "first name");
                    } else if (what == "folder") {
                        makeFolder("second name");
                    }
                }
                return std::nullopt;
            });
            auto const refusal =
                refusalOf([&] { moveFile("first name", "second name", expected.policy); });
            return (refusal ? std::to_string(static_cast<int>(refusal->code)) + ": " +
                                  content("first name")
                            : "moved: " + content("second name"));
        });

        EXPECT_EQ(outcome, expected.expected) << expected.meanwhile;
        EXPECT_TRUE(std::ranges::none_of(
            names(), [](std::string const& name) { return name.starts_with(".vfs-"); }));
    }
}

TEST_F(LocalMoves, AMissingSourceIsToldBeforeAnImpossibleDestination) {
    StorageIRI const impossible = at(std::string(5000, 'n'));

    EXPECT_TRUE(isRefused(
        [&] { provider_->moveFile(at("file"), impossible, ReplacementPolicy::FailIfExists); },
        ErrorCode::InvalidLocation, impossible));
    EXPECT_TRUE(isRefused(
        [&] { provider_->moveFile(at("missing"), impossible, ReplacementPolicy::FailIfExists); },
        ErrorCode::ResourceNotFound, at("missing")));
}

TEST_F(LocalMoves, AReadOnlyHardLinkIsDenied) {
    ASSERT_EQ(::chmod(path("file").c_str(), 0444), 0);
    ASSERT_EQ(::link(path("file").c_str(), path("second name").c_str()), 0);

    EXPECT_TRUE(
        isRefused([&] { moveFile("file", "second name", ReplacementPolicy::ReplaceExisting); },
                  ErrorCode::PermissionDenied, at("second name")));
    EXPECT_TRUE(isThere("file"));
}

TEST_F(LocalMoves, AChangeOfCaseAloneIsAMove) {
    moveFile("file", "FILE");
    moveFolder("folder", "Folder");

    EXPECT_EQ(content("FILE"), "content");
    EXPECT_EQ(content("Folder/inner"), "inside");
    EXPECT_FALSE(isThere("file"));
}

TEST_F(LocalMoves, OtherFileSystemsSchemesAndHostsAreForSomebodyElse) {
    StorageIRI const otherScheme(u"mem:///file");
    StorageIRI const otherHost(u"file://elsewhere/file");
    for (StorageIRI const& destination : {otherScheme, otherHost}) {
        EXPECT_TRUE(isRefused(
            [&] { provider_->moveFile(at("file"), destination, ReplacementPolicy::FailIfExists); },
            ErrorCode::UnsupportedOperation, destination));
        EXPECT_TRUE(isRefused(
            [&] {
                provider_->moveFolder(at("folder"), destination, ReplacementPolicy::FailIfExists);
            },
            ErrorCode::UnsupportedOperation, destination));
    }
    if (!mayMount()) {
        GTEST_SKIP() << "reason: a move between file systems needs the right to mount";
    }
    std::string const outcome = inChild([&] {
        if (!mountMemory(path("empty"), "1m")) {
            return std::string("not mounted");
        }
        std::string codes;
        for (ReplacementPolicy const policy : allPolicies) {
            auto const file = refusalOf([&] { moveFile("file", "empty/file", policy); });
            auto const folder = refusalOf([&] { moveFolder("folder", "empty/folder", policy); });
            codes += file && file->code == ErrorCode::UnsupportedOperation && folder &&
                             folder->code == ErrorCode::UnsupportedOperation
                         ? 'u'
                         : '?';
        }
        return codes;
    });
    EXPECT_EQ(outcome, "uuuuu");
    EXPECT_TRUE(isThere("file"));
}

TEST_F(LocalMoves, WhereRenameKnowsNoFlagsNothingIsReplacedEither) {
    std::vector<CallFault> const noFlags{{SYS_renameat2, 4, 1, EINVAL}};
    std::vector<CallFault> const noLinks{{SYS_renameat2, 4, 1, EINVAL}, {SYS_linkat, 0, 0, EPERM}};
    for (auto const& faults : {noFlags, noLinks}) {
        std::string const outcome = inChild([&] {
            injectFaults(faults);
            std::string codes;
            for (auto const& call : std::vector<std::function<void()>>{
                     [&] { moveFile("file", "other"); }, [&] { moveFolder("folder", "empty"); },
                     [&] { moveFile("file", "moved"); },
                     [&] { moveFolder("folder", "moved folder"); },
                     [&] { moveFolder("moved folder", "moved folder/below"); },
                     [&] { moveFile("moved", "file"); },
                     [&] { moveFolder("moved folder", "folder"); }}) {
                auto const refusal = refusalOf(call);
                codes += refusal ? std::to_string(static_cast<int>(refusal->code)) + ' ' : "done ";
            }
            return codes;
        });

        EXPECT_EQ(outcome, "3 3 done done 1 done done ");
        EXPECT_EQ(content("file"), "content");
        EXPECT_EQ(status("file").st_nlink, 1U);
        EXPECT_EQ(content("other"), "other content");
        EXPECT_EQ(names("empty").size(), 0U);
    }
}

TEST_F(LocalMoves, WithoutFlagsAndLinksTheNameIsTakenBeforeTheRename) {
    std::string const outcome = inChild([&] {
        injectFaults({{SYS_renameat2, 4, 1, EINVAL}, {SYS_linkat, 0, 0, EPERM}});
        std::string others;
        std::mutex mutex; // the call waits for the other thread, which only the kernel knows
        interceptCalls(SYS_renameat, 0, 0, [&](auto const*) -> std::optional<long> {
            std::lock_guard const lock(mutex);
            int const file = ::open(path("new").c_str(), O_CREAT | O_EXCL | O_WRONLY, 0600);
            others += file < 0 ? "kept out " : "got in ";
            others += ::mkdir(path("new folder").c_str(), 0700) != 0 ? "kept out " : "got in ";
            return std::nullopt;
        });
        makeFolder("new folder");
        moveFile("file", "new");
        ::rmdir(path("new folder").c_str());
        moveFolder("folder", "new folder");
        std::lock_guard const lock(mutex);
        return others + content("new") + ' ' + content("new folder/inner");
    });

    EXPECT_EQ(outcome, "kept out kept out kept out kept out content inside");
}

TEST_F(LocalMoves, ARenameThatFailsLeavesNoTakenName) {
    std::string const outcome = inChild([&] {
        injectFaults(
            {{SYS_renameat2, 4, 1, EINVAL}, {SYS_linkat, 0, 0, EPERM}, {SYS_renameat, 0, 0, EIO}});
        auto const file = refusalOf([&] { moveFile("file", "new"); });
        auto const folder = refusalOf([&] { moveFolder("folder", "new folder"); });
        return std::string(file && file->code == ErrorCode::IOError ? "failed " : "? ") +
               (folder && folder->code == ErrorCode::IOError ? "failed" : "?");
    });

    EXPECT_EQ(outcome, "failed failed");
    EXPECT_FALSE(isThere("new"));
    EXPECT_FALSE(isThere("new folder"));
}

TEST_F(LocalMoves, WithoutFlagsTheLastNameOfAFileStaysWhateverOthersDo) {
    std::string const gone = inChild([&] {
        injectFaults({{SYS_renameat2, 4, 1, EINVAL}});
        interceptCalls(SYS_unlinkat, 0, 0, [&](auto const*) -> std::optional<long> {
            ::unlink(path("file").c_str());
            return std::nullopt;
        });
        moveFile("file", "new");
        return content("new");
    });
    std::string const replaced = inChild([&] {
        injectFaults({{SYS_renameat2, 4, 1, EINVAL}});
        interceptCalls(SYS_unlinkat, 0, 0,
                       [&, first = true](auto const*) mutable -> std::optional<long> {
                           if (!std::exchange(first, false)) {
                               return std::nullopt;
                           }
                           ::unlink(path("newer").c_str());
                           makeFile("newer", "theirs");
                           return -EACCES;
                       });
        auto const refusal = refusalOf([&] { moveFile("other", "newer"); });
        return (refusal ? "refused " : "moved ") + content("newer");
    });

    EXPECT_EQ(gone, "content");
    EXPECT_EQ(replaced, "refused theirs");
    EXPECT_EQ(content("other"), "other content");
}

TEST_F(LocalMoves, TheFolderThatDeniesIsNamed) {
    ASSERT_EQ(::chmod(path("folder").c_str(), 0555), 0);
    ASSERT_EQ(::chmod(path("").c_str(), 0777), 0);

    std::string const outcome = inChild([&] {
        becomeUnprivileged();
        auto const out = refusalOf([&] { moveFile("folder/inner", "out"); });
        auto const in = refusalOf([&] { moveFile("file", "folder/in"); });
        return std::string(out && out->code == ErrorCode::PermissionDenied &&
                                   out->location == at("folder/inner")
                               ? "source "
                               : "? ") +
               (in && in->code == ErrorCode::PermissionDenied && in->location == at("folder/in")
                    ? "destination"
                    : "?");
    });

    EXPECT_EQ(outcome, "source destination");
}

} // namespace
} // namespace foundation::storage::provider::local::test
