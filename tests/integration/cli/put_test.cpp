#include "command_run.hpp"

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace cli_test {
namespace {

using ::testing::ElementsAre;
namespace fs = std::filesystem;

Outcome put(TemporaryFolder const& folder, std::string const& bytes,
            std::vector<std::string> words) {
    words.insert(words.begin(), "put");
    return CommandRun::vfs(std::move(words)).in(folder.path()).input(bytes).run();
}

TEST(CommandPut, WritesStandardInput) {
    TemporaryFolder folder;
    std::string const bytes = std::string(600'000, 'b') + std::string("\0end", 4);

    EXPECT_EQ(put(folder, bytes, {"a"}).code, 0);
    EXPECT_EQ(readFile(folder / "a"), bytes);
    EXPECT_EQ(put(folder, "dash", {"-i", "-", "b"}).code, 0);
    EXPECT_EQ(readFile(folder / "b"), "dash");
    EXPECT_EQ(put(folder, "", {"empty"}).code, 0);
    EXPECT_EQ(readFile(folder / "empty"), "");
}

TEST(CommandPut, WritesAnotherFile) {
    TemporaryFolder folder;
    writeFile(folder / "a", "content");

    EXPECT_EQ(put(folder, "unused", {"-i", "a", "b"}).err, "");
    EXPECT_EQ(readFile(folder / "b"), "content");
    EXPECT_EQ(put(folder, "unused", {"-i", "b", "b"}).err, "");
    EXPECT_EQ(readFile(folder / "b"), "content");
    EXPECT_EQ(put(folder, "", {"-i", "missing", "b"}).err,
              "vfs: put: missing: no such file or folder\n");
    EXPECT_EQ(put(folder, "", {"-i", ".", "b"}).err, "vfs: put: .: is a folder\n");
    EXPECT_EQ(readFile(folder / "b"), "content");
    EXPECT_THAT(folder.names(), ElementsAre("a", "b"));
}

TEST(CommandPut, ReplacesAFileUnlessToldNotTo) {
    TemporaryFolder folder;
    writeFile(folder / "a", "old and longer");

    Outcome const refused = put(folder, "new", {"-n", "a"});
    EXPECT_EQ(refused.code, 1);
    EXPECT_EQ(refused.err, "vfs: put: a: already exists\n");
    EXPECT_EQ(readFile(folder / "a"), "old and longer");
    EXPECT_EQ(put(folder, "new", {"a"}).code, 0);
    EXPECT_EQ(readFile(folder / "a"), "new");
}

TEST(CommandPut, RefusesReadOnlyFilesFoldersAndMissingParents) {
    TemporaryFolder folder;
    writeFile(folder / "a", "old");
    ::chmod((folder / "a").c_str(), 0444);
    fs::create_directory(folder / "d");

    EXPECT_EQ(put(folder, "new", {"a"}).err, "vfs: put: a: permission denied\n");
    EXPECT_EQ(put(folder, "new", {"d"}).err, "vfs: put: d: is a folder\n");
    EXPECT_EQ(put(folder, "new", {"no/such"}).err, "vfs: put: no/such: no such file or folder\n");
    EXPECT_EQ(readFile(folder / "a"), "old");
    EXPECT_THAT(folder.names(), ElementsAre("a", "d"));
}

TEST(CommandPut, LeavesNothingWhereItsInputFails) {
    TemporaryFolder folder;

    Outcome const outcome = shell(folder, "vfs put a < .");

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "vfs: put: a: standard input could not be read: Is a directory\n");
    EXPECT_TRUE(folder.names().empty());
}

} // namespace
} // namespace cli_test
