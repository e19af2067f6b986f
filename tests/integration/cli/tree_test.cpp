#include "listed_trees.hpp"

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace cli_test {
namespace {

namespace fs = std::filesystem;

void makeTree(TemporaryFolder const& folder) {
    fs::create_directories(folder / "top/b/deep");
    fs::create_directories(folder / "top/a");
    writeFile(folder / "top/b/deep/file", "");
    writeFile(folder / "top/b/.hidden", "");
    writeFile(folder / "top/a/1", "");
    writeFile(folder / "top/a/2", "");
    writeFile(folder / "top/z\n", "");
    fs::create_symlink("..", folder / "top/b/up");
}

TEST(CommandTree, DrawsWhatIsBelowAFolderInOrder) {
    TemporaryFolder folder;
    makeTree(folder);

    Outcome const outcome = vfs(folder, {"tree", "top"});

    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.out, "top\n"
                           "├── a/\n"
                           "│   ├── 1\n"
                           "│   └── 2\n"
                           "├── b/\n"
                           "│   ├── deep/\n"
                           "│   │   └── file\n"
                           "│   └── up -> ..\n"
                           "└── z\\n\n"
                           "\n"
                           "3 folders, 5 files\n");
}

TEST(CommandTree, DrawsWithAsciiWhereTheLocaleKnowsNoMore) {
    TemporaryFolder folder;
    makeTree(folder);
    std::string const ascii = "top\n"
                              "|-- a/\n"
                              "|-- b/\n"
                              "`-- z\\n\n"
                              "\n"
                              "2 folders, 1 file\n";
    for (char const* const locale : {"C", "POSIX", "no_such_LOCALE"}) {
        Outcome const outcome = CommandRun::vfs({"tree", "-L", "1", "top"})
                                    .in(folder.path())
                                    .environment("LC_ALL", locale)
                                    .run();
        EXPECT_EQ(outcome.out, ascii) << locale;
    }
}

TEST(CommandTree, StopsAtTheLevelThatWasAskedFor) {
    TemporaryFolder folder;
    makeTree(folder);

    EXPECT_EQ(vfs(folder, {"tree", "-L", "2", "top/b"}).out, vfs(folder, {"tree", "top/b"}).out);
    EXPECT_EQ(vfs(folder, {"tree", "--level=1", "top/b"}).out,
              "top/b\n├── deep/\n└── up -> ..\n\n1 folder, 1 file\n");
}

TEST(CommandTree, ShowsHiddenNamesWhereAsked) {
    TemporaryFolder folder;
    makeTree(folder);

    EXPECT_EQ(vfs(folder, {"tree", "-a", "-L", "1", "top/b"}).out,
              "top/b\n├── .hidden\n├── deep/\n└── up -> ..\n\n1 folder, 2 files\n");
}

TEST(CommandTree, DrawsTheWorkingDirectoryUnlessToldOtherwise) {
    TemporaryFolder folder;

    EXPECT_EQ(vfs(folder, {"tree"}).out, ".\n\n0 folders, 0 files\n");
}

TEST(CommandTree, MarksAFolderThatIsClosedAndEndsWithOne) {
    TemporaryFolder folder;
    fs::create_directories(folder / "top/a/closed");
    fs::create_directories(folder / "top/b/in");
    ::chmod((folder / "top/a/closed").c_str(), 0);

    Outcome const outcome = CommandRun::vfs({"tree", "top"}).in(folder.path()).unprivileged().run();

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.out, "top\n"
                           "├── a/\n"
                           "│   └── closed/ [permission denied]\n"
                           "└── b/\n"
                           "    └── in/\n"
                           "\n"
                           "4 folders, 0 files, 1 unreadable\n");
}

TEST(CommandTree, DoesNotReadFoldersBelowTheLastLevel) {
    TemporaryFolder folder;
    fs::create_directories(folder / "top/closed");
    ::chmod((folder / "top/closed").c_str(), 0);

    Outcome const outcome =
        CommandRun::vfs({"tree", "-L1", "top"}).in(folder.path()).unprivileged().run();

    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.out, "top\n└── closed/\n\n1 folder, 0 files\n");
}

TEST(CommandTree, ReportsWhatIsNoFolder) {
    TemporaryFolder folder;
    writeFile(folder / "file", "");
    fs::create_symlink("nowhere", folder / "dangling");
    fs::create_directory(folder / "closed");
    ::chmod((folder / "closed").c_str(), 0);
    struct Row {
        std::string root;
        std::string reason;
    };
    for (Row const& row :
         {Row{"missing", "no such file or folder"}, Row{"file", "is not a folder"},
          Row{"dangling", "is a link that leads nowhere"}, Row{"closed", "permission denied"}}) {
        Outcome const outcome =
            CommandRun::vfs({"tree", row.root}).in(folder.path()).unprivileged().run();
        EXPECT_EQ(outcome.code, 1) << row.root;
        EXPECT_EQ(outcome.out, "") << row.root;
        EXPECT_EQ(outcome.err, "vfs: tree: " + row.root + ": " + row.reason + "\n");
    }
}

TEST(CommandTree, CountsWhatFindFinds) {
    TemporaryFolder folder;
    fs::create_directory(folder / "odd");
    makeOddTree(folder / "odd");

    Outcome const outcome =
        shell(folder, "vfs tree -a odd | tail -n 1; "
                      "echo $(vfs find -0 -td odd | tr -cd '\\0' | wc -c) folders, "
                      "$(vfs find -0 -tf odd | tr -cd '\\0' | wc -c) files");

    std::vector<std::string> const lines = linesOf(outcome.out);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], lines[1]);
}

TEST(CommandTree, RemembersOfADeepTreeOnlyNames) {
    TemporaryFolder folder;
    makeForkedChain(folder.path(), 1000);

    Outcome const outcome =
        shell(folder, "set -o pipefail; vfs tree | sed -n -e '1001,1002p;2001p' -e '$p;$='");

    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.code, 0);
    std::string indent;
    for (int level = 0; level < 999; ++level) {
        indent += "│   ";
    }
    EXPECT_THAT(linesOf(outcome.out),
                ::testing::ElementsAre(indent + "├── folder/", indent + "└── side/", "└── side/",
                                       "2000 folders, 0 files", "2003"));
    if (!VFS_SANITIZED) {
        EXPECT_LT(outcome.peakKiB, shell(folder, "vfs tree -L1 | sed -n '$p'").peakKiB + 2048);
    }
    removeTree(folder.path());
}

TEST(CommandTree, DrawsAChainOfTwoThousandFoldersInLittleMemory) {
    TemporaryFolder folder;
    makeChain(folder.path(), 2000);

    Outcome const outcome = vfs(folder, {"tree"});

    EXPECT_THAT(outcome.out, ::testing::EndsWith("└── leaf\n\n2000 folders, 1 file\n"));
    if (!VFS_SANITIZED) {
        EXPECT_LT(outcome.peakKiB, shell(folder, "vfs tree -L1").peakKiB + 1024);
    }
    removeTree(folder.path());
}

} // namespace
} // namespace cli_test
