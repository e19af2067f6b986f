#include "child_process.hpp"
#include "local_fixture.hpp"

#include <foundation/storage/provider/byte_stream_failure.hpp>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace foundation::storage::provider::local::test {
namespace {

using Access = ByteStreamAccess;
using Creation = ByteStreamCreation;

constexpr ByteStreamOpenOptions truncating{Access::ReadWrite, Creation::OpenOrCreate, 0, 1};
constexpr ByteStreamOpenOptions updating{Access::ReadWrite, Creation::OpenExisting, 1, 1};
constexpr ByteStreamOpenOptions appending{Access::ReadWrite, Creation::OpenOrCreate, 1, 0};

class LocalStreams : public LocalProviderTest {
  protected:
    LocalStreams() {
        makeFile("file", "0123456789");
        makeFolder("folder");
        makeLink("link to file", "file");
        makeLink("link to nothing", "missing");
        makeFifo("fifo");
    }
};

template<class Failure>
::testing::AssertionResult fails(std::function<void()> const& call, ErrorCode code,
                                 std::string const& text) {
    try {
        call();
    } catch (Failure const& failure) {
        if (failure.getErrorCode() == code &&
            std::string(failure.what()).find(text) != std::string::npos) {
            return ::testing::AssertionSuccess();
        }
        return ::testing::AssertionFailure() << failure.getErrorCode() << ": " << failure.what();
    }
    return ::testing::AssertionFailure() << "no failure";
}

TEST_F(LocalStreams, ReadingGivesWhatIsThereAndThenTheEnd) {
    auto const stream = provider_->openReadOnlyStream(at("link to file"));
    char buffer[8];

    EXPECT_EQ(stream->read(buffer, 0), 0);
    EXPECT_EQ(stream->read(buffer, 8), 8);
    EXPECT_EQ(std::string(buffer, 8), "01234567");
    EXPECT_EQ(stream->read(buffer, 8), 2);
    EXPECT_EQ(stream->read(buffer, 8), -1);
    EXPECT_EQ(stream->read(buffer, 0), 0);
    stream->close();
}

TEST_F(LocalStreams, AFileThatGrowsIsReadOnBehindItsEnd) {
    auto const reader = provider_->openReadOnlyStream(at("file"));
    EXPECT_EQ(readAll(*reader), "0123456789");

    auto const writer = provider_->openStream(at("file"), appending);
    writeAll(*writer, "more");

    EXPECT_EQ(readAll(*reader), "more");
}

TEST_F(LocalStreams, AReadToTheEndAsksTheKernelOnce) {
    std::string const outcome = inChild([&] {
        auto const stream = provider_->openReadOnlyStream(at("file"));
        char buffer[32];
        // Behind the ten bytes of the first read, a second one would ask for the six that are left.
        injectFaults({{SYS_read, 2, 6, EIO}});
        std::string found = std::to_string(stream->read(buffer, 16));
        stream->seek(2, std::ios_base::beg);
        injectFaults({{SYS_read, 2, 24, EIO}});
        found += ' ' + std::to_string(stream->read(buffer, 32));
        return found;
    });

    EXPECT_EQ(outcome, "10 8");
}

TEST_F(LocalStreams, AFileWhoseSizeSaysNothingIsReadToItsEnd) {
    std::ifstream expected("/proc/self/maps");
    auto const stream = provider_->openReadOnlyStream(StorageIRI(u"file:/proc/self/maps"));
    char buffer[16384];

    long const got = stream->read(buffer, sizeof buffer);

    std::string whole(std::istreambuf_iterator<char>(expected), {});
    ASSERT_GT(whole.size(), 4096U) << "the kernel gives a page at a time";
    EXPECT_GT(got, 4096);
}

TEST_F(LocalStreams, OnePositionServesReadingAndWriting) {
    auto const stream = provider_->openStream(at("file"), updating);
    char buffer[3];

    EXPECT_EQ(stream->read(buffer, 3), 3);
    writeAll(*stream, "ab");
    EXPECT_EQ(stream->seek(0, std::ios_base::cur), 5);
    EXPECT_EQ(stream->read(buffer, 3), 3);
    EXPECT_EQ(std::string(buffer, 3), "567");
    stream->close();

    EXPECT_EQ(content("file"), "012ab56789");
}

TEST_F(LocalStreams, SeekingIsCountedFromEachOfThreePlaces) {
    auto const stream = provider_->openReadOnlyStream(at("file"));

    EXPECT_EQ(stream->seek(4, std::ios_base::beg), 4);
    EXPECT_EQ(stream->seek(-1, std::ios_base::cur), 3);
    EXPECT_EQ(stream->seek(-2, std::ios_base::end), 8);
    EXPECT_EQ(stream->seek(90, std::ios_base::end), 100);
    char byte;
    EXPECT_EQ(stream->read(&byte, 1), -1);
}

TEST_F(LocalStreams, ASeekBeforeTheStartIsRefusedAndChangesNothing) {
    auto const stream = provider_->openReadOnlyStream(at("file"));
    stream->seek(4, std::ios_base::beg);

    EXPECT_TRUE(fails<ByteStreamSeekFailure>([&] { stream->seek(-5, std::ios_base::cur); },
                                             ErrorCode::InvalidLocation, "Invalid argument"));
    EXPECT_EQ(stream->seek(0, std::ios_base::cur), 4);
    stream->close();
}

TEST_F(LocalStreams, WritingBehindTheEndLeavesAHole) {
    auto const stream = provider_->openStream(at("file"), updating);
    stream->seek(12, std::ios_base::beg);
    writeAll(*stream, "x");
    stream->close();

    EXPECT_EQ(content("file"), std::string("0123456789\0\0x", 13));
}

TEST_F(LocalStreams, PositionsBeyondFourGiBWork) {
    constexpr long far = (5L << 30) + 7;
    auto const stream = provider_->openStream(at("big"), truncating);
    EXPECT_EQ(stream->seek(far, std::ios_base::beg), far);
    writeAll(*stream, "end");

    EXPECT_EQ(stream->seek(-3, std::ios_base::end), far);
    char buffer[4];
    EXPECT_EQ(stream->read(buffer, 4), 3);
    EXPECT_EQ(std::string(buffer, 3), "end");
    stream->close();
    EXPECT_EQ(provider_->getFileAttributes(at("big")).values().size, std::uint64_t{far} + 3);
}

struct OpenCase {
    ByteStreamOpenOptions options;
    char const* contentAfterX; ///< of the existing file, once "x" has been written
    bool createsMissing;
    bool reads;
};

// The combinations that the standard's open modes lead to.
constexpr OpenCase openCases[] = {
    {{Access::WriteOnly, Creation::OpenExisting, 1, 1}, "x123456789", false, false},
    {{Access::ReadWrite, Creation::OpenExisting, 1, 1}, "x123456789", false, true},
    {{Access::WriteOnly, Creation::OpenOrCreate, 1, 0}, "0123456789x", true, false},
    {{Access::ReadWrite, Creation::OpenOrCreate, 1, 0}, "0123456789x", true, true},
    {{Access::WriteOnly, Creation::OpenOrCreate, 0, 1}, "x", true, false},
    {{Access::ReadWrite, Creation::OpenOrCreate, 0, 1}, "x", true, true},
    {{Access::WriteOnly, Creation::OpenOrCreate, 1, 1}, "x123456789", true, false},
    {{Access::ReadWrite, Creation::OpenExisting, 0, 1}, "x", false, true},
};

TEST_F(LocalStreams, EveryCombinationOfOptionsDoesWhatItSays) {
    for (OpenCase const& expected : openCases) {
        SCOPED_TRACE(&expected - openCases);
        makeFile("existing", "0123456789");
        auto const stream = provider_->openStream(at("existing"), expected.options);
        writeAll(*stream, "x");
        stream->seek(0, std::ios_base::beg);
        char byte = 0;
        if (expected.reads) {
            EXPECT_EQ(stream->read(&byte, 1), 1);
            EXPECT_EQ(byte, expected.contentAfterX[0]);
        } else {
            EXPECT_TRUE(fails<ByteStreamReadFailure>(
                [&] { stream->read(&byte, 1); }, ErrorCode::PermissionDenied, "Permission denied"));
        }
        stream->close();
        EXPECT_EQ(content("existing"), expected.contentAfterX);

        auto const refusal = refusalOf([&] {
            auto const made = provider_->openStream(at("new"), expected.options);
            writeAll(*made, "y");
            made->close();
        });
        if (expected.createsMissing) {
            EXPECT_FALSE(refusal);
            EXPECT_EQ(content("new"), "y");
            provider_->removeFile(at("new"));
        } else {
            ASSERT_TRUE(refusal);
            EXPECT_EQ(refusal->code, ErrorCode::ResourceNotFound);
            EXPECT_FALSE(isThere("new"));
        }
    }
}

TEST_F(LocalStreams, AppendingGoesToTheEndWhereverThePositionIs) {
    auto const first = provider_->openStream(at("file"), appending);
    auto const second = provider_->openStream(at("file"), appending);

    first->seek(0, std::ios_base::beg);
    writeAll(*first, "A");
    writeAll(*second, "B");
    first->seek(2, std::ios_base::beg);
    writeAll(*first, "C");

    EXPECT_EQ(first->seek(0, std::ios_base::cur), 13);
    EXPECT_EQ(content("file"), "0123456789ABC");
}

TEST_F(LocalStreams, WritingToAStreamForReadingIsRefusedAndPoisonsIt) {
    auto const stream = provider_->openReadOnlyStream(at("file"));
    char byte;

    EXPECT_TRUE(fails<ByteStreamWriteFailure>([&] { stream->write("x", 1); },
                                              ErrorCode::PermissionDenied, "Permission denied"));
    EXPECT_TRUE(fails<ByteStreamReadFailure>([&] { stream->read(&byte, 1); },
                                             ErrorCode::PermissionDenied, "Permission denied"));
    EXPECT_TRUE(fails<ByteStreamSeekFailure>([&] { stream->seek(0, std::ios_base::beg); },
                                             ErrorCode::PermissionDenied, "Permission denied"));
    EXPECT_TRUE(fails<ByteStreamCloseFailure>([&] { stream->close(); }, ErrorCode::PermissionDenied,
                                              "Permission denied"));
    EXPECT_EQ(content("file"), "0123456789");
}

TEST_F(LocalStreams, AClosedStreamFailsInEveryCall) {
    auto const stream = provider_->openStream(at("file"), updating);
    stream->close();
    char byte;

    EXPECT_THROW(stream->read(&byte, 1), ByteStreamReadFailure);
    EXPECT_THROW(stream->write("x", 1), ByteStreamWriteFailure);
    EXPECT_THROW(stream->seek(0, std::ios_base::beg), ByteStreamSeekFailure);
    EXPECT_TRUE(fails<ByteStreamCloseFailure>([&] { stream->close(); }, ErrorCode::InternalError,
                                              "the stream is closed"));
    EXPECT_EQ(content("file"), "0123456789");
}

TEST_F(LocalStreams, ANegativeCountIsRefused) {
    auto const stream = provider_->openStream(at("file"), updating);
    char byte = 0;

    EXPECT_THROW(stream->read(&byte, -1), ByteStreamReadFailure);
    EXPECT_THROW(stream->write(&byte, -1), ByteStreamWriteFailure);
}

TEST_F(LocalStreams, AFileThatReachesItsLimitPoisonsTheStream) {
    std::string const outcome = inChild([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit const limit{100, 100};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        auto const stream = provider_->openStream(at("file"), truncating);
        std::string const bytes(150, 'b');
        bool const first = bool(fails<ByteStreamWriteFailure>(
            [&] { stream->write(bytes.data(), 150); }, ErrorCode::FileTooLarge, "File too large"));
        bool const second = bool(fails<ByteStreamWriteFailure>(
            [&] { stream->write("b", 1); }, ErrorCode::FileTooLarge, "File too large"));
        bool const closing = bool(fails<ByteStreamCloseFailure>(
            [&] { stream->close(); }, ErrorCode::FileTooLarge, "File too large"));
        return std::string(first && second && closing ? "poisoned" : "not poisoned");
    });

    EXPECT_EQ(outcome, "poisoned");
    EXPECT_EQ(content("file").size(), 100U);
}

TEST_F(LocalStreams, SignalsDoNotDisturbLargeReadsAndWrites) {
    std::string const bytes(3 * 1024 * 1024, 'q');
    makeFile("large", bytes);
    struct sigaction action {};
    action.sa_handler = [](int) {};
    struct sigaction old {};
    ASSERT_EQ(::sigaction(SIGUSR1, &action, &old), 0);
    pthread_t const reader = ::pthread_self();
    std::atomic<bool> done = false;
    std::thread disturber([&] {
        while (!done) {
            ::pthread_kill(reader, SIGUSR1);
            std::this_thread::yield();
        }
    });

    auto const from = provider_->openReadOnlyStream(at("large"));
    auto const to = provider_->openStream(at("copy"), truncating);
    std::string got(bytes.size() + 1, '\0');
    long const count = from->read(got.data(), static_cast<long>(got.size()));
    long const put = to->write(bytes.data(), static_cast<long>(bytes.size()));
    done = true;
    disturber.join();
    ::sigaction(SIGUSR1, &old, nullptr);

    EXPECT_EQ(count, static_cast<long>(bytes.size()));
    EXPECT_EQ(put, static_cast<long>(bytes.size()));
    EXPECT_EQ(content("copy"), bytes);
}

TEST_F(LocalStreams, AReadErrorIsReportedWithItsReason) {
    std::string const outcome = inChild([&] {
        auto const stream = provider_->openReadOnlyStream(at("file"));
        injectFaults({{SYS_read, 0, 0, EIO}});
        char byte;
        return std::string(fails<ByteStreamReadFailure>([&] { stream->read(&byte, 1); },
                                                        ErrorCode::IOError, "Input/output error")
                               ? "reported"
                               : "not reported");
    });

    EXPECT_EQ(outcome, "reported");
}

TEST_F(LocalStreams, AFailedCloseIsReportedOnceAndReleasesTheDescriptor) {
    std::string const outcome = inChild([&] {
        auto const stream = provider_->openStream(at("file"), updating);
        injectFaults({{SYS_close, 0, 0, EIO}});
        bool const first = bool(fails<ByteStreamCloseFailure>(
            [&] { stream->close(); }, ErrorCode::IOError, "Input/output error"));
        bool const second = bool(fails<ByteStreamCloseFailure>(
            [&] { stream->close(); }, ErrorCode::IOError, "Input/output error"));
        return std::string(first && second ? "reported" : "not reported");
    });

    EXPECT_EQ(outcome, "reported");
}

TEST_F(LocalStreams, FoldersAreNotOpened) {
    EXPECT_TRUE(isRefused([&] { provider_->openReadOnlyStream(at("folder")); },
                          ErrorCode::InvalidLocation, at("folder")));
    for (OpenCase const& any : openCases) {
        EXPECT_TRUE(isRefused([&] { provider_->openStream(at("folder"), any.options); },
                              ErrorCode::InvalidLocation, at("folder")));
    }
}

TEST_F(LocalStreams, WhatIsNotThereIsNotOpened) {
    for (char const* name : {"missing", "missing/child", "file/child", "link to nothing"}) {
        EXPECT_TRUE(isRefused([&] { provider_->openReadOnlyStream(at(name)); },
                              ErrorCode::ResourceNotFound, at(name)));
        EXPECT_TRUE(isRefused([&] { provider_->openStream(at(name), updating); },
                              ErrorCode::ResourceNotFound, at(name)));
    }
    EXPECT_TRUE(isRefused([&] { provider_->openStream(at("missing/child"), truncating); },
                          ErrorCode::ResourceNotFound, at("missing/child")));
}

TEST_F(LocalStreams, ALinkThatLeadsNowhereIsCreatedThrough) {
    auto const stream = provider_->openStream(at("link to nothing"), truncating);
    writeAll(*stream, "through");
    stream->close();

    EXPECT_EQ(content("missing"), "through");
}

TEST_F(LocalStreams, ALinkIntoAMissingFolderCreatesNothing) {
    makeLink("link to nowhere", "missing/file");

    EXPECT_TRUE(isRefused([&] { provider_->openStream(at("link to nowhere"), truncating); },
                          ErrorCode::ResourceNotFound, at("link to nowhere")));
}

TEST_F(LocalStreams, AnExistingFileIsOpenedWithoutAskingForANewOne) {
    // In a folder like /tmp the kernel may refuse O_CREAT for a file of somebody else.
    std::string const outcome = inChild([&] {
        injectFaults({{SYS_openat, 2, O_CREAT, EACCES}});
        auto const stream = provider_->openStream(at("file"), truncating);
        writeAll(*stream, "new");
        stream->close();
        return content("file");
    });

    EXPECT_EQ(outcome, "new");
}

TEST_F(LocalStreams, AFileThatGoesWhileItIsOpenedIsMadeAgain) {
    std::string const outcome = inChild([&] {
        interceptCalls(SYS_openat, 2, O_NOCTTY, [&](auto const* arguments) -> std::optional<long> {
            if ((arguments[2] & O_CREAT) == 0) {
                ::unlink(path("file").c_str());
            }
            return std::nullopt;
        });
        auto const refusal = refusalOf([&] { provider_->openStream(at("file"), updating); });
        auto const stream = provider_->openStream(at("other"), truncating);
        stream->close();
        makeFile("file", "0123456789");
        provider_->openStream(at("file"), appending)->close();
        return std::string(refusal && refusal->code == ErrorCode::ResourceNotFound ? "missing "
                                                                                   : "opened ") +
               std::to_string(status("file").st_size);
    });

    EXPECT_EQ(outcome, "missing 0");
}

TEST_F(LocalStreams, WhatALinkLeadsToMeanwhileIsAFileLikeAnyOther) {
    for (mode_t const mode : {0644U, 0444U}) {
        std::string const outcome = inChild([&] {
            ::unlink(path("missing").c_str());
            interceptCalls(SYS_openat, 2, O_CREAT | O_NOCTTY,
                           [&](auto const* arguments) -> std::optional<long> {
                               if ((arguments[2] & O_EXCL) == 0) {
                                   makeFile("missing", "theirs", mode);
                               }
                               return std::nullopt;
                           });
            auto const refusal =
                refusalOf([&] { provider_->openStream(at("link to nothing"), truncating); });
            return std::string(refusal ? "refused: " : "opened: ") + content("missing");
        });

        EXPECT_EQ(outcome, mode == 0644 ? "opened: " : "refused: theirs");
    }
}

TEST_F(LocalStreams, FifosAndDevicesAreRefusedWithoutBeingOpened) {
    makeLink("link to fifo", "fifo");
    StorageIRI const device(u"file:///dev/null");
    for (StorageIRI const& location : {at("fifo"), at("link to fifo"), device}) {
        EXPECT_TRUE(isRefused([&] { provider_->openReadOnlyStream(location); },
                              ErrorCode::UnsupportedOperation, location));
        EXPECT_TRUE(isRefused([&] { provider_->openStream(location, truncating); },
                              ErrorCode::UnsupportedOperation, location));
    }
}

TEST_F(LocalStreams, AFifoIsNotEvenOpenedForAMoment) {
    // Opening alone would let a waiting writer through, and closing again would kill it.
    int const watch = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_GE(::inotify_add_watch(watch, path("fifo").c_str(), IN_OPEN), 0);

    refusalOf([&] { provider_->openReadOnlyStream(at("fifo")); });
    refusalOf([&] { provider_->openStream(at("fifo"), truncating); });
    refusalOf([&] { copy("fifo", "copy"); });
    refusalOf([&] { copy("file", "fifo", ReplacementPolicy::ReplaceExisting); });

    char event[512];
    EXPECT_EQ(::read(watch, event, sizeof event), -1);
    EXPECT_EQ(errno, EAGAIN);
    ::close(watch);
}

TEST_F(LocalStreams, AReadOnlyFileIsNotOpenedForWritingEvenByTheSuperUser) {
    makeFile("protected", "kept", 0444);
    makeFile("for others only", "kept", 0466);

    for (char const* name : {"protected", "for others only"}) {
        for (OpenCase const& any : openCases) {
            EXPECT_TRUE(isRefused([&] { provider_->openStream(at(name), any.options); },
                                  ErrorCode::PermissionDenied, at(name)));
        }
        EXPECT_EQ(content(name), "kept");
    }
    EXPECT_EQ(readAll(*provider_->openReadOnlyStream(at("protected"))), "kept");
}

TEST_F(LocalStreams, AFileThatDeniesReadingIsDenied) {
    makeFile("secret", "secret", 0600);
    std::string const outcome = inChild([&] {
        becomeUnprivileged();
        if (::geteuid() == status("secret").st_uid) {
            ::chmod(path("secret").c_str(), 0000);
        }
        auto const refusal = refusalOf([&] { provider_->openReadOnlyStream(at("secret")); });
        return std::string(refusal && refusal->code == ErrorCode::PermissionDenied ? "denied"
                                                                                   : "opened");
    });

    EXPECT_EQ(outcome, "denied");
}

TEST_F(LocalStreams, ARunningProgramIsInUse) {
    std::string const program = path("program");
    ASSERT_EQ(std::system(("cp /bin/sleep '" + program + "'").c_str()), 0);
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    pid_t const child = ::fork();
    if (child == 0) {
        ::execl(program.c_str(), program.c_str(), "60", nullptr);
        ::_exit(1);
    }
    ::close(ends[1]);
    char byte;
    ASSERT_EQ(::read(ends[0], &byte, 1), 0); // exec has closed the other end

    EXPECT_TRUE(isRefused([&] { provider_->openStream(at("program"), updating); },
                          ErrorCode::ResourceInUse, at("program")));
    ::close(ends[0]);
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
}

TEST_F(LocalStreams, AStreamOutlivesItsProvider) {
    auto const stream = provider_->openReadOnlyStream(at("file"));
    provider_.reset();

    EXPECT_EQ(readAll(*stream), "0123456789");
}

TEST_F(LocalStreams, StreamsThatAreDroppedReleaseTheirDescriptor) {
    std::size_t const before = openDescriptors();
    for (int i = 0; i < 10; ++i) {
        auto const stream = provider_->openStream(at("file"), updating);
        if (i % 2 == 0) {
            stream->close();
        }
    }

    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(LocalStreams, DescriptorsAreNotPassedOnToPrograms) {
    auto const stream = provider_->openReadOnlyStream(at("file"));
    auto const other = provider_->openStream(at("file"), updating);
    int found = 0;
    for (int number = 3; number < 256; ++number) {
        int const flags = ::fcntl(number, F_GETFD);
        std::string target(4096, '\0');
        ssize_t const size = ::readlink(("/proc/self/fd/" + std::to_string(number)).c_str(),
                                        target.data(), target.size());
        target.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
        if (target == path("file")) {
            EXPECT_NE(flags & FD_CLOEXEC, 0);
            ++found;
        }
    }

    EXPECT_EQ(found, 2);
}

} // namespace
} // namespace foundation::storage::provider::local::test
