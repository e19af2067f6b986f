#include "allocation_failure.hpp"
#include "child_process.hpp"
#include "local_fixture.hpp"

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <grp.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace foundation::storage::provider::local::test {
namespace {

class LocalReplacements : public LocalProviderTest {
  protected:
    LocalReplacements() {
        makeFile("file", "old");
        makeFolder("folder");
    }

    std::unique_ptr<ByteStream>
    replace(std::string_view name,
            ReplacementPolicy policy = ReplacementPolicy::ReplaceExisting) const {
        auto* const replacing = dynamic_cast<extensions::IReplacingStreams*>(provider_.get());
        return replacing->openReplacement(at(name), policy);
    }
};

::testing::AssertionResult closingFails(ByteStream& stream, ErrorCode code) {
    try {
        stream.close();
    } catch (ByteStreamCloseFailure const& failure) {
        return failure.getErrorCode() == code
                   ? ::testing::AssertionSuccess()
                   : ::testing::AssertionFailure() << failure.getErrorCode();
    }
    return ::testing::AssertionFailure() << "no failure";
}

/// The same on a file system that has unnamed files, and on one that has not.
void onBothKindsOfFileSystem(std::function<std::string()> const& work,
                             std::string const& expected) {
    for (bool const unnamed : {true, false}) {
        SCOPED_TRACE(unnamed ? "unnamed files" : "temporary names");
        EXPECT_EQ(inChild([&] {
                      if (!unnamed) {
                          injectFaults({{SYS_openat, 2, O_TMPFILE, EOPNOTSUPP}});
                      }
                      return work();
                  }),
                  expected);
    }
}

TEST_F(LocalReplacements, TheOldContentStandsUntilTheStreamIsClosed) {
    onBothKindsOfFileSystem(
        [&] {
            makeFile("file", "old");
            auto const stream = replace("file");
            writeAll(*stream, "new");
            std::string seen = content("file");
            stream->close();
            return seen + ' ' + content("file") + ' ' + std::to_string(names().size());
        },
        "old new 2");
}

TEST_F(LocalReplacements, ANewNameIsNotThereUntilTheStreamIsClosed) {
    onBothKindsOfFileSystem(
        [&] {
            ::unlink(path("new").c_str());
            auto const stream = replace("new", ReplacementPolicy::FailIfExists);
            writeAll(*stream, "new");
            std::string seen = isThere("new") ? "there " : "absent ";
            stream->close();
            return seen + content("new") + ' ' + std::to_string(names().size());
        },
        "absent new 3");
}

TEST_F(LocalReplacements, AStreamThatIsDroppedLeavesNoTrace) {
    onBothKindsOfFileSystem(
        [&] {
            for (char const* name : {"file", "new"}) {
                auto const stream = replace(name);
                writeAll(*stream, "never seen");
            }
            return content("file") + ' ' + std::to_string(names().size());
        },
        "old 2");
}

TEST_F(LocalReplacements, TheStreamReadsAndSeeksInWhatItWrote) {
    auto const stream = replace("file");
    writeAll(*stream, "0123456789");
    EXPECT_EQ(stream->seek(2, std::ios_base::beg), 2);
    writeAll(*stream, "ab");
    stream->seek(0, std::ios_base::beg);

    EXPECT_EQ(readAll(*stream), "01ab456789");
    stream->close();
    EXPECT_EQ(content("file"), "01ab456789");
}

TEST_F(LocalReplacements, AReplacedFileKeepsItsModeAndANewOneHonoursTheUmask) {
    ASSERT_EQ(::chmod(path("file").c_str(), 0751), 0);
    onBothKindsOfFileSystem(
        [&] {
            ::umask(0027);
            ::unlink(path("new").c_str());
            replace("file")->close();
            replace("new")->close();
            char text[32];
            std::snprintf(text, sizeof text, "%o %o", status("file").st_mode & 07777,
                          status("new").st_mode & 07777);
            return std::string(text);
        },
        "751 640");
}

TEST_F(LocalReplacements, AReplacedFileKeepsItsOwnerWherePossible) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "reason: only the super-user can make a file of another owner";
    }
    ASSERT_EQ(::chown(path("file").c_str(), 12345, 54321), 0);
    ASSERT_EQ(::chmod(path("file").c_str(), 06755), 0);

    replace("file")->close();

    EXPECT_EQ(status("file").st_uid, 12345U);
    EXPECT_EQ(status("file").st_gid, 54321U);
    EXPECT_EQ(status("file").st_mode & 07777, 06755U);
}

