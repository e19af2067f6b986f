#include "command_run.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

namespace cli_test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
namespace fs = std::filesystem;

TEST(CommandCopy, MakesAFileUnderANewName) {
    TemporaryFolder folder;
    writeFile(folder / "a", "content");

    Outcome const outcome = vfs(folder, {"cp", "a", "b"});

    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.out + outcome.err, "");
    EXPECT_EQ(readFile(folder / "a"), "content");
    EXPECT_EQ(readFile(folder / "b"), "content");
}

TEST(CommandCopy, BringsSeveralFilesIntoAFolder) {
    TemporaryFolder folder;
    writeFile(folder / "a", "A");
    writeFile(folder / "b", "B");
    fs::create_directory(folder / "into");

    EXPECT_EQ(vfs(folder, {"cp", "a", "file://" + (folder / "b").string(), "into/"}).code, 0);

    EXPECT_EQ(readFile(folder / "into/a"), "A");
    EXPECT_EQ(readFile(folder / "into/b"), "B");
}

TEST(CommandCopy, RefusesWhatItCannotDoAndGoesOn) {
    TemporaryFolder folder;
    fs::create_directories(folder / "tree/sub");
    fs::create_directories(folder / "into/taken");
    fs::create_directory(folder / "other");
    writeFile(folder / "a", "A");
    writeFile(folder / "taken", "T");
    writeFile(folder / "other/a", "other");

    Outcome const outcome =
        vfs(folder, {"cp", "tree", "missing", "taken", "a", "other/a", "xyz:/y", "into"});

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "vfs: cp: tree: is a folder (-r copies it)\n"
                           "vfs: cp: missing: no such file or folder\n"
                           "vfs: cp: into/taken: is a folder\n"
                           "vfs: cp: other/a: another source has this name; it would be lost\n"
                           "vfs: cp: xyz:/y: no provider for the scheme 'xyz'\n");
    EXPECT_EQ(readFile(folder / "into/a"), "A");
}

TEST(CommandCopy, NeedsAFolderForSeveralSourcesOrAFinalSlash) {
    TemporaryFolder folder;
    writeFile(folder / "a", "A");
    writeFile(folder / "b", "B");

    EXPECT_EQ(vfs(folder, {"cp", "a", "b", "c"}).err,
              "vfs: cp: c: is not a folder, and there are several sources\n");
    EXPECT_EQ(vfs(folder, {"cp", "a", "c/"}).err, "vfs: cp: c/: no such folder\n");
    EXPECT_EQ(vfs(folder, {"cp", "a", "no/such"}).err,
              "vfs: cp: no/such: no such file or folder\n");
    EXPECT_THAT(folder.names(), ElementsAre("a", "b"));
}

TEST(CommandCopy, ReplacesAFileUnlessToldNotTo) {
    TemporaryFolder folder;
    writeFile(folder / "a", "new");
    writeFile(folder / "b", "old");

    Outcome const refused = vfs(folder, {"cp", "--policy", "fail", "a", "b"});
    EXPECT_EQ(refused.code, 1);
    EXPECT_EQ(refused.err, "vfs: cp: b: already exists\n");
    EXPECT_EQ(readFile(folder / "b"), "old");

    Outcome const kept = vfs(folder, {"cp", "-n", "a", "b"});
    EXPECT_EQ(kept.code, 0);
    EXPECT_EQ(kept.err, "");
    EXPECT_EQ(readFile(folder / "b"), "old");

    EXPECT_EQ(vfs(folder, {"cp", "a", "b"}).code, 0);
    EXPECT_EQ(readFile(folder / "b"), "new");
}

TEST(CommandCopy, ReplacesAReadOnlyFileOnlyByForce) {
    TemporaryFolder folder;
    writeFile(folder / "a", "new");
    writeFile(folder / "b", "old");
    ::chmod((folder / "b").c_str(), 0444);

    Outcome const refused = vfs(folder, {"cp", "a", "b"});
    EXPECT_EQ(refused.code, 1);
    EXPECT_EQ(refused.err, "vfs: cp: b: is read-only (-f replaces it)\n");
    EXPECT_EQ(readFile(folder / "b"), "old");

    Outcome const forced = vfs(folder, {"cp", "-f", "a", "b"});
    EXPECT_EQ(forced.code, 0) << forced.err;
    EXPECT_EQ(readFile(folder / "b"), "new");
}

TEST(CommandCopy, RefusesTwoNamesOfOneFile) {
    TemporaryFolder folder;
    writeFile(folder / "a", "content");
    fs::create_symlink("a", folder / "link");
    fs::create_symlink(".", folder / "here");

    for (std::string const other : {"a", "./a", "here/a", "link"}) {
        Outcome const copied = vfs(folder, {"cp", "a", other});
        EXPECT_EQ(copied.code, 1);
        EXPECT_EQ(copied.err, "vfs: cp: " + other + ": source and destination are the same file\n");
        EXPECT_EQ(readFile(folder / "a"), "content");
    }
    Outcome const moved = vfs(folder, {"mv", "a", "here"});
    EXPECT_EQ(moved.code, 1);
    EXPECT_EQ(moved.err, "vfs: mv: here/a: source and destination are the same file\n");
    EXPECT_EQ(readFile(folder / "a"), "content");
}

TEST(CommandCopy, CopiesALinkAsALink) {
    TemporaryFolder folder;
    writeFile(folder / "a", "content");
    fs::create_symlink("a", folder / "link");
    fs::create_symlink("nowhere", folder / "dangling");
    fs::create_directory(folder / "into");

    EXPECT_EQ(vfs(folder, {"cp", "link", "dangling", "into"}).code, 0);

    EXPECT_EQ(fs::read_symlink(folder / "into/link"), "a");
    EXPECT_EQ(fs::read_symlink(folder / "into/dangling"), "nowhere");
}

