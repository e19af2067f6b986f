#include "command_run.hpp"
#include "listed_trees.hpp"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

namespace cli_test {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
namespace fs = std::filesystem;

// a/1, a/sub/2, a/empty
void makeTree(fs::path const& root) {
    fs::create_directories(root / "sub");
    fs::create_directory(root / "empty");
    writeFile(root / "1", "one");
    writeFile(root / "sub/2", "two");
}

// What differs, content, kinds and targets of links, is printed.
std::string difference(TemporaryFolder const& folder, std::string const& a, std::string const& b) {
    Outcome const outcome = shell(folder, "diff -r --no-dereference " + a + " " + b);
    return outcome.out + outcome.err;
}

// Modes and times to the nanosecond, of everything below.
std::string factsBelow(TemporaryFolder const& folder, std::string const& root) {
    return shell(folder, "cd " + root + " && find . -printf '%p %m %T@ %l\\n' | sort").out;
}

TEST(CommandTreeCopy, GoesToAMissingNameOrIntoAFolderThatExists) {
    TemporaryFolder folder;
    makeTree(folder / "a");

    EXPECT_EQ(vfs(folder, {"cp", "-r", "a", "b"}).code, 0);
    EXPECT_EQ(vfs(folder, {"cp", "-r", "a", "b"}).code, 0);
    EXPECT_EQ(difference(folder, "a", "b/a"), "");

    fs::remove_all(folder / "b/a");
    EXPECT_EQ(difference(folder, "a", "b"), "");
    EXPECT_EQ(vfs(folder, {"cp", "-r", "a", "new/"}).code, 0);
    EXPECT_EQ(difference(folder, "a", "new"), "");
}

TEST(CommandTreeCopy, TakesTheDestinationForTheNewNameItself) {
    TemporaryFolder folder;
    makeTree(folder / "a");
    fs::create_directory(folder / "b");

    EXPECT_EQ(vfs(folder, {"cp", "-r", "-T", "a", "b"}).code, 0);
    EXPECT_EQ(difference(folder, "a", "b"), "");
    EXPECT_EQ(vfs(folder, {"cp", "-rT", "a", "a", "b"}).code, 2);

    fs::create_directory(folder / "c");
    for (std::string const all : {"a/.", "a/./", "a/sub/.."}) {
        EXPECT_EQ(vfs(folder, {"cp", "-r", all, "c"}).err, "");
        EXPECT_EQ(difference(folder, "a", "c"), "") << all;
    }
    EXPECT_EQ(CommandRun::vfs({"cp", "-r", ".", "../c"}).in(folder / "a").run().code, 0);
    EXPECT_EQ(difference(folder, "a", "c"), "");
}

TEST(CommandTreeCopy, BringsSeveralIntoAFolderAndNeedsOne) {
    TemporaryFolder folder;
    makeTree(folder / "a");
    makeTree(folder / "b");
    writeFile(folder / "file", "f");

    EXPECT_EQ(vfs(folder, {"cp", "-r", "a", "b", "file", "into"}).err,
              "vfs: cp: into: is not a folder, and there are several sources\n");
    fs::create_directory(folder / "into");
    EXPECT_EQ(vfs(folder, {"cp", "-r", "a", "b", "file", "into"}).err, "");
    EXPECT_EQ(difference(folder, "a", "into/a") + difference(folder, "b", "into/b"), "");
    EXPECT_EQ(readFile(folder / "into/file"), "f");
    EXPECT_THAT(vfs(folder, {"cp", "-r", "a", "into/a", "into"}).err,
                HasSubstr("vfs: cp: into/a: another source has this name; it would be lost\n"));
}

TEST(CommandTreeCopy, NeedsTheFolderAboveItsDestination) {
    TemporaryFolder folder;
    makeTree(folder / "a");

    for (std::string const options : {"-r", "-rL"}) {
        for (std::string const missing : {"no/x", "no/such/x"}) {
            EXPECT_EQ(vfs(folder, {"cp", options, "a", missing}).err,
                      "vfs: cp: " + missing +
                          ": no such file or folder\nvfs: cp: 0 files copied, "
                          "1 failed: " +
                          missing + "\n");
        }
    }
    EXPECT_THAT(folder.names(), ElementsAre("a"));
}

TEST(CommandTreeCopy, OfARootIsItsContent) {
    TemporaryFolder folder;

    Outcome const outcome = CommandRun::vfs({"sh"})
                                .in(folder.path())
                                .input("mkdir -p mem:/a/b\nput -i /etc/hostname mem:/c\n"
                                       "cp -r mem: new\nmkdir old\ncp -r mem:/ old\n")
                                .run();

    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(shell(folder, "find new | sort").out, "new\nnew/a\nnew/a/b\nnew/c\n");
    EXPECT_EQ(difference(folder, "new", "old"), "");
}

TEST(CommandTreeCopy, RefusesAFolderWithoutItsOption) {
    TemporaryFolder folder;
    makeTree(folder / "a");

    Outcome const outcome = vfs(folder, {"cp", "a", "b"});

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "vfs: cp: a: is a folder (-r copies it)\n");
    EXPECT_THAT(folder.names(), ElementsAre("a"));
}