TEST_F(LocalReplacements, WhoMayNotGiveFilesAwayKeepsNoSetIdBits) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "reason: only the super-user can make a file of another owner";
    }
    ASSERT_EQ(::chmod(path("file").c_str(), 06755), 0);

    std::string const outcome = inChild([&] {
        becomeUnprivileged();
        replace("file")->close();
        return std::string("replaced");
    });

    EXPECT_EQ(outcome, "replaced");
    EXPECT_EQ(status("file").st_uid, 65534U);
    EXPECT_EQ(status("file").st_mode & 07777, 0755U);
}

TEST_F(LocalReplacements, AGroupThatCannotBeKeptGainsNothing) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "reason: only the super-user can make a file of another owner";
    }
    ASSERT_EQ(::chmod(path("file").c_str(), 02664), 0);

    std::string const outcome = inChild([&] {
        becomeUnprivileged();
        replace("file")->close();
        return std::string("replaced");
    });

    EXPECT_EQ(outcome, "replaced");
    EXPECT_EQ(status("file").st_gid, 65534U);
    EXPECT_EQ(status("file").st_mode & 07777, 0644U);
}

TEST_F(LocalReplacements, AGroupIsKeptWhereTheOwnerCannotBe) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "reason: only the super-user can make a file of another owner";
    }
    gid_t const shared = 12345;
    ASSERT_EQ(::chown(path("file").c_str(), 0, shared), 0);
    ASSERT_EQ(::chmod(path("file").c_str(), 06670), 0);

    std::string const outcome = inChild([&] {
        if (::setgroups(1, &shared) != 0 || ::setresgid(65534, 65534, 65534) != 0 ||
            ::setresuid(65534, 65534, 65534) != 0) {
            return std::string("still privileged");
        }
        replace("file")->close();
        return std::string("replaced");
    });

    EXPECT_EQ(outcome, "replaced");
    EXPECT_EQ(status("file").st_uid, 65534U);
    EXPECT_EQ(status("file").st_gid, shared);
    EXPECT_EQ(status("file").st_mode & 07777, 02670U);
}

TEST_F(LocalReplacements, ThePolicyIsCheckedAtOnce) {
    makeFile("protected", "kept", 0444);
    makeFifo("fifo");
    for (ReplacementPolicy const policy :
         {ReplacementPolicy::FailIfExists, ReplacementPolicy::KeepExisting}) {
        for (char const* name : {"file", "protected", "folder", "fifo"}) {
            EXPECT_TRUE(isRefused([&] { replace(name, policy); }, ErrorCode::ResourceAlreadyExists,
                                  at(name)));
        }
    }
    for (ReplacementPolicy const policy :
         {ReplacementPolicy::ReplaceExisting, ReplacementPolicy::ReplaceReadOnly}) {
        EXPECT_TRUE(isRefused([&] { replace("protected", policy); }, ErrorCode::PermissionDenied,
                              at("protected")));
        EXPECT_TRUE(isRefused([&] { replace("folder", policy); }, ErrorCode::InvalidLocation,
                              at("folder")));
        EXPECT_TRUE(isRefused([&] { replace("fifo", policy); }, ErrorCode::UnsupportedOperation,
                              at("fifo")));
    }
    EXPECT_TRUE(
        isRefused([&] { replace("missing/new"); }, ErrorCode::ResourceNotFound, at("missing/new")));
    EXPECT_EQ(content("protected"), "kept");
}

TEST_F(LocalReplacements, WhatAppearedMeanwhileIsNotReplacedAndPublishingCanBeTriedAgain) {
    onBothKindsOfFileSystem(
        [&] {
            ::unlink(path("new").c_str());
            auto const stream = replace("new", ReplacementPolicy::FailIfExists);
            writeAll(*stream, "mine");
            makeFile("new", "theirs");
            bool const refused = bool(closingFails(*stream, ErrorCode::ResourceAlreadyExists)) &&
                                 bool(closingFails(*stream, ErrorCode::ResourceAlreadyExists)) &&
                                 content("new") == "theirs";
            ::unlink(path("new").c_str());
            stream->close();
            return std::string(refused ? "refused " : "replaced ") + content("new") + ' ' +
                   std::to_string(names().size());
        },
        "refused mine 3");
}

TEST_F(LocalReplacements, WhatBecameReadOnlyMeanwhileIsNotReplaced) {
    onBothKindsOfFileSystem(
        [&] {
            makeFile("file", "old", 0444);
            ::chmod(path("file").c_str(), 0644);
            auto const stream = replace("file");
            writeAll(*stream, "new");
            ::chmod(path("file").c_str(), 0444);
            bool const refused = bool(closingFails(*stream, ErrorCode::PermissionDenied)) &&
                                 content("file") == "old";
            ::chmod(path("file").c_str(), 0644);
            stream->close();
            return std::string(refused ? "refused " : "replaced ") + content("file");
        },
        "refused new");
}

