#include "child_process.hpp"
#include "local_fixture.hpp"

#include <foundation/storage/provider/local/local_factory.hpp>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace foundation::storage::provider::local::test {
namespace {

std::string patterned(std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>((i * 2654435761U) >> 13);
    }
    return bytes;
}

class LocalCopies : public LocalProviderTest {
  protected:
    LocalCopies() {
        makeFile("file", "content");
        makeFile("other", "other content");
        makeFolder("folder");
        makeLink("link to file", "file");
        makeLink("link to nothing", "missing");
        makeFifo("fifo");
    }
};

TEST_F(LocalCopies, ContentOfEverySizeArrives) {
    for (std::size_t const size :
         {0U, 1U, 4096U, 32767U, 32768U, 32769U, 262144U, 262145U, 9U * 1024 * 1024 + 17}) {
        std::string const bytes = patterned(size);
        makeFile("source", bytes);

        EXPECT_EQ(copy("source", "copy", ReplacementPolicy::ReplaceExisting),
                  CopyStatus::CopiedWithTimes);

        EXPECT_TRUE(content("copy") == bytes) << size;
    }
}

TEST_F(LocalCopies, ModeAndNanosecondTimesAreKept) {
    for (mode_t const mode : {0600U, 0644U, 0755U, 0666U, 0444U, 0000U, 06755U, 01644U}) {
        if (::geteuid() != 0 && (mode & S_IRUSR) == 0) {
            continue; // only the super-user can copy it
        }
        makeFile("source", "bytes", mode);
        setTimes("source", {1'111'111'111, 987'654'321}, {-3, 123'456'789});

        copy("source", "copy");

        struct stat const made = status("copy");
        EXPECT_EQ(made.st_mode & 07777, mode);
        EXPECT_EQ(made.st_atim.tv_sec, 1'111'111'111);
        EXPECT_EQ(made.st_mtim.tv_sec, -3);
        EXPECT_EQ(made.st_mtim.tv_nsec, 123'456'789);
        EXPECT_EQ(made.st_atim.tv_nsec, 987'654'321);
        ASSERT_EQ(::unlink(path("source").c_str()), 0);
        ASSERT_EQ(::unlink(path("copy").c_str()), 0);
    }
}

TEST_F(LocalCopies, ASetIdBitIsNotGivenToAnotherOwner) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "reason: only the super-user can make a file of another owner";
    }
    makeFile("source", "bytes");
    ASSERT_EQ(::chown(path("source").c_str(), 12345, 12345), 0);
    ASSERT_EQ(::chmod(path("source").c_str(), 06755), 0);

    copy("source", "copy");

    EXPECT_EQ(status("copy").st_mode & 07777, 0755U);
}

TEST_F(LocalCopies, HolesStayHoles) {
    constexpr long megabyte = 1024 * 1024;
    makeFile("source");
    int const file = ::open(path("source").c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(::pwrite(file, "begin", 5, megabyte), 5);
    ASSERT_EQ(::pwrite(file, "middle", 6, 40 * megabyte), 6);
    ASSERT_EQ(::ftruncate(file, 64 * megabyte), 0);
    ::close(file);

    copy("source", "copy");

    struct stat const made = status("copy");
    EXPECT_EQ(made.st_size, 64 * megabyte);
    EXPECT_LE(made.st_blocks, status("source").st_blocks + 16);
    EXPECT_TRUE(content("copy") == content("source"));
}

TEST_F(LocalCopies, AFileThatIsAllHoleStaysSo) {
    makeFile("source");
    ASSERT_EQ(::truncate(path("source").c_str(), 5L << 30), 0);

    copy("source", "copy");

    EXPECT_EQ(status("copy").st_size, 5L << 30);
    EXPECT_LE(status("copy").st_blocks, 16);
}

TEST_F(LocalCopies, FilesWhoseSizeTheKernelDoesNotTellAreCopied) {
    provider_->copyFile(StorageIRI(u"file:///proc/self/limits"), item("copy"), {});

    EXPECT_NE(content("copy").find("Max open files"), std::string::npos);
}

struct PolicyCase {
    ReplacementPolicy policy;
    bool replaces;
};
constexpr PolicyCase policyCases[] = {
    {ReplacementPolicy::FailIfExists, false},   {ReplacementPolicy::ReplaceExisting, true},
    {ReplacementPolicy::ReplaceReadOnly, true}, {ReplacementPolicy::ReplaceAndDeferDenied, true},
    {ReplacementPolicy::KeepExisting, false},
};

TEST_F(LocalCopies, ThePolicyDecidesOverAnExistingFile) {
    for (PolicyCase const& expected : policyCases) {
        makeFile("destination", "old");
        auto const refusal = refusalOf([&] { copy("file", "destination", expected.policy); });

        EXPECT_EQ(content("destination"), expected.replaces ? "content" : "old");
        EXPECT_EQ(!refusal, expected.replaces);
        if (refusal) {
            EXPECT_EQ(refusal->code, ErrorCode::ResourceAlreadyExists);
            EXPECT_EQ(refusal->location, at("destination"));
        }
    }
}

TEST_F(LocalCopies, AReadOnlyDestinationIsDeniedEvenToTheSuperUser) {
    makeFile("destination", "old", 0444);
    for (PolicyCase const& expected : policyCases) {
        EXPECT_TRUE(isRefused([&] { copy("file", "destination", expected.policy); },
                              expected.replaces ? ErrorCode::PermissionDenied
                                                : ErrorCode::ResourceAlreadyExists,
                              at("destination")));
    }
    EXPECT_EQ(content("destination"), "old");
    EXPECT_EQ(status("destination").st_mode & 07777, 0444U);
}

TEST_F(LocalCopies, WhatStandsInTheWayIsToldAlikeForSmallFilesLargeOnesAndLinks) {
    // A small file is copied first and the destination looked at only where there is one.
    makeFile("large", patterned(100'000));
    makeFile("protected", "kept", 0444);
    std::size_t const count = names().size();
    for (char const* source : {"other", "large", "link to nothing"}) {
        for (PolicyCase const& expected : policyCases) {
            ErrorCode const exists = ErrorCode::ResourceAlreadyExists;
            EXPECT_TRUE(isRefused([&] { copy(source, "protected", expected.policy); },
                                  expected.replaces ? ErrorCode::PermissionDenied : exists,
                                  at("protected")));
            EXPECT_TRUE(isRefused([&] { copy(source, "folder", expected.policy); },
                                  expected.replaces ? ErrorCode::InvalidLocation : exists,
                                  at("folder")));
            EXPECT_TRUE(isRefused([&] { copy(source, "fifo", expected.policy); },
                                  expected.replaces ? ErrorCode::UnsupportedOperation : exists,
                                  at("fifo")));
            EXPECT_TRUE(isRefused([&] { copy(source, source, expected.policy); },
                                  ErrorCode::InvalidLocation, at(source)));
        }
    }
    EXPECT_EQ(names().size(), count);
}

TEST_F(LocalCopies, AnExistingDestinationIsToldBeforeTheFolderThatDenies) {
    makeFile("folder/existing", "old");
    ASSERT_EQ(::chmod(path("folder").c_str(), 0555), 0);

    std::string const outcome = inChild([&] {
        becomeUnprivileged();
        auto const refusal = refusalOf([&] { copy("file", "folder/existing"); });
        return std::string(refusal && refusal->code == ErrorCode::ResourceAlreadyExists ? "exists"
                                                                                        : "other");
    });

    EXPECT_EQ(outcome, "exists");
}

TEST_F(LocalCopies, AFolderInTheWayIsNotReplaced) {
    for (PolicyCase const& expected : policyCases) {
        EXPECT_TRUE(isRefused([&] { copy("file", "folder", expected.policy); },
                              expected.replaces ? ErrorCode::InvalidLocation
                                                : ErrorCode::ResourceAlreadyExists,
                              at("folder")));
    }
}

TEST_F(LocalCopies, FoldersFifosAndDevicesAreNotCopied) {
    EXPECT_TRUE(
        isRefused([&] { copy("folder", "copy"); }, ErrorCode::InvalidLocation, at("folder")));
    EXPECT_TRUE(
        isRefused([&] { copy("fifo", "copy"); }, ErrorCode::UnsupportedOperation, at("fifo")));
    EXPECT_TRUE(isRefused([&] { copy("file", "fifo", ReplacementPolicy::ReplaceExisting); },
                          ErrorCode::UnsupportedOperation, at("fifo")));
    StorageIRI const device(u"file:///dev/zero");
    EXPECT_TRUE(isRefused([&] { provider_->copyFile(device, item("copy"), {}); },
                          ErrorCode::UnsupportedOperation, device));
    EXPECT_FALSE(isThere("copy"));
    EXPECT_TRUE(S_ISFIFO(status("fifo").st_mode));
}

TEST_F(LocalCopies, WhatIsMissingIsNamed) {
    EXPECT_TRUE(
        isRefused([&] { copy("missing", "copy"); }, ErrorCode::ResourceNotFound, at("missing")));
    EXPECT_TRUE(isRefused([&] { copy("file", "missing/copy"); }, ErrorCode::ResourceNotFound,
                          at("missing/copy")));
    EXPECT_TRUE(isRefused([&] { copy("file", "file/copy"); }, ErrorCode::ResourceNotFound,
                          at("file/copy")));
    StorageIRI const tooLong = at(std::string(256, 'n'));
    EXPECT_TRUE(
        isRefused([&] { provider_->copyFile(at("file"), StorageItem(provider_, tooLong), {}); },
                  ErrorCode::InvalidLocation, tooLong));
}

TEST_F(LocalCopies, ACopyOfALinkIsALink) {
    setTimes("link to nothing", {12, 34}, {56, 78});

    EXPECT_EQ(copy("link to nothing", "copy"), CopyStatus::CopiedWithTimes);

    EXPECT_EQ(target("copy"), "missing");
    EXPECT_EQ(status("copy").st_mtim.tv_sec, 56);
    EXPECT_EQ(status("copy").st_mtim.tv_nsec, 78);
}

TEST_F(LocalCopies, ALinkIsCopiedOverAFileOnlyWhereThePolicySaysSo) {
    EXPECT_TRUE(isRefused([&] { copy("link to nothing", "file"); },
                          ErrorCode::ResourceAlreadyExists, at("file")));

    copy("link to nothing", "file", ReplacementPolicy::ReplaceExisting);

    EXPECT_EQ(target("file"), "missing");
    EXPECT_EQ(names().size(), 6U);
}

TEST_F(LocalCopies, WhatComesInTheWayOfALinkMeanwhileIsLookedAtToo) {
    std::string const outcome = inChild([&] {
        interceptCalls(SYS_symlinkat, 0, 0, [&](auto const*) -> std::optional<long> {
            if (!isThere("new")) {
                makeFile("new", "kept", 0444);
            }
            return std::nullopt;
        });
        auto const refusal =
            refusalOf([&] { copy("link to nothing", "new", ReplacementPolicy::ReplaceExisting); });
        return std::string(refusal && refusal->code == ErrorCode::PermissionDenied ? "denied"
                                                                                   : "replaced");
    });

    EXPECT_EQ(outcome, "denied");
    EXPECT_EQ(content("new"), "kept");
}

TEST_F(LocalCopies, ACopiedLinkHasItsTimesAndIsNotLockedAgain) {
    for (ReplacementPolicy const policy : allPolicies) {
        EXPECT_EQ(copy("link to file", "copy", policy), policy == ReplacementPolicy::ReplaceReadOnly
                                                            ? CopyStatus::Copied
                                                            : CopyStatus::CopiedWithTimes);
        ASSERT_EQ(::unlink(path("copy").c_str()), 0);
    }
}

TEST_F(LocalCopies, ACopyOntoALinkReplacesTheLink) {
    copy("other", "link to file", ReplacementPolicy::ReplaceExisting);

    EXPECT_TRUE(S_ISREG(status("link to file").st_mode));
    EXPECT_EQ(content("link to file"), "other content");
    EXPECT_EQ(content("file"), "content");
}

TEST_F(LocalCopies, ACopyOntoItselfIsRefusedUnderEveryNameAndPolicy) {
    makeLink("way around", ".");
    std::pair<char const*, char const*> const pairs[] = {
        {"file", "file"},
        {"file", "link to file"},
        {"link to file", "file"},
        {"file", "way around/file"},
        {"link to file", "way around/link to file"},
        {"link to nothing", "link to nothing"}};
    for (auto const& pair : pairs) {
        for (ReplacementPolicy const policy : allPolicies) {
            EXPECT_TRUE(isRefused([&] { copy(pair.first, pair.second, policy); },
                                  ErrorCode::InvalidLocation, at(pair.first)))
                << pair.first << " to " << pair.second;
        }
    }
    EXPECT_EQ(content("file"), "content");
    EXPECT_EQ(target("link to file"), "file");
}

TEST_F(LocalCopies, ALinkIsCopiedOverAnotherLinkToTheSameItem) {
    makeLink("second link", "link to file");

    copy("link to file", "second link", ReplacementPolicy::ReplaceExisting);

    EXPECT_EQ(target("second link"), "file");
    EXPECT_EQ(target("link to file"), "file");
    EXPECT_EQ(content("file"), "content");
}

TEST_F(LocalCopies, AHardLinkIsAFileOfItsOwn) {
    ASSERT_EQ(::link(path("file").c_str(), path("second name").c_str()), 0);

    copy("file", "second name", ReplacementPolicy::ReplaceExisting);

    EXPECT_EQ(content("second name"), "content");
    EXPECT_NE(status("file").st_ino, status("second name").st_ino);
}

TEST_F(LocalCopies, ProgressRisesToTheTotal) {
    makeFile("large", patterned(20 * 1024 * 1024));
    std::vector<std::uint64_t> reports;
    std::vector<std::optional<std::uint64_t>> totals;

    copy("large", "copy", {}, [&](std::uint64_t done, std::optional<std::uint64_t> total) {
        reports.push_back(done);
        totals.push_back(total);
        return true;
    });

    EXPECT_EQ(reports.front(), 0U);
    EXPECT_EQ(reports.back(), 20U * 1024 * 1024);
    EXPECT_TRUE(std::is_sorted(reports.begin(), reports.end()));
    EXPECT_TRUE(std::all_of(totals.begin(), totals.end(),
                            [](auto const& total) { return total == 20U * 1024 * 1024; }));
}

TEST_F(LocalCopies, ACanceledCopyLeavesTheOldContentAndNoTrace) {
    makeFile("large", patterned(20 * 1024 * 1024));
    makeFile("destination", "old");
    std::size_t const descriptors = openDescriptors();
    std::vector<std::string> const before = names();

    for (int allowed = 0; allowed < 2; ++allowed) { // shared blocks come in one step
        for (char const* name : {"destination", "new"}) {
            int calls = 0;
            EXPECT_TRUE(isRefused(
                [&] {
                    copy("large", name, ReplacementPolicy::ReplaceExisting,
                         [&](std::uint64_t, std::optional<std::uint64_t>) {
                             return calls++ < allowed;
                         });
                },
                ErrorCode::IOError, at(name)));
        }
    }

    EXPECT_TRUE(content("destination") == "old");
    EXPECT_EQ(names(), before);
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(LocalCopies, ACanceledCopyOfALinkLeavesNoTrace) {
    EXPECT_TRUE(isRefused(
        [&] {
            copy("link to file", "copy", {},
                 [](std::uint64_t, std::optional<std::uint64_t>) { return false; });
        },
        ErrorCode::IOError, at("copy")));
    EXPECT_FALSE(isThere("copy"));
}

TEST_F(LocalCopies, AnExceptionOfTheProgressEndsTheCopyWithoutTrace) {
    struct Stop {};
    std::vector<std::string> const before = names();

    EXPECT_THROW(copy("file", "copy", {},
                      [](std::uint64_t, std::optional<std::uint64_t>) -> bool { throw Stop{}; }),
                 Stop);

    EXPECT_EQ(names(), before);
}

TEST_F(LocalCopies, AnotherProviderOfTheSameDiskCopiesNatively) {
    setTimes("file", {1, 2}, {3, 4});
    auto const second = buildLocalProvider();

    EXPECT_EQ(provider_->copyFile(at("file"), StorageItem(second, at("copy")), {}),
              CopyStatus::CopiedWithTimes);

    EXPECT_EQ(status("copy").st_mtim.tv_nsec, 4);
}

/// A destination that is not of the local disk, with nothing but streams.
class Elsewhere : public IProvider {
  public:
    explicit Elsewhere(std::shared_ptr<IProvider> disk) : disk_(std::move(disk)) {}
    ExistsResult exists(StorageIRI const& location) const override {
        return disk_->exists(location);
    }
    void createFile(StorageIRI const& location) override { disk_->createFile(location); }
    std::unique_ptr<ByteStream> openStream(StorageIRI const& location,
                                           ByteStreamOpenOptions const& options) override {
        return disk_->openStream(location, options);
    }

  private:
    std::shared_ptr<IProvider> disk_;
};

TEST_F(LocalCopies, ToAnotherKindOfProviderTheBytesAreStreamed) {
    auto const elsewhere = std::make_shared<Elsewhere>(provider_);

    EXPECT_EQ(provider_->copyFile(at("file"), StorageItem(elsewhere, at("copy")), {}),
              CopyStatus::Copied);

    EXPECT_EQ(content("copy"), "content");
}

/// What the kernel may refuse, and what the copy then does instead.
struct Fallback {
    char const* name;
    std::vector<CallFault> faults;
};

TEST_F(LocalCopies, EveryWayOfCopyingGivesTheSame) {
    Fallback const fallbacks[] = {
        {"no unnamed files", {{SYS_openat, 2, O_TMPFILE, EOPNOTSUPP}}},
        {"no copies in the kernel", {{SYS_copy_file_range, 0, 0, EXDEV}}},
        {"no call for copies in the kernel", {{SYS_copy_file_range, 0, 0, ENOSYS}}},
        {"no holes", {{SYS_lseek, 0, 0, EINVAL}}},
        {"no flags of rename",
         {{SYS_openat, 2, O_TMPFILE, EOPNOTSUPP}, {SYS_renameat2, 4, 1, EINVAL}}},
        {"no flags of rename and no hard links",
         {{SYS_openat, 2, O_TMPFILE, EOPNOTSUPP},
          {SYS_renameat2, 4, 1, EINVAL},
          {SYS_linkat, 0, 0, EPERM}}},
        {"no links of descriptors", {{SYS_linkat, 4, AT_EMPTY_PATH, ENOENT}}},
    };
    auto const check = [this](Fallback const& fallback, bool isSmall) {
        SCOPED_TRACE(fallback.name + std::string(isSmall ? ", small" : ", large"));
        makeFile("source", patterned(isSmall ? 5'000 : 3 * 1024 * 1024 + 5));
        if (!isSmall) {
            ASSERT_EQ(::truncate(path("source").c_str(), 8 * 1024 * 1024), 0);
        }
        makeFile("existing", "old");
        std::vector<std::string> expected = names();
        expected.insert(expected.begin(), "copy");

        std::string const outcome = inChild([&] {
            injectFaults(fallback.faults);
            copy("source", "copy");
            copy("source", "existing", ReplacementPolicy::ReplaceExisting);
            auto const refusal = refusalOf([&] { copy("file", "existing"); });
            return std::string(refusal && refusal->code == ErrorCode::ResourceAlreadyExists
                                   ? "copied"
                                   : "replaced");
        });

        EXPECT_EQ(outcome, "copied");
        EXPECT_TRUE(content("copy") == content("source"));
        EXPECT_TRUE(content("existing") == content("source"));
        EXPECT_EQ(names(), expected);
        ASSERT_EQ(::unlink(path("copy").c_str()), 0);
    };
    for (Fallback const& fallback : fallbacks) {
        check(fallback, false);
        check(fallback, true);
    }
}

TEST_F(LocalCopies, AKernelThatSaysItCopiedNothingIsNotTheLastWord) {
    std::string const bytes = patterned(5'000);
    makeFile("source", bytes);

    std::string const outcome = inChild([&] {
        interceptCalls(SYS_copy_file_range, 0, 0, [](auto const*) { return 0; });
        copy("source", "copy");
        return content("copy") == bytes ? std::string("whole") : content("copy");
    });

    EXPECT_EQ(outcome, "whole");
}

TEST_F(LocalCopies, ASmallFileEndsInTheFolderThatHasThePathByThen) {
    makeFile("source", "bytes");

    std::string const outcome = inChild([&] {
        interceptCalls(SYS_linkat, 0, 0, [this](auto const*) -> std::optional<long> {
            ::rename(path("folder").c_str(), path("moved").c_str());
            ::mkdir(path("folder").c_str(), 0755);
            return std::nullopt;
        });
        copy("source", "folder/copy");
        return content("folder/copy") + ' ' + std::to_string(names("moved").size());
    });

    EXPECT_EQ(outcome, "bytes 0");
}

TEST_F(LocalCopies, AFailureAtAnyCallLeavesTheOldContentAndNoTrace) {
    int const calls[] = {SYS_pread64, SYS_pwrite64, SYS_fchmod,   SYS_utimensat,
                         SYS_fcntl,   SYS_linkat,   SYS_renameat, SYS_openat};
    struct Way {
        bool withName;
        std::size_t size;
    };
    for (Way const way : {Way{false, 100'000}, {false, 5'000}, {true, 100'000}, {true, 5'000}}) {
        makeFile("source", patterned(way.size));
        for (int const call : calls) {
            for (char const* destination : {"new", "other"}) {
                SCOPED_TRACE(std::to_string(call) + " " + std::to_string(way.size));
                ASSERT_EQ(::chmod(path("source").c_str(), 0751), 0);
                std::vector<std::string> const before = names();
                std::string const outcome = inChild([&] {
                    std::vector<CallFault> faults{{SYS_copy_file_range, 0, 0, EIO},
                                                  {call, 0, 0, EIO}};
                    if (way.withName && call != SYS_openat) {
                        faults.push_back({SYS_openat, 2, O_TMPFILE, EOPNOTSUPP});
                    }
                    injectFaults(faults);
                    auto const refusal = refusalOf(
                        [&] { copy("source", destination, ReplacementPolicy::ReplaceExisting); });
                    return std::string(!refusal                              ? "done"
                                       : refusal->code == ErrorCode::IOError ? "failed"
                                                                             : "misreported");
                });

                if (outcome == "done") {
                    // This way of copying does not make the call.
                    EXPECT_TRUE(content(destination) == content("source"));
                    ASSERT_EQ(::unlink(path(destination).c_str()), 0);
                    makeFile("other", "other content");
                } else {
                    EXPECT_EQ(outcome, "failed");
                    EXPECT_EQ(names(), before);
                    EXPECT_EQ(content("other"), "other content");
                }
            }
        }
    }
}

TEST_F(LocalCopies, AFolderThatCannotBeOpenedLeavesTheOldContentAndNoTrace) {
    makeFile("source", "bytes");
    std::vector<std::string> const before = names();
    for (bool const withName : {false, true}) {
        std::string const outcome = inChild([&] {
            std::vector<CallFault> faults{{SYS_openat, 2, O_PATH, EIO}};
            if (withName) {
                faults.push_back({SYS_openat, 2, O_TMPFILE, EOPNOTSUPP});
            }
            injectFaults(faults);
            auto const refusal =
                refusalOf([&] { copy("source", "other", ReplacementPolicy::ReplaceExisting); });
            return std::string(refusal && refusal->code == ErrorCode::IOError &&
                                       refusal->location == at("other")
                                   ? "failed"
                                   : "other");
        });

        EXPECT_EQ(outcome, "failed");
        EXPECT_EQ(content("other"), "other content");
        EXPECT_EQ(names(), before);
    }
}

TEST_F(LocalCopies, AFullDiskIsReportedAndLeavesNoTrace) {
    if (!mayMount()) {
        GTEST_SKIP() << "reason: needs the right to mount";
    }
    makeFile("large", patterned(2 * 1024 * 1024));
    for (bool const withName : {false, true}) {
        std::string const outcome = inChild([&] {
            if (!mountMemory(path("folder"), "1m")) {
                return std::string("not mounted");
            }
            makeFile("folder/old", "old");
            if (withName) {
                injectFaults({{SYS_openat, 2, O_TMPFILE, EOPNOTSUPP}});
            }
            std::string codes;
            for (char const* name : {"folder/new", "folder/old"}) {
                auto const refusal =
                    refusalOf([&] { copy("large", name, ReplacementPolicy::ReplaceExisting); });
                codes += refusal && refusal->code == ErrorCode::NoSpaceLeft &&
                                 refusal->location == at(name)
                             ? "full "
                             : "other ";
            }
            return codes + content("folder/old") + ' ' + std::to_string(names("folder").size());
        });

        EXPECT_EQ(outcome, "full full old 1");
    }
}

TEST_F(LocalCopies, AFileThatIsTooLargeIsReportedAndLeavesNoTrace) {
    makeFile("large", patterned(200'000));
    std::vector<std::string> const before = names();

    std::string const outcome = inChild([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit const limit{50'000, 50'000};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        auto const refusal = refusalOf([&] { copy("large", "new"); });
        return std::string(refusal && refusal->code == ErrorCode::FileTooLarge ? "too large"
                                                                               : "other");
    });

    EXPECT_EQ(outcome, "too large");
    EXPECT_EQ(names(), before);
}

TEST_F(LocalCopies, AProcessThatIsKilledInACopyLeavesNoTrace) {
    makeFile("large", patterned(20 * 1024 * 1024));
    std::vector<std::string> const before = names();

    std::string const outcome = inChild([&] {
        copy("large", "new", {}, [](std::uint64_t done, std::optional<std::uint64_t>) {
            if (done > 0) {
                ::kill(::getpid(), SIGKILL);
            }
            return true;
        });
        return std::string("survived");
    });

    EXPECT_EQ(outcome, "died: 9");
    EXPECT_EQ(names(), before);
}

TEST_F(LocalCopies, AFolderThatDeniesWritingIsDenied) {
    ASSERT_EQ(::chmod(path("folder").c_str(), 0555), 0);

    std::string const outcome = inChild([&] {
        becomeUnprivileged();
        auto const refusal = refusalOf([&] { copy("file", "folder/new"); });
        return std::string(refusal && refusal->code == ErrorCode::PermissionDenied &&
                                   refusal->location == at("folder/new")
                               ? "denied"
                               : "other");
    });

    EXPECT_EQ(outcome, "denied");
}

TEST_F(LocalCopies, BlocksAreSharedWhereTheFileSystemCan) {
    makeFile("large", patterned(1024 * 1024));
    int const from = ::open(path("large").c_str(), O_RDONLY | O_CLOEXEC);
    int const to = ::open(path("shared").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
    bool const canShare = ::ioctl(to, FICLONE, from) == 0;
    ::close(from);
    ::close(to);
    if (!canShare) {
        GTEST_SKIP() << "reason: the file system of the temporary folder shares no blocks";
    }

    std::string const outcome = inChild([&] {
        injectFaults({{SYS_copy_file_range, 0, 0, EIO}, {SYS_pwrite64, 0, 0, EIO}});
        copy("large", "copy");
        return std::string("shared");
    });

    EXPECT_EQ(outcome, "shared");
    EXPECT_TRUE(content("copy") == content("large"));
}

} // namespace
} // namespace foundation::storage::provider::local::test