TEST(CommandTreeCopy, KeepsModesAndTimesToTheNanosecond) {
    TemporaryFolder folder;
    makeTree(folder / "a");
    shell(folder, "chmod 640 a/1; chmod 700 a/sub; chmod 555 a/empty; chmod 1777 a;"
                  "touch -d '2001-02-03 04:05:06.123456789' a/1 a/sub/2 a/empty;"
                  "touch -d '1999-12-31 23:59:59.987654321' a/sub a;");

    EXPECT_EQ(vfs(folder, {"cp", "-r", "a", "b"}).err, "");

    EXPECT_EQ(factsBelow(folder, "a"), factsBelow(folder, "b"));
    EXPECT_THAT(factsBelow(folder, "b"), HasSubstr(". 1777 946684799.9876543210"));
    ::chmod((folder / "a/empty").c_str(), 0755);
    ::chmod((folder / "b/empty").c_str(), 0755);
}

TEST(CommandTreeCopy, MergesIntoFoldersAndLeavesTheirModes) {
    TemporaryFolder folder;
    makeTree(folder / "a");
    makeTree(folder / "b/a");
    writeFile(folder / "b/a/sub/only here", "mine");
    writeFile(folder / "b/a/1", "old");
    ::chmod((folder / "b/a/sub").c_str(), 0701);

    EXPECT_EQ(vfs(folder, {"cp", "-r", "a", "b"}).err, "");

    EXPECT_EQ(difference(folder, "a", "b/a"), "Only in b/a/sub: only here\n");
    struct stat status {};
    ::stat((folder / "b/a/sub").c_str(), &status);
    EXPECT_EQ(status.st_mode & 07777u, 0701u);
}

TEST(CommandTreeCopy, RefusesAFileInThePlaceOfAFolderAndTheOtherWayRound) {
    TemporaryFolder folder;
    makeTree(folder / "a");
    fs::create_directories(folder / "b/1");
    writeFile(folder / "b/sub", "a file");
    writeFile(folder / "c", "a file");

    Outcome const outcome = vfs(folder, {"cp", "-rT", "a", "b"});

    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.err, HasSubstr("vfs: cp: b/1: is a folder\n"));
    EXPECT_THAT(outcome.err, HasSubstr("vfs: cp: b/sub: is not a folder\n"));
    EXPECT_THAT(outcome.err, HasSubstr(", 2 failed: b/"));
    EXPECT_TRUE(fs::is_directory(folder / "b/empty"));
    EXPECT_EQ(readFile(folder / "b/sub"), "a file");
    EXPECT_THAT(vfs(folder, {"cp", "-r", "a", "c"}).err, HasSubstr("c: is not a folder\n"));
}

TEST(CommandTreeCopy, PrintsALineForEachFileOnlyWhenAsked) {
    TemporaryFolder folder;
    makeTree(folder / "a");

    EXPECT_EQ(vfs(folder, {"cp", "-r", "a", "b"}).out, "");
    EXPECT_EQ(shell(folder, "vfs cp -r -v a c | sort").out,
              "a -> c\na/1 -> c/1\na/empty -> c/empty\na/sub -> c/sub\na/sub/2 -> c/sub/2\n");
}

TEST(CommandTreeCopy, RehearsesWithoutChangingAnything) {
    TemporaryFolder folder;
    makeTree(folder / "a");
    makeTree(folder / "b");
    fs::remove_all(folder / "b/sub");
    ::chmod((folder / "b/1").c_str(), 0444);
    std::string const before = factsBelow(folder, ".");

    Outcome const merged = shell(folder, "vfs cp -rT --dry-run a b | sort");
    EXPECT_EQ(merged.out, "a/sub -> b/sub\na/sub/2 -> b/sub/2\n");
    EXPECT_EQ(merged.err, "vfs: cp: b/1: is read-only (-f replaces it)\n"
                          "vfs: cp: 1 file and 1 folder would be copied (3 B), 1 failed: b/1\n");
    EXPECT_EQ(shell(folder, "vfs cp -rTn --dry-run a b | sort").out,
              "a/sub -> b/sub\na/sub/2 -> b/sub/2\nkept b/1\n");
    EXPECT_EQ(shell(folder, "vfs mv --dry-run a/1 b/sub c; vfs mv --dry-run a c | sort").out,
              "a -> c\na/1 -> c/1\na/empty -> c/empty\na/sub -> c/sub\na/sub/2 -> c/sub/2\n");
    EXPECT_EQ(factsBelow(folder, "."), before);
    ::chmod((folder / "b/1").c_str(), 0644);
}