TEST(CommandCopy, KeepsALargeSparseFileSparse) {
    TemporaryFolder folder;
    writeFile(folder / "big", "head");
    fs::resize_file(folder / "big", 5'000'000'000);

    Outcome const outcome = vfs(folder, {"cp", "big", "copy"});

    EXPECT_EQ(outcome.code, 0) << outcome.err;
    struct stat status {};
    ASSERT_EQ(::stat((folder / "copy").c_str(), &status), 0);
    EXPECT_EQ(status.st_size, 5'000'000'000);
    EXPECT_LT(status.st_blocks, 1024);
    EXPECT_EQ(shell(folder, "head -c 8 copy | od -An -c | tr -d ' '").out, "head\\0\\0\\0\\0\n");
}

TEST(CommandCopy, KeepsOldContentWhereTheNewOneCannotBeRead) {
    TemporaryFolder folder;
    writeFile(folder / "a", "secret");
    writeFile(folder / "b", "old");
    ::chmod((folder / "a").c_str(), 0);

    Outcome const outcome =
        CommandRun::vfs({"cp", "a", "b"}).in(folder.path()).unprivileged().run();

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "vfs: cp: a: permission denied\n");
    EXPECT_EQ(readFile(folder / "b"), "old");
    EXPECT_THAT(folder.names(), ElementsAre("a", "b"));
}

TEST(CommandMove, RenamesAFile) {
    TemporaryFolder folder;
    writeFile(folder / "a", "content");
    struct stat before {};
    ::stat((folder / "a").c_str(), &before);

    EXPECT_EQ(vfs(folder, {"mv", "a", "b"}).code, 0);

    struct stat after {};
    ::stat((folder / "b").c_str(), &after);
    EXPECT_THAT(folder.names(), ElementsAre("b"));
    EXPECT_EQ(after.st_ino, before.st_ino);
}

TEST(CommandMove, BringsFilesIntoAFolder) {
    TemporaryFolder folder;
    writeFile(folder / "a", "A");
    fs::create_symlink("nowhere", folder / "dangling");
    fs::create_directory(folder / "into");

    EXPECT_EQ(vfs(folder, {"mv", "a", "dangling", "into"}).code, 0);

    EXPECT_EQ(readFile(folder / "into/a"), "A");
    EXPECT_EQ(fs::read_symlink(folder / "into/dangling"), "nowhere");
    EXPECT_THAT(folder.names(), ElementsAre("into"));
}

TEST(CommandMove, LeavesWhatIsKeptAndRefusesReadOnlyDestinations) {
    TemporaryFolder folder;
    writeFile(folder / "a", "new");
    writeFile(folder / "b", "old");
    ::chmod((folder / "b").c_str(), 0444);

    EXPECT_EQ(vfs(folder, {"mv", "--policy", "fail", "a", "b"}).err,
              "vfs: mv: b: already exists\n");
    EXPECT_EQ(vfs(folder, {"mv", "-n", "a", "b"}).code, 0);
    EXPECT_EQ(readFile(folder / "a"), "new");
    EXPECT_EQ(vfs(folder, {"mv", "a", "b"}).err, "vfs: mv: b: is read-only (-f replaces it)\n");
    EXPECT_EQ(readFile(folder / "b"), "old");
    EXPECT_EQ(readFile(folder / "a"), "new");

    EXPECT_EQ(vfs(folder, {"mv", "-f", "a", "b"}).err, "");
    EXPECT_EQ(readFile(folder / "b"), "new");
    EXPECT_THAT(folder.names(), ElementsAre("b"));
}

TEST(CommandMove, LeavesAReadOnlyDestinationLockedWhereTheMoveFails) {
    TemporaryFolder folder;
    fs::create_directory(folder / "locked");
    writeFile(folder / "locked/a", "new");
    writeFile(folder / "b", "old");
    ::chmod((folder / "b").c_str(), 0444);
    ::chmod((folder / "locked").c_str(), 0555);

    Outcome const outcome =
        CommandRun::vfs({"mv", "-f", "locked/a", "b"}).in(folder.path()).unprivileged().run();
    ::chmod((folder / "locked").c_str(), 0755);

    EXPECT_EQ(outcome.code, 1);
    struct stat status {};
    ::stat((folder / "b").c_str(), &status);
    EXPECT_EQ(status.st_mode & 0777u, 0444u);
    EXPECT_EQ(readFile(folder / "b"), "old");
    EXPECT_EQ(readFile(folder / "locked/a"), "new");
}

TEST(CommandMove, CopiesChecksAndRemovesBetweenStorages) {
    TemporaryFolder folder;
    writeFile(folder / "a", std::string(700'000, 'x') + "end");
    fs::create_symlink("a", folder / "link");

    Outcome const outcome =
        CommandRun::vfs({"sh", "-e"})
            .in(folder.path())
            .input("touch -d 2020-02-02T02:02:02Z a\nmkdir mem:/in\nmv a link mem:/in\n"
                   "exists -v mem:/in/a mem:/in/link\nstat --json mem:/in/a\n"
                   "mv mem:/in/a back\nmv mem:/in/link linkback\n")
            .run();

    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("mem:/in/a: file\nmem:/in/link: link to a file\n"));
    EXPECT_THAT(outcome.out, HasSubstr("\"modified\":\"2020-02-02T02:02:02.000000000Z\""));
    EXPECT_THAT(folder.names(), ElementsAre("back", "linkback"));
    EXPECT_EQ(readFile(folder / "back"), std::string(700'000, 'x') + "end");
    EXPECT_EQ(fs::read_symlink(folder / "linkback"), "a");
}

} // namespace
} // namespace cli_test
