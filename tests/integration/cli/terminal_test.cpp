#include "command_run.hpp"

#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace cli_test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

// A terminal, of which the command gets one end.
class Terminal {
  public:
    Terminal() {
        winsize const size{24, 60, 0, 0};
        EXPECT_EQ(::openpty(&master_, &slave_, nullptr, nullptr, &size), 0);
        ::fcntl(master_, F_SETFD, FD_CLOEXEC);
        ::fcntl(slave_, F_SETFD, FD_CLOEXEC);
    }
    ~Terminal() {
        ::close(master_);
        ::close(slave_);
    }
    int slave() const { return slave_; }
    // What has come out within the time.
    std::string read(int milliseconds) {
        std::string text;
        pollfd ready{master_, POLLIN, 0};
        while (::poll(&ready, 1, milliseconds) == 1 && (ready.revents & POLLIN) != 0) {
            char buffer[4096];
            ssize_t const count = ::read(master_, buffer, sizeof buffer);
            if (count <= 0) {
                break;
            }
            text.append(buffer, static_cast<std::size_t>(count));
            milliseconds = 0;
        }
        return text;
    }

  private:
    int master_ = -1;
    int slave_ = -1;
};

TEST(CommandOnATerminal, ShowsProgressOfLongWorkAndWipesItAway) {
    TemporaryFolder folder;
    Terminal terminal;
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    Process process = CommandRun::vfs({"put", "long.bin"})
                          .in(folder.path())
                          .inputFrom(ends[0])
                          .errorsTo(terminal.slave())
                          .start();
    ::close(ends[0]);

    // Bytes trickle until the line is there; the deadline only ends a test that has failed.
    std::string seen;
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (seen.find("/s") == std::string::npos && std::chrono::steady_clock::now() < deadline) {
        ASSERT_EQ(::write(ends[1], "bytes", 5), 5);
        seen += terminal.read(20);
    }
    ::close(ends[1]);
    Outcome const outcome = process.wait();
    seen += terminal.read(1000);

    EXPECT_EQ(outcome.code, 0);
    EXPECT_THAT(seen, HasSubstr("\rlong.bin  "));
    EXPECT_THAT(seen, ::testing::EndsWith("\r\x1b[K"));
}

TEST(CommandOnATerminal, ShowsHowFarAComparisonIsAndEndsItWhenTold) {
    TemporaryFolder folder;
    Terminal terminal;
    shell(folder, "mkdir a b; truncate -s 1T a/long.bin b/long.bin; echo 1 > a/1; echo 2 > b/1");
    Process process =
        CommandRun::vfs({"check", "a", "b"}).in(folder.path()).errorsTo(terminal.slave()).start();

    std::string seen;
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (seen.find("/s") == std::string::npos && std::chrono::steady_clock::now() < deadline) {
        seen += terminal.read(20);
    }
    process.signal(SIGINT);
    Outcome const outcome = process.wait();
    seen += terminal.read(1000);

    EXPECT_EQ(outcome.code, 130);
    EXPECT_THAT(seen, HasSubstr("\rchecking a/long.bin  1 file"));
    EXPECT_THAT(seen, HasSubstr("\r\x1b[Kvfs: check: interrupted; 1 file and 1 folder compared"));
    EXPECT_EQ(outcome.out, "1: content differs\n");
}

TEST(CommandOnATerminal, ShowsFilesBytesAndTheTimeLeftOfATree) {
    TemporaryFolder folder;
    if (shell(folder, "strace -o trace true").code != 0) {
        GTEST_SKIP() << "tracing a process is refused here";
    }
    shell(folder, "mkdir -p a/{1,2,3,4,5,6,7,8}; for i in a/*; do head -c 2000 /dev/zero > $i/f; "
                  "done");
    Terminal terminal;

    // Each folder takes a while to be made.
    Outcome const outcome = CommandRun::shell("strace -o /dev/null -e trace=mkdirat "
                                              "-e inject=mkdirat:delay_enter=200000 vfs cp -r a b")
                                .in(folder.path())
                                .errorsTo(terminal.slave())
                                .run();
    std::string const seen = terminal.read(1000);

    EXPECT_EQ(outcome.code, 0);
    EXPECT_THAT(seen, HasSubstr("  3 of 8 files  5.9 KiB of 15.6 KiB  38%"));
    EXPECT_THAT(seen, HasSubstr(" left"));
    EXPECT_THAT(seen, ::testing::EndsWith("\r\x1b[K"));
}

TEST(CommandOnATerminal, SaysThatWatchingHasBegun) {
    TemporaryFolder folder;
    Terminal terminal;
    Process process =
        CommandRun::vfs({"watch", "."}).in(folder.path()).errorsTo(terminal.slave()).start();

    std::string const said = terminal.read(60'000);
    process.signal(SIGINT);

    EXPECT_EQ(said, "vfs: watch: watching .\r\n");
    EXPECT_EQ(process.wait().code, 0);
}

TEST(CommandOnATerminal, ShowsNoProgressInAPipe) {
    TemporaryFolder folder;

    Outcome const outcome =
        shell(folder, "{ echo one; sleep 0.8; echo two; } | vfs put a 2>&1 | cat");

    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(readFile(folder / "a"), "one\ntwo\n");
}

std::string shownOn(Terminal& terminal, CommandRun run) {
    Outcome const outcome = run.outputTo(terminal.slave()).run();
    EXPECT_EQ(outcome.code, 0);
    return terminal.read(1000);
}

TEST(CommandOnATerminal, UsesColoursUnlessNoColorIsSet) {
    Terminal terminal;
    CommandRun const stat = CommandRun::vfs({"stat", "mem:"}).environment("TERM", "xterm");

    EXPECT_THAT(shownOn(terminal, CommandRun(stat).environment("NO_COLOR", "")),
                HasSubstr("\x1b[1mlocation:"));
    EXPECT_THAT(shownOn(terminal, CommandRun(stat).environment("NO_COLOR", "1")),
                Not(HasSubstr("\x1b")));
    EXPECT_THAT(shownOn(terminal, CommandRun(stat).environment("TERM", "dumb")),
                Not(HasSubstr("\x1b")));
    EXPECT_THAT(CommandRun(stat).run().out, Not(HasSubstr("\x1b")));
}

} // namespace
} // namespace cli_test
