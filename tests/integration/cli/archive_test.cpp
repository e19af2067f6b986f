// Archives as folders, to every command.

#include "command_run.hpp"

#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <vector>

namespace cli_test {
namespace {

namespace fs = std::filesystem;

using ::testing::HasSubstr;

void makeTree(TemporaryFolder const& folder) {
    fs::create_directories(folder / "tree/sub");
    fs::create_directory(folder / "tree/empty");
    writeFile(folder / "tree/tool", "run");
    writeFile(folder / "tree/sub/text", std::string(100'000, 't'));
    fs::create_symlink("sub/text", folder / "tree/link");
    fs::permissions(folder / "tree/tool", fs::perms(0750));
    shell(folder, "touch -d 2020-02-02T02:02:02Z tree/tool tree/sub tree/empty");
}

void expectSameTree(TemporaryFolder const& folder, std::string const& copy) {
    Outcome const same = shell(folder, "diff -r --no-dereference tree " + copy);
    EXPECT_EQ(same.code, 0) << same.out << same.err;
    std::string const facts =
        "' && find . -type f -name tool -printf '%m %T@\\n' -o -type d -name sub -printf '%T@\\n'";
    EXPECT_EQ(shell(folder, "cd 'tree" + facts).out, shell(folder, "cd '" + copy + facts).out);
}

TEST(CommandPack, AndUnpackMakeTheSameTree) {
    TemporaryFolder folder;
    makeTree(folder);
    EXPECT_EQ(vfs(folder, {"pack", "tree", "a.zip"}).err, "");
    EXPECT_EQ(vfs(folder, {"unpack", "a.zip", "copy"}).err, "");
    expectSameTree(folder, "copy");
}

TEST(CommandPack, MakesWhatOtherToolsRead) {
    TemporaryFolder folder;
    makeTree(folder);
    ASSERT_EQ(vfs(folder, {"pack", "tree", "a.zip"}).code, 0);
    EXPECT_EQ(shell(folder, "python3 -m zipfile -t a.zip").code, 0);
}

TEST(CommandPack, OfAnEmptyFolderMakesAnEmptyArchive) {
    TemporaryFolder folder;
    fs::create_directory(folder / "empty");
    EXPECT_EQ(vfs(folder, {"pack", "empty", "a.zip"}).code, 0);
    EXPECT_EQ(fs::file_size(folder / "a.zip"), 22U);
    EXPECT_EQ(vfs(folder, {"find", "zip:a.zip!/"}).out, "");
}

TEST(CommandPack, RefusesAnArchiveThatIsThereUnlessToldOtherwise) {
    TemporaryFolder folder;
    makeTree(folder);
    ASSERT_EQ(vfs(folder, {"pack", "tree", "a.zip"}).code, 0);
    std::string const before = readFile(folder / "a.zip");
    Outcome const refused = vfs(folder, {"pack", "tree/sub", "a.zip"});
    EXPECT_EQ(refused.code, 1);
    EXPECT_THAT(refused.err, HasSubstr("a.zip: already exists (-f replaces it, -a adds to it)\n"));
    EXPECT_EQ(readFile(folder / "a.zip"), before);
    EXPECT_EQ(vfs(folder, {"pack", "-a", "tree/sub", "a.zip"}).code, 0);
    EXPECT_EQ(vfs(folder, {"exists", "zip:a.zip!/tool", "zip:a.zip!/text"}).code, 0);
    EXPECT_EQ(vfs(folder, {"pack", "-f", "tree/sub", "a.zip"}).code, 0);
    EXPECT_EQ(vfs(folder, {"find", "zip:a.zip!/"}).out, "text\n");
    EXPECT_EQ(vfs(folder, {"pack", "-a", "-f", "tree", "a.zip"}).code, 2);
}

TEST(CommandPack, RefusesWhatIsNoFolderAndWhatItWouldLieIn) {
    TemporaryFolder folder;
    makeTree(folder);
    EXPECT_THAT(vfs(folder, {"pack", "tree/tool", "a.zip"}).err, HasSubstr("is not a folder"));
    EXPECT_THAT(vfs(folder, {"pack", "missing", "a.zip"}).err,
                HasSubstr("missing: no such file or folder"));
    EXPECT_THAT(vfs(folder, {"pack", "tree", "a.tar.gz"}).err,
                HasSubstr("a.tar.gz: has the name of another kind of archive"));
    EXPECT_THAT(vfs(folder, {"pack", "tree", "tree/a.zip"}).err,
                HasSubstr("would lie in the folder that is packed"));
    EXPECT_FALSE(fs::exists(folder / "a.zip"));
    EXPECT_FALSE(fs::exists(folder / "tree/a.zip"));
}

TEST(CommandUnpack, TellsWhatIsNoArchive) {
    TemporaryFolder folder;
    writeFile(folder / "text", "this is no archive, and nothing like it");
    Outcome const refused = vfs(folder, {"unpack", "text", "copy"});
    EXPECT_EQ(refused.code, 1);
    EXPECT_THAT(refused.err, HasSubstr("text: is no archive of a kind that can be read"));
    EXPECT_EQ(vfs(folder, {"unpack", "missing.zip", "copy"}).code, 1);
    EXPECT_FALSE(fs::exists(folder / "copy"));
}

TEST(CommandsInArchives, BeginWhatIsMissing) {
    TemporaryFolder folder;
    makeTree(folder);
    EXPECT_EQ(shell(folder, "echo text | vfs put zip:zip:a.zip!/b.zip!/file").err, "");
    EXPECT_EQ(vfs(folder, {"cat", "zip:zip:a.zip!/b.zip!/file"}).out, "text\n");
    EXPECT_EQ(vfs(folder, {"cp", "-r", "tree", "zip:c.zip!/"}).err, "");
    EXPECT_EQ(vfs(folder, {"mkdir", "-p", "zip:d.zip!/x/y"}).err, "");
    EXPECT_EQ(vfs(folder, {"touch", "zip:e.zip!/f"}).err, "");
    EXPECT_EQ(
        vfs(folder, {"exists", "zip:c.zip!/tree/tool", "zip:d.zip!/x/y", "zip:e.zip!/f"}).code, 0);
    EXPECT_EQ(vfs(folder, {"cp", "-r", "zip:c.zip!/tree", "copy"}).err, "");
    expectSameTree(folder, "copy");
}

TEST(CommandsInArchives, LeaveNothingWhereNothingIsWritten) {
    TemporaryFolder folder;
    EXPECT_EQ(vfs(folder, {"cp", "missing", "zip:a.zip!/"}).code, 1);
    EXPECT_EQ(vfs(folder, {"put", "-i", "missing", "zip:a.zip!/x"}).code, 1);
    EXPECT_FALSE(fs::exists(folder / "a.zip"));
}

TEST(CommandsInArchives, AreRehearsedWithoutBeginningWhatIsMissing) {
    std::vector<std::vector<std::string>> const commands{
        {"cp", "-r", "tree", "zip:a.zip"},
        {"cp", "-r", "tree", "zip:a.zip!/"},
        {"cp", "-rT", "tree", "zip:a.zip!/"},
        {"cp", "-rL", "tree", "zip:a.zip!/"},
        {"cp", "tree/tool", "tree/sub/text", "zip:a.zip!/"},
        {"cp", "tree/tool", "zip:a.zip!/name"},
        {"cp", "-r", "tree", "zip:zip:a.zip!/inner.zip!/name"},
        {"mv", "tree", "zip:a.zip!/"},
        {"mv", "-T", "tree", "zip:a.zip!/"},
        {"unpack", "there.zip", "zip:a.zip!/"},
    };
    for (std::vector<std::string> command : commands) {
        SCOPED_TRACE(::testing::PrintToString(command));
        TemporaryFolder folder;
        makeTree(folder);
        ASSERT_EQ(vfs(folder, {"pack", "tree", "there.zip"}).code, 0);
        std::string const before = shell(folder, "find . -printf '%p %T@\\n' | sort").out;
        command.insert(command.begin() + 1, "--dry-run");
        Outcome const rehearsal = vfs(folder, command);
        EXPECT_EQ(rehearsal.err, "");
        EXPECT_THAT(rehearsal.out, HasSubstr(" -> zip:"));
        EXPECT_EQ(shell(folder, "find . -printf '%p %T@\\n' | sort").out, before);
        command[1] = "-v";
        EXPECT_EQ(vfs(folder, command).out, rehearsal.out);
    }
}

TEST(CommandsInArchives, AreRehearsedWithWhatWouldFail) {
    TemporaryFolder folder;
    makeTree(folder);
    for (std::vector<std::string> command : std::vector<std::vector<std::string>>{
             {"cp", "-r", "tree", "zip:missing/a.zip!/"},
             {"cp", "-r", "tree", "zip:zip:a.zip!/missing/inner.zip!/"},
             {"cp", "tree/tool", "zip:a.zip!/missing/"},
             {"cp", "tree/tool", "tar:a.tar!/name"},
         }) {
        SCOPED_TRACE(::testing::PrintToString(command));
        command.insert(command.begin() + 1, "--dry-run");
        Outcome const rehearsal = vfs(folder, command);
        EXPECT_EQ(rehearsal.code, 1);
        command.erase(command.begin() + 1);
        EXPECT_EQ(vfs(folder, command).err, rehearsal.err);
        EXPECT_FALSE(fs::exists(folder / "a.zip"));
    }
}

TEST(CommandsInArchives, MoveRemoveAndCreate) {
    TemporaryFolder folder;
    makeTree(folder);
    ASSERT_EQ(vfs(folder, {"pack", "tree", "a.zip"}).code, 0);
    EXPECT_EQ(vfs(folder, {"mv", "zip:a.zip!/sub", "zip:a.zip!/moved"}).err, "");
    EXPECT_EQ(vfs(folder, {"rm", "-r", "zip:a.zip!/empty"}).err, "");
    EXPECT_EQ(vfs(folder, {"mv", "zip:a.zip!/tool", "tool"}).err, "");
    EXPECT_EQ(readFile(folder / "tool"), "run");
    EXPECT_EQ(shell(folder, "vfs find zip:a.zip!/ | sort").out, "link\nmoved\nmoved/text\n");
}

TEST(CommandsInArchives, AFlushThatFailsIsToldAndLeavesTheOldArchive) {
    TemporaryFolder folder;
    makeTree(folder);
    ASSERT_EQ(vfs(folder, {"pack", "tree", "a.zip"}).code, 0);
    std::string const before = readFile(folder / "a.zip");
    // No file may become as large as the archive.
    Outcome const outcome = shell(
        folder, "trap '' XFSZ; ulimit -f 1; head -c 3000 /dev/urandom | vfs put zip:a.zip!/new");
    EXPECT_EQ(outcome.code, 1) << outcome.err;
    EXPECT_THAT(outcome.err, HasSubstr("vfs: put: "));
    EXPECT_EQ(readFile(folder / "a.zip"), before);
    EXPECT_EQ(vfs(folder, {"exists", "zip:a.zip!/new"}).code, 1);
}

} // namespace
} // namespace cli_test