TEST_F(LocalReplacements, WhatAppearedMeanwhileIsReplacedWhereThePolicySaysSo) {
    onBothKindsOfFileSystem(
        [&] {
            ::unlink(path("new").c_str());
            auto const stream = replace("new");
            writeAll(*stream, "mine");
            makeFile("new", "theirs", 0600);
            stream->close();
            return content("new") + ' ' + std::to_string(names().size()) + ' ' +
                   std::to_string(status("new").st_mode & 0777);
        },
        "mine 3 384");
}

TEST_F(LocalReplacements, AFailedStepOfPublishingCanBeTriedAgain) {
    std::string const outcome = inChild([&] {
        auto const stream = replace("file");
        writeAll(*stream, "new");
        injectFaults({{SYS_renameat, 0, 0, EIO}});
        bool const failed = bool(closingFails(*stream, ErrorCode::IOError)) &&
                            bool(closingFails(*stream, ErrorCode::IOError));
        return std::string(failed ? "failed " : "published ") + content("file");
    });

    EXPECT_EQ(outcome, "failed old");
    EXPECT_EQ(names().size(), 2U);
}

TEST_F(LocalReplacements, AFailedWriteIsNeverPublished) {
    onBothKindsOfFileSystem(
        [&] {
            std::signal(SIGXFSZ, SIG_IGN);
            rlimit const limit{100, 100};
            ::setrlimit(RLIMIT_FSIZE, &limit);
            auto const stream = replace("file");
            std::string const bytes(150, 'b');
            bool failed = false;
            try {
                writeAll(*stream, bytes);
            } catch (ByteStreamWriteFailure const&) {
                failed = true;
            }
            failed = failed && closingFails(*stream, ErrorCode::FileTooLarge) &&
                     closingFails(*stream, ErrorCode::FileTooLarge);
            return std::string(failed ? "failed " : "published ") + content("file");
        },
        "failed old");
    EXPECT_EQ(names().size(), 2U);
}

TEST_F(LocalReplacements, WhatTheFileSystemKeptBackIsAskedForBeforePublishing) {
    std::string const outcome = inChild([&] {
        auto const stream = replace("file");
        writeAll(*stream, "new");
        injectFaults({{SYS_close, 0, 0, EIO}});
        bool const failed = bool(closingFails(*stream, ErrorCode::IOError)) &&
                            bool(closingFails(*stream, ErrorCode::IOError));
        return std::string(failed ? "failed " : "published ") + content("file");
    });

    EXPECT_EQ(outcome, "failed old");
}

TEST_F(LocalReplacements, AnInterruptedQuestionForWhatWasKeptBackIsAskedAgain) {
    std::string const outcome = inChild([&] {
        auto const stream = replace("file");
        writeAll(*stream, "new");
        interceptCalls(SYS_close, 0, 0, [calls = 0](auto const*) mutable -> std::optional<long> {
            return calls++ == 0 ? -EINTR : -EIO;
        });
        bool const failed = bool(closingFails(*stream, ErrorCode::IOError));
        return std::string(failed ? "failed " : "published ") + content("file");
    });

    EXPECT_EQ(outcome, "failed old");
}

TEST_F(LocalReplacements, RunningOutOfDescriptorsLeavesClosingToBeTriedAgain) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer needs a descriptor of its own to look at an object";
#endif
    std::string const outcome = inChild([&] {
        auto const stream = replace("file");
        writeAll(*stream, "new");
        rlimit limit{};
        ::getrlimit(RLIMIT_NOFILE, &limit);
        rlimit const none{3, limit.rlim_max}; // the three standard ones are open
        ::setrlimit(RLIMIT_NOFILE, &none);
        bool const failed = bool(closingFails(*stream, ErrorCode::InternalError));
        ::setrlimit(RLIMIT_NOFILE, &limit);
        std::string const before = content("file");
        stream->close();
        return std::string(failed ? "failed " : "published ") + before + ' ' + content("file");
    });

    EXPECT_EQ(outcome, "failed old new");
}

