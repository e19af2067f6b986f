#include "command_run.hpp"

#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace cli_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// `vfs put` that has read what it was given and waits for more.
class WaitingPut {
  public:
    WaitingPut(TemporaryFolder const& folder, std::string const& name) {
        int ends[2];
        EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        write_ = ends[1];
        process_ = CommandRun::vfs({"put", name}).in(folder.path()).inputFrom(ends[0]).start();
        EXPECT_EQ(::write(write_, "first part", 10), 10);
        for (int left = 1; left > 0;) { // the pipe is empty once the command has taken the bytes
            ::ioctl(ends[0], FIONREAD, &left);
            ::usleep(1000);
        }
        ::close(ends[0]);
    }
    ~WaitingPut() { ::close(write_); }

    Process& process() { return process_; }

  private:
    int write_;
    Process process_{-1, -1, -1};
};

TEST(CommandInterrupted, PutLeavesNothingAndDiesOfTheSignal) {
    for (int const number : {SIGINT, SIGTERM, SIGHUP}) {
        TemporaryFolder folder;
        WaitingPut put(folder, "a");

        put.process().signal(number);
        Outcome const outcome = put.process().wait();

        EXPECT_EQ(outcome.code, 128 + number);
        EXPECT_EQ(outcome.err, "");
        EXPECT_THAT(folder.names(), IsEmpty());
    }
}

TEST(CommandInterrupted, PutKeepsTheOldContent) {
    TemporaryFolder folder;
    writeFile(folder / "a", "old");
    WaitingPut put(folder, "a");

    put.process().signal(SIGINT);
    put.process().wait();

    EXPECT_EQ(readFile(folder / "a"), "old");
    EXPECT_THAT(folder.names(), ElementsAre("a"));
}

TEST(CommandInterrupted, PutIsDoneWhenItsInputEndsAndNotBefore) {
    TemporaryFolder folder;
    {
        WaitingPut put(folder, "a");
        EXPECT_THAT(folder.names(), IsEmpty());
        put.process().signal(SIGKILL);
        EXPECT_EQ(put.process().wait().code, 137);
    }
    EXPECT_THAT(folder.names(), IsEmpty());
}

TEST(CommandInterrupted, IgnoredSignalsStayIgnored) {
    TemporaryFolder folder;

    Outcome const outcome =
        shell(folder, "trap '' INT; { echo one; kill -INT $$; sleep 0.1; echo two; } | vfs put a; "
                      "echo $?; cat a");

    EXPECT_EQ(outcome.out, "0\none\ntwo\n");
}

// The signal comes with the first call that moves bytes, so that it always meets a copy under way.
class CommandInterruptedCopy : public ::testing::Test {
  protected:
    void SetUp() override {
#ifdef __SANITIZE_THREAD__
        GTEST_SKIP() << "the thread sanitizer holds signals back until a call that it knows";
#endif
        if (shell(folder_, "strace -o trace true").code != 0) {
            GTEST_SKIP() << "tracing a process is refused here";
        }
        std::filesystem::remove(folder_ / "trace");
        writeFile(folder_ / "a", std::string(64'000'000, 'x'));
    }
    Outcome interrupted(std::string const& words) {
        return shell(folder_, "strace -o /dev/null -e trace=copy_file_range,ioctl "
                              "-e inject=copy_file_range:signal=SIGINT:when=1 "
                              "-e inject=ioctl:error=EOPNOTSUPP vfs " +
                                  words);
    }

    TemporaryFolder folder_;
};

TEST_F(CommandInterruptedCopy, LeavesNoHalfFileAndNoOther) {
    Outcome const outcome = interrupted("cp a b");

    EXPECT_EQ(outcome.code, 130) << outcome.err;
    EXPECT_EQ(outcome.err, "");
    EXPECT_THAT(folder_.names(), ElementsAre("a"));
}

TEST_F(CommandInterruptedCopy, KeepsTheOldDestination) {
    writeFile(folder_ / "b", "old");

    Outcome const outcome = interrupted("cp a b");

    EXPECT_EQ(outcome.code, 130);
    EXPECT_EQ(readFile(folder_ / "b").substr(0, 10), "old");
    EXPECT_THAT(folder_.names(), ElementsAre("a", "b"));
}

TEST_F(CommandInterruptedCopy, DoesNotGoOnWithTheNextFile) {
    writeFile(folder_ / "c", "other");
    std::filesystem::create_directory(folder_ / "into");

    Outcome const outcome = interrupted("cp a c into");

    EXPECT_EQ(outcome.code, 130);
    EXPECT_TRUE(std::filesystem::is_empty(folder_ / "into"));
}

} // namespace
} // namespace cli_test
