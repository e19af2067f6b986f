#include "command_run.hpp"

#include <csignal>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

namespace cli_test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

// a holds eight folders with a file in each; the command meets a signal when it makes one of their
// copies.
class CommandInterruptedTree : public ::testing::Test {
  protected:
    void SetUp() override {
        if (shell(folder_, "strace -o trace true").code != 0) {
            GTEST_SKIP() << "tracing a process is refused here";
        }
        for (std::string const name : {"1", "2", "3", "4", "5", "6", "7", "8"}) {
            fs::create_directories(folder_ / ("a/" + name));
            writeFile(folder_ / ("a/" + name) / "file", "content of " + name);
        }
    }
    Outcome interruptedAt(int folderMade, std::string const& signal, std::string const& words) {
        return shell(folder_, "strace -o /dev/null -e trace=mkdirat -e inject=mkdirat:signal=" +
                                  signal + ":when=" + std::to_string(folderMade) + " vfs " + words);
    }
    std::string difference() { return shell(folder_, "diff -r a b").out; }
    std::string filesIn(std::string const& root) {
        return shell(folder_, "find " + root + " -type f | wc -l").out;
    }
    // What is there of the copy, in the words of the command.
    std::string saidOfCopy() {
        int const files = std::stoi(filesIn("b"));
        int const folders = std::stoi(shell(folder_, "find b -type d | wc -l").out);
        return std::to_string(files) + (files == 1 ? " file and " : " files and ") +
               std::to_string(folders) + " folders copied";
    }

    TemporaryFolder folder_;
};

TEST_F(CommandInterruptedTree, StopsAndSaysWhatWasDone) {
    for (std::string const signal : {"SIGINT", "SIGTERM", "SIGHUP"}) {
        Outcome const outcome = interruptedAt(5, signal, "cp -r a b");

        EXPECT_EQ(outcome.code, signal == "SIGINT" ? 130 : signal == "SIGTERM" ? 143 : 129);
        EXPECT_THAT(outcome.err, MatchesRegex("vfs: cp: interrupted; [0-4] files? and 5 folders "
                                              "copied.*\n"));
        EXPECT_THAT(outcome.err, HasSubstr(saidOfCopy()));
        EXPECT_EQ(shell(folder_, "cd b && find . -type f -exec cmp {} ../a/{} \\;").out, "");
        fs::remove_all(folder_ / "b");
    }
}

// The files of many folders wait to be copied together, are being copied, or are copied.
TEST_F(CommandInterruptedTree, SaysWhatWasDoneWhileManyFoldersWait) {
    shell(folder_, "for i in $(seq 70); do mkdir -p a/1/$i; for j in $(seq 20); do "
                   "echo $i $j > a/1/$i/$j; done; done");
    for (int folderMade : {2, 20, 30, 50, 70}) {
        Outcome const outcome = interruptedAt(folderMade, "SIGINT", "cp -r a b");

        EXPECT_EQ(outcome.code, 130);
        EXPECT_THAT(outcome.err, ::testing::StartsWith("vfs: cp: interrupted; " + saidOfCopy()));
        int const files = std::stoi(filesIn("b"));
        EXPECT_GE(files, folderMade == 70 ? 200 : 0);
        EXPECT_LE(files, 20 * folderMade);
        EXPECT_EQ(shell(folder_, "cd b && find . -type f -exec cmp {} ../a/{} \\;").out, "");
        EXPECT_EQ(vfs(folder_, {"cp", "-rT", "a", "b"}).err, "");
        EXPECT_EQ(difference(), "");
        fs::remove_all(folder_ / "b");
    }
}

TEST_F(CommandInterruptedTree, LeavesTheSourceOfAMoveWhole) {
    Outcome const outcome =
        CommandRun::shell("strace -o /dev/null -e trace=renameat2,renameat,rename,mkdirat "
                          "-e inject=renameat2,renameat,rename:error=EXDEV "
                          "-e inject=mkdirat:signal=SIGINT:when=5 vfs mv a b")
            .in(folder_.path())
            .run();

    EXPECT_EQ(outcome.code, 130);
    EXPECT_THAT(outcome.err, HasSubstr("vfs: mv: interrupted; "));
    EXPECT_EQ(filesIn("a"), "8\n");
}

TEST_F(CommandInterruptedTree, IsCompletedByRunningItAgain) {
    for (int folderMade = 1; folderMade <= 9; ++folderMade) {
        EXPECT_EQ(interruptedAt(folderMade, "SIGKILL", "cp -r a b").code, 137);
        Outcome const again = vfs(folder_, {"cp", "-rT", "a", "b"});
        EXPECT_EQ(again.code, 0) << again.err;
        EXPECT_EQ(difference(), "");
        EXPECT_EQ(shell(folder_, "find b -name '.vfs*'").out, "");
        fs::remove_all(folder_ / "b");
    }
}

// The kill comes with the n-th of the calls that change something, for each of them and every n.
TEST_F(CommandInterruptedTree, IsCompletedWhereverAMoveWasKilled) {
    int kills = 0;
    for (std::string const call : {"mkdirat", "linkat", "utimensat", "unlinkat"}) {
        bool killed = true;
        for (int n = 1; killed; ++n) {
            ASSERT_LT(n, 200);
            Outcome const outcome = shell(
                folder_, "strace -o /dev/null -e trace=rename,renameat,renameat2," + call +
                             " -e inject=rename,renameat,renameat2:error=EXDEV -e inject=" + call +
                             ":signal=SIGKILL:when=" + std::to_string(n) + " vfs mv a b");
            killed = outcome.code == 137;
            kills += killed ? 1 : 0;
            EXPECT_EQ(
                shell(folder_, "find a b -name file -printf '%P\\n' 2>/dev/null | sort -u | wc -l")
                    .out,
                "8\n")
                << call << n;

            if (fs::exists(folder_ / "a")) {
                Outcome const again = vfs(folder_, {"mv", "-fT", "a", "b"});
                EXPECT_EQ(again.code, 0) << call << n << again.err;
            }
            EXPECT_FALSE(fs::exists(folder_ / "a"));
            EXPECT_EQ(shell(folder_, "cat b/*/file").out,
                      "content of 1content of 2content of 3content of 4content of 5content of 6"
                      "content of 7content of 8");
            fs::rename(folder_ / "b", folder_ / "a");
        }
    }
    EXPECT_GT(kills, 4 * 8); // each file is made, dated and removed, and so is each folder
}

} // namespace
} // namespace cli_test