TEST_F(LocalReplacements, WhatIsWrittenAfterAFailedCloseIsAskedForToo) {
    std::string const outcome = inChild([&] {
        auto const stream = replace("new", ReplacementPolicy::FailIfExists);
        writeAll(*stream, "mine");
        makeFile("new", "theirs");
        bool const refused = bool(closingFails(*stream, ErrorCode::ResourceAlreadyExists));
        ::unlink(path("new").c_str());
        writeAll(*stream, " and more");
        injectFaults({{SYS_close, 0, 0, EIO}});
        bool const failed = bool(closingFails(*stream, ErrorCode::IOError));
        return std::string(refused && failed && !isThere("new") ? "failed" : "published");
    });

    EXPECT_EQ(outcome, "failed");
}

TEST_F(LocalReplacements, WithoutMemoryClosingFailsBeforeItsEffectOrNotAtAll) {
    onBothKindsOfFileSystem(
        [&] {
            for (std::size_t before = 0;; ++before) {
                makeFile("file", "old");
                auto const stream = replace("file");
                writeAll(*stream, "new");
                bool closed = false;
                bool failed = false;
                try {
                    AllocationFailure const failure(before, failed);
                    stream->close();
                    closed = true;
                } catch (std::exception const&) {
                }
                if (content("file") != (closed ? "new" : "old")) {
                    return "half an effect at allocation " + std::to_string(before);
                }
                if (!failed) {
                    return std::string("all or nothing");
                }
            }
        },
        "all or nothing");
}

TEST_F(LocalReplacements, AClosedStreamFailsInEveryCall) {
    auto const stream = replace("file");
    stream->close();
    char byte;

    EXPECT_THROW(stream->read(&byte, 1), ByteStreamReadFailure);
    EXPECT_THROW(stream->write("x", 1), ByteStreamWriteFailure);
    EXPECT_THROW(stream->seek(0, std::ios_base::beg), ByteStreamSeekFailure);
    EXPECT_TRUE(closingFails(*stream, ErrorCode::InternalError));
}

TEST_F(LocalReplacements, AFolderThatIsRenamedKeepsItsReplacement) {
    onBothKindsOfFileSystem(
        [&] {
            makeFolder("before");
            auto const stream = replace("before/new");
            writeAll(*stream, "new");
            ::rename(path("before").c_str(), path("after").c_str());
            stream->close();
            std::string result = content("after/new");
            ::unlink(path("after/new").c_str());
            ::rmdir(path("after").c_str());
            return result;
        },
        "new");
}

TEST_F(LocalReplacements, ALinkIsReplacedAndNotItsTarget) {
    makeLink("link", "file");
    auto const stream = replace("link");
    writeAll(*stream, "new");
    stream->close();

    EXPECT_TRUE(S_ISREG(status("link").st_mode));
    EXPECT_EQ(content("link"), "new");
    EXPECT_EQ(content("file"), "old");
}

TEST_F(LocalReplacements, NewContentIsNobodyElsesToReadBeforeItIsThere) {
    ASSERT_EQ(::chmod(path("file").c_str(), 0600), 0);
    std::string const outcome = inChild([&] {
        injectFaults({{SYS_openat, 2, O_TMPFILE, EOPNOTSUPP}});
        auto const stream = replace("file");
        for (std::string const& name : names()) {
            if (name.starts_with('.')) {
                return std::to_string(status(name).st_mode & 0777);
            }
        }
        return std::string("no temporary file");
    });

    EXPECT_EQ(outcome, std::to_string(0600));
}

TEST_F(LocalReplacements, AFullDiskIsReportedAndPoisons) {
    if (!mayMount()) {
        GTEST_SKIP() << "reason: needs the right to mount";
    }
    onBothKindsOfFileSystem(
        [&] {
            if (!mountMemory(path("folder"), "1m")) {
                return std::string("not mounted");
            }
            makeFile("folder/file", "old");
            auto const stream = replace("folder/file");
            std::string const bytes(2 * 1024 * 1024, 'b');
            std::string result;
            try {
                writeAll(*stream, bytes);
            } catch (ByteStreamWriteFailure const& failure) {
                result = failure.what();
            }
            bool const closed = bool(closingFails(*stream, ErrorCode::NoSpaceLeft));
            return result + (closed ? ", not published, " : ", published, ") +
                   content("folder/file");
        },
        "write: No space left on device, not published, old");
}

TEST_F(LocalReplacements, DescriptorsAreReleased) {
    std::size_t const before = openDescriptors();
    for (int i = 0; i < 4; ++i) {
        auto const stream = replace("file");
        if (i % 2 == 0) {
            stream->close();
        }
    }

    EXPECT_EQ(openDescriptors(), before);
}

} // namespace
} // namespace foundation::storage::provider::local::test
