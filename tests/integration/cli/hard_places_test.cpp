#include "command_run.hpp"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

namespace cli_test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
namespace fs = std::filesystem;

TEST(CommandWithoutPermission, SaysSoForEachCommand) {
    TemporaryFolder folder;
    writeFile(folder / "secret", "secret");
    fs::create_directory(folder / "closed");
    writeFile(folder / "closed/a", "inside");
    fs::create_directory(folder / "fixed");
    writeFile(folder / "fixed/a", "fixed");
    writeFile(folder / "mine", "mine");
    ::chmod((folder / "secret").c_str(), 0);
    ::chmod((folder / "closed").c_str(), 0);
    ::chmod((folder / "fixed").c_str(), 0555);

    struct Row {
        std::vector<std::string> words;
        std::string error;
    };
    for (Row const& row : {
             Row{{"cat", "secret"}, "vfs: cat: secret: permission denied\n"},
             Row{{"cat", "closed/a"}, "vfs: cat: closed/a: permission denied\n"},
             Row{{"stat", "closed/a"}, "vfs: stat: closed/a: permission denied\n"},
             Row{{"exists", "closed/a"}, "vfs: exists: closed/a: permission denied\n"},
             Row{{"cp", "secret", "copy"}, "vfs: cp: secret: permission denied\n"},
             Row{{"cp", "mine", "fixed/b"}, "vfs: cp: fixed/b: permission denied\n"},
             Row{{"mv", "fixed/a", "moved"}, "permission denied\n"},
             Row{{"put", "fixed/b"}, "vfs: put: fixed/b: permission denied\n"},
             Row{{"mkdir", "fixed/d"}, "vfs: mkdir: fixed/d: permission denied\n"},
             Row{{"touch", "fixed/t"}, "vfs: touch: fixed/t: permission denied\n"},
             Row{{"rm", "fixed/a"}, "vfs: rm: fixed/a: permission denied\n"},
         }) {
        Outcome const outcome = CommandRun::vfs(row.words).in(folder.path()).unprivileged().run();
        EXPECT_EQ(outcome.code, 1) << row.error;
        EXPECT_EQ(outcome.out, "") << row.error;
        EXPECT_THAT(outcome.err, HasSubstr(row.error));
        EXPECT_THAT(outcome.err, ::testing::StartsWith("vfs: " + row.words.front() + ": "));
    }
    ::chmod((folder / "closed").c_str(), 0755);
    EXPECT_EQ(readFile(folder / "fixed/a"), "fixed");
    EXPECT_THAT(folder.names(), ElementsAre("closed", "fixed", "mine", "secret"));
}

// Runs a line in which ./small is a file system of one MiB that nobody else sees.
class CommandOnAFullDisk : public ::testing::Test {
  protected:
    void SetUp() override {
        fs::create_directory(folder_ / "small");
        if (onSmallDisk("true").code != 0) {
            GTEST_SKIP() << "mounting a file system of one's own is refused here";
        }
    }
    Outcome onSmallDisk(std::string const& line) {
        std::string const rights = ::geteuid() == 0 ? "-m" : "-rm";
        return CommandRun::shell("exec unshare " + rights +
                                 " bash -c 'mount -t tmpfs -o size=1m none small && { " + line +
                                 "\n}'")
            .in(folder_.path())
            .run();
    }

    TemporaryFolder folder_;
};

TEST_F(CommandOnAFullDisk, PutSaysSoAndLeavesNothing) {
    Outcome const outcome =
        onSmallDisk("head -c 3000000 /dev/zero | vfs put small/a; echo $?; ls -A small | wc -l");

    EXPECT_EQ(outcome.out, "1\n0\n");
    EXPECT_EQ(outcome.err, "vfs: put: small/a: no space left\n");
}

TEST_F(CommandOnAFullDisk, PutKeepsTheOldContent) {
    Outcome const outcome = onSmallDisk("echo old > small/a; head -c 3000000 /dev/zero | "
                                        "vfs put small/a; echo $?; cat small/a; ls -A small");

    EXPECT_EQ(outcome.out, "1\nold\na\n");
}

TEST_F(CommandOnAFullDisk, CopySaysSoAndLeavesNothing) {
    Outcome const outcome =
        onSmallDisk("head -c 3000000 /dev/urandom > big; vfs cp big small/a; echo $?; "
                    "ls -A small | wc -l; stat -c %s big");

    EXPECT_EQ(outcome.out, "1\n0\n3000000\n");
    EXPECT_EQ(outcome.err, "vfs: cp: small/a: no space left\n");
}

TEST_F(CommandOnAFullDisk, MoveKeepsTheSource) {
    Outcome const outcome =
        onSmallDisk("head -c 3000000 /dev/urandom > big; vfs mv big small/a; echo $?; "
                    "ls -A small | wc -l; stat -c %s big");

    EXPECT_EQ(outcome.out, "1\n0\n3000000\n");
    EXPECT_EQ(outcome.err, "vfs: mv: small/a: no space left\n");
}

TEST_F(CommandOnAFullDisk, MoveBetweenDisksKeepsBytesAndTime) {
    Outcome const outcome = onSmallDisk(
        "head -c 300000 /dev/urandom > a; before=$(sha256sum < a); touch -d 2020-02-02T02:02:02Z a;"
        "vfs mv a small/; echo $?; [ \"$before\" = \"$(sha256sum < small/a)\" ] && echo same;"
        "stat -c %y small/a; ls");

    EXPECT_EQ(outcome.out, "0\nsame\n2020-02-02 02:02:02.000000000 +0000\nsmall\n");
}

} // namespace
} // namespace cli_test
