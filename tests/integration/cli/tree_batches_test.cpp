#include "command_run.hpp"
#include "listed_trees.hpp"
#include "storage_run.hpp"

#include <foundation/storage/provider/memory/memory_provider.hpp>

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace cli_test {
namespace {

namespace provider = foundation::storage::provider;
namespace fs = std::filesystem;
using ::testing::ElementsAreArray;

// Small files of many folders are copied together: enough of them here for several times, at
// several depths, and with files between them that are too large for that.
void makeFolders(TemporaryFolder const& folder) {
    shell(folder,
          "for i in $(seq 60); do mkdir -p a/$i/below; for j in $(seq 15); do "
          "echo $i $j > a/$i/$j; echo $j $i > a/$i/below/$j; done; done; "
          "for i in 1 20 33; do head -c 1500000 /dev/urandom > a/$i/large; done; mkdir a/void");
}

std::string factsBelow(TemporaryFolder const& folder, std::string const& root) {
    return shell(folder, "cd " + root +
                             " && find . -printf '%p %m %T@ %s\\n' | grep -v ' large' | "
                             "sort")
        .out;
}

TEST(CommandTreeBatches, AreToldInTheOrderOfTheWalk) {
    TemporaryFolder folder;
    makeFolders(folder);
    std::vector<std::string> expected{"a -> b"};
    for (std::string const& path : linesOf(vfs(folder, {"find", "a"}).out)) {
        expected.push_back("a/" + path + " -> b/" + path);
    }

    Outcome const outcome = vfs(folder, {"cp", "-rv", "a", "b"});

    EXPECT_EQ(outcome.err, "");
    EXPECT_THAT(linesOf(outcome.out), ElementsAreArray(expected));
    EXPECT_EQ(expected.size(), 1 + 60 * 32 + 3 + 1u);
    EXPECT_EQ(shell(folder, "diff -r a b").out, "");
}

TEST(CommandTreeBatches, LeaveEachFolderItsModeAndTimes) {
    TemporaryFolder folder;
    makeFolders(folder);
    shell(folder, "chmod 555 a/3 a/4/below a/60/below; chmod 500 a/5; chmod 700 a/6/below;"
                  "find a -depth -type d -exec touch -d '2001-02-03 04:05:06.123456789' {} +;"
                  "touch -d '1999-12-31 23:59:59.987654321' a/7 a/8/below a");

    Outcome const outcome =
        CommandRun::vfs({"cp", "-r", "a", "b"}).in(folder.path()).unprivileged().run();

    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(factsBelow(folder, "a"), factsBelow(folder, "b"));
    EXPECT_EQ(shell(folder, "diff -r a b").out, "");
    shell(folder, "chmod -R u+w a b");
}

// While they are filled too: the folders stay closed to others from the start.
TEST(CommandTreeBatches, NeverOpenAFolderFurtherThanItsSource) {
    TemporaryFolder folder;
    if (shell(folder, "strace -o trace true").code != 0) {
        GTEST_SKIP() << "tracing a process is refused here";
    }
    makeFolders(folder);
    shell(folder, "chmod 700 a/9 a/9/below");

    Outcome const outcome =
        shell(folder, "strace -f -e trace=linkat -e inject=linkat:signal=SIGKILL:when=200 -o trace "
                      "vfs cp -r a b; find b/9 b/9/below -maxdepth 0 -perm /077");

    EXPECT_EQ(outcome.out, "");
    EXPECT_TRUE(fs::exists(folder / "b"));
}

TEST(CommandTreeBatches, FailInOneFolderAndNotInTheOthers) {
    auto const memory = std::make_shared<provider::memory::MemoryProvider>();
    std::string expected;
    for (int i = 10; i < 60; ++i) {
        std::string const in = std::to_string(i);
        memory->createFolderRecursive(oddLocation("a/" + in));
        for (int j = 10; j < 40; ++j) {
            std::string const path = in + "/" + std::to_string(j);
            memory->createFile(oddLocation("a/" + path));
            if (i == 20 || (i == 40 && j == 15)) {
                memory->createFolderRecursive(oddLocation("b/" + path));
                expected += "vfs: mv: odd:/b/" + path + ": is a folder\n";
            }
        }
        if (i == 30) {
            memory->createFile(oddLocation("b/30"));
            expected += "vfs: mv: odd:/b/30: is not a folder\n";
        }
    }

    Outcome const outcome = runOver(memory, {"mv", "-fT", "odd:/a", "odd:/b"});

    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.err, ::testing::StartsWith(expected + "vfs: mv: "));
    // All of folder 20, all of 30 that could not be entered, one of 40, and these folders.
    EXPECT_EQ(linesOf(runOver(memory, {"find", "odd:/a"}).out).size(), 31 + 31 + 2u);
    EXPECT_EQ(linesOf(runOver(memory, {"find", "odd:/b"}).out).size(), 50 + 49 * 30u);
}

} // namespace
} // namespace cli_test