TEST(CommandTreeCopy, RefusesATreeInItselfHoweverItIsSpelled) {
    TemporaryFolder folder;
    makeTree(folder / "a");
    fs::create_symlink("a", folder / "link");
    fs::create_symlink(".", folder / "here");
    std::string const before = factsBelow(folder, "a");
    std::string const iri = "file://" + (folder / "a").string();

    for (std::string const command : {"cp -r", "mv"}) {
        for (std::string const into : {"a", "./a", "a/sub", "a/sub/../new", "link", "link/new",
                                       "here/a", "here/here/a/empty", iri.c_str()}) {
            Outcome const outcome = shell(folder, "vfs " + command + " a " + into);
            EXPECT_EQ(outcome.code, 1) << into;
            EXPECT_THAT(outcome.err, HasSubstr("a folder cannot be ")) << into;
            EXPECT_EQ(factsBelow(folder, "a"), before) << command << into;
        }
        for (std::string const onto : {"a", "./a", "here/a", "link", "a/sub/..", iri.c_str()}) {
            Outcome const outcome = shell(folder, "vfs " + command + " -T a " + onto);
            EXPECT_EQ(outcome.code, 1) << onto;
            EXPECT_THAT(outcome.err, EndsWith("source and destination are the same folder\n"));
            EXPECT_EQ(factsBelow(folder, "a"), before) << command << onto;
        }
    }
    EXPECT_EQ(fs::read_symlink(folder / "link"), "a");
}

TEST(CommandTreeCopy, KeepsOddNames) {
    TemporaryFolder folder;
    fs::create_directory(folder / "a");
    makeOddTree(folder / "a");

    Outcome const outcome = vfs(folder, {"cp", "-rv", "a", "b"});

    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(difference(folder, "a", "b"), "");
    for (char const c : outcome.out) {
        EXPECT_TRUE(c == '\n' || static_cast<unsigned char>(c) >= 0x20);
    }
    for (std::string const& line : linesOf(outcome.out)) {
        EXPECT_THAT(line, HasSubstr(" -> b"));
    }
}

TEST(CommandTreeCopy, GoesThousandsOfLevelsDown) {
    TemporaryFolder folder;
    fs::create_directory(folder / "a");
    makeChain(folder / "a", 2000);

    Outcome const outcome = vfs(folder, {"cp", "-r", "a", "b"});
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_EQ(shell(folder, "find b -name leaf -printf '%d\\n'").out,
              shell(folder, "find a -name leaf -printf '%d\\n'").out);
    EXPECT_EQ(shell(folder, "cd b && find . -type d | wc -l").out,
              shell(folder, "cd a && find . -type d | wc -l").out);
    removeTree(folder / "a");
    removeTree(folder / "b");
}

TEST(CommandTreeCopy, KeepsSparseFilesSparse) {
    TemporaryFolder folder;
    fs::create_directory(folder / "a");
    for (std::string const name : {"1", "2", "3"}) {
        writeFile(folder / "a" / name, "head");
        fs::resize_file(folder / "a" / name, 100'000'000'000);
    }

    Outcome const outcome = vfs(folder, {"cp", "-r", "a", "b"});

    EXPECT_EQ(outcome.code, 0) << outcome.err;
    struct stat status {};
    ASSERT_EQ(::stat((folder / "b/3").c_str(), &status), 0);
    EXPECT_EQ(status.st_size, 100'000'000'000);
    EXPECT_LT(status.st_blocks, 1024);
}

TEST(CommandTreeCopy, NeedsNoMoreMemoryForMoreFiles) {
    if (VFS_SANITIZED != 0) {
        GTEST_SKIP() << "a sanitizer keeps memory that was given back";
    }
    TemporaryFolder folder;
    fs::create_directory(folder / "few");
    fs::create_directory(folder / "many");
    makeFiles(folder / "few", 500);
    makeFiles(folder / "many", 20'000);

    Outcome const few = vfs(folder, {"cp", "-r", "few", "a"});
    Outcome const many = vfs(folder, {"cp", "-r", "many", "b"});

    EXPECT_EQ(few.err + many.err, "");
    EXPECT_EQ(shell(folder, "ls b | wc -l").out, "20000\n");
    EXPECT_LT(many.peakKiB, few.peakKiB + 1500);
}

TEST(CommandTreeCopy, BringsARealTreeToMemoryAndBack) {
    TemporaryFolder folder;

    Outcome const outcome = CommandRun::vfs({"sh", "-e"})
                                .in(folder.path())
                                .input("cp -r /usr/include mem:/include\n"
                                       "cp -r mem:/include back\n")
                                .run();

    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(difference(folder, "/usr/include", "back"), "");
    EXPECT_GT(std::distance(fs::recursive_directory_iterator(folder / "back"), {}), 1000);
}

} // namespace
} // namespace cli_test
