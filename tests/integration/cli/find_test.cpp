#include "listed_trees.hpp"

#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <set>

namespace cli_test {
namespace {

using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;
namespace fs = std::filesystem;

// What find(1) prints of the same folder, and what it does not: the differences.
std::string differencesFromFind(TemporaryFolder const& folder, std::string const& root) {
    Outcome const outcome =
        shell(folder, "set -o pipefail\n"
                      "vfs find " +
                          root +
                          " -0 | sort -z > ours || exit\n"
                          "find " +
                          root +
                          " -mindepth 1 -printf '%P\\0' | sort -z > theirs || exit\n"
                          "[ -s ours ] || echo nothing was found\n"
                          "cmp ours theirs");
    return outcome.out + outcome.err;
}

TEST(CommandFind, PrintsEveryNameByteForByte) {
    TemporaryFolder folder;
    fs::create_directory(folder / "odd");
    makeOddTree(folder / "odd");

    EXPECT_EQ(differencesFromFind(folder, "odd"), "");
    EXPECT_EQ(differencesFromFind(folder, "'odd/in \xFF'"), "");
    EXPECT_EQ(differencesFromFind(folder, "'odd/line\nbreak'"), "");
}

TEST(CommandFind, PrintsWhatFindPrintsOfARealTree) {
    TemporaryFolder folder;

    EXPECT_EQ(differencesFromFind(folder, "/usr/include"), "");
    EXPECT_EQ(differencesFromFind(folder, "/etc"), "");
}

TEST(CommandFind, SpellsPathsTheSameHoweverTheFolderIsNamed) {
    TemporaryFolder folder;
    fs::create_directories(folder / "a b/c");
    writeFile(folder / "a b/c/x", "");
    fs::create_directory_symlink("a b", folder / "link");
    std::string const here = folder.path().string();
    for (std::string const& root :
         {std::string("a b"), std::string("a b/"), std::string("./a b"), std::string("a b/../a b"),
          here + "/a b", "file://" + here + "/a%20b", "file://" + here + "/a b/",
          std::string("link"), std::string("link/.")}) {
        Outcome const outcome = vfs(folder, {"find", root});
        EXPECT_THAT(linesOf(outcome.out), UnorderedElementsAre("c", "c/x")) << root;
        EXPECT_EQ(outcome.code, 0) << outcome.err;
    }
}

TEST(CommandFind, MatchesTheLastPartOfAPathAndEntersEveryFolder) {
    TemporaryFolder folder;
    fs::create_directories(folder / "a.txt/b");
    writeFile(folder / "a.txt/b/c.txt", "");
    writeFile(folder / "a.txt/b/.txt", "");
    writeFile(folder / "a.txt/b/d.TXT", "");
    writeFile(folder / "a.txt/b/\xC3\xA4\xC3\xB6", "");
    writeFile(folder / "a.txt/\xF0\x9F\x8D\x8B", "");

    EXPECT_THAT(linesOf(vfs(folder, {"find", ".", "*.txt"}).out),
                UnorderedElementsAre("a.txt", "a.txt/b/c.txt", "a.txt/b/.txt"));
    EXPECT_THAT(linesOf(vfs(folder, {"find", ".", "??"}).out),
                UnorderedElementsAre("a.txt/b/\xC3\xA4\xC3\xB6", "a.txt/\xF0\x9F\x8D\x8B"));
    EXPECT_EQ(vfs(folder, {"find", ".", "a.txt/b"}).out, "");
}

TEST(CommandFind, PrintsFilesOrFoldersWhereAsked) {
    TemporaryFolder folder;
    fs::create_directories(folder / "top/in");
    writeFile(folder / "top/in/file", "");
    fs::create_directory_symlink("in", folder / "top/link");
    ASSERT_EQ(::mkfifo((folder / "top/fifo").c_str(), 0666), 0);

    EXPECT_THAT(linesOf(vfs(folder, {"find", "-t", "f", "top"}).out),
                UnorderedElementsAre("in/file", "link", "fifo"));
    EXPECT_THAT(linesOf(vfs(folder, {"find", "--type", "d", "top"}).out), ElementsAre("in"));
    EXPECT_THAT(linesOf(vfs(folder, {"find", "-t", "f", "top", "f*"}).out),
                UnorderedElementsAre("in/file", "fifo"));
}

TEST(CommandFind, DoesNotFollowLinks) {
    TemporaryFolder folder;
    fs::create_directories(folder / "top/in");
    fs::create_directory_symlink("..", folder / "top/in/up");
    fs::create_symlink("self", folder / "top/self");
    fs::create_symlink("nowhere", folder / "top/dangling");
    fs::create_directory_symlink("/", folder / "top/root");

    EXPECT_THAT(linesOf(vfs(folder, {"find", "top"}).out),
                UnorderedElementsAre("in", "in/up", "self", "dangling", "root"));
    EXPECT_EQ(differencesFromFind(folder, "top"), "");
}

TEST(CommandFind, FindsNothingInAnEmptyFolderAndBelowAFile) {
    TemporaryFolder folder;
    fs::create_directory(folder / "empty");
    writeFile(folder / "file", "x");
    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0666), 0);
    for (std::string const root : {"empty", "file", "fifo"}) {
        Outcome const outcome = vfs(folder, {"find", root});
        EXPECT_EQ(outcome.code, 0) << root;
        EXPECT_EQ(outcome.out + outcome.err, "") << root;
    }
}

TEST(CommandFind, ReportsAFolderThatItCannotBeginWith) {
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
         {Row{"missing", "no such file or folder"}, Row{"file/", "is not a folder"},
          Row{"dangling", "is a link that leads nowhere"}, Row{"closed", "permission denied"},
          Row{"xyz:/a", "no provider for the scheme 'xyz'"}}) {
        for (std::string const option : {"-0", "-tf", "--json"}) {
            Outcome const outcome =
                CommandRun::vfs({"find", option, row.root}).in(folder.path()).unprivileged().run();
            EXPECT_EQ(outcome.code, 1) << row.root;
            EXPECT_EQ(outcome.out, "") << row.root;
            EXPECT_EQ(outcome.err, "vfs: find: " + row.root + ": " + row.reason + "\n");
        }
    }
}

TEST(CommandFind, PassesOverFoldersBelowThatAreClosed) {
    TemporaryFolder folder;
    fs::create_directories(folder / "top/closed/in");
    fs::create_directories(folder / "top/open/in");
    ::chmod((folder / "top/closed").c_str(), 0);

    Outcome const outcome = CommandRun::vfs({"find", "top"}).in(folder.path()).unprivileged().run();

    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_THAT(linesOf(outcome.out), UnorderedElementsAre("closed", "open", "open/in"));
    ::chmod((folder / "top/closed").c_str(), 0755);
}

TEST(CommandFind, ReadsAChainOfTwoThousandFolders) {
    TemporaryFolder folder;
    makeChain(folder.path(), 2000);

    std::vector<std::string> const paths = linesOf(vfs(folder, {"find", "."}).out);
    std::vector<std::string> const facts =
        linesOf(vfs(folder, {"find", "--json", ".", "leaf"}).out);

    EXPECT_EQ(paths.size(), 2001u);
    auto const longest =
        std::max_element(paths.begin(), paths.end(),
                         [](auto const& a, auto const& b) { return a.size() < b.size(); });
    EXPECT_EQ(longest->size(), 2000 * std::string("folder/").size() + 4);
    ASSERT_EQ(facts.size(), 1u);
    EXPECT_EQ(nlohmann::json::parse(facts[0])["path"], *longest);
    removeTree(folder.path());
}

TEST(CommandFind, GetsThroughATreeThatChangesAllTheTime) {
    for (std::string const words : {"find /proc", "find -t d /proc", "find --json /proc/self"}) {
        TemporaryFolder folder;
        Outcome const outcome = shell(folder, "timeout 120 vfs " + words);
        EXPECT_EQ(outcome.code, 0) << words;
        EXPECT_EQ(outcome.err, "") << words;
        EXPECT_GT(linesOf(outcome.out).size(), 20u) << words;
    }
}

TEST(CommandFind, PrintsFactsAsJson) {
    TemporaryFolder folder;
    fs::create_directories(folder / "top/in");
    writeFile(folder / "top/in/a\nb", "12345");
    writeFile(folder / "top/\xFF", "");
    fs::create_symlink("in/\xFE", folder / "top/link");
    ASSERT_EQ(vfs(folder, {"touch", "-d", "2024-05-01T10:30:00Z", "top/in/a\nb"}).code, 0);

    Outcome const outcome = vfs(folder, {"find", "--json", "top"});

    EXPECT_EQ(outcome.err, "");
    std::map<std::string, nlohmann::json> found;
    for (std::string const& line : linesOf(outcome.out)) {
        nlohmann::json const facts = nlohmann::json::parse(line);
        found[facts["path"].is_string() ? facts["path"].get<std::string>() : "bytes"] = facts;
    }
    ASSERT_EQ(found.size(), 4u) << outcome.out;
    std::string const top = "file://" + (folder / "top").string();
    nlohmann::json const& file = found["in/a\nb"];
    EXPECT_EQ(file["name"], "a\nb");
    EXPECT_EQ(file["location"], top + "/in/a%0Ab");
    EXPECT_EQ(file["kind"], "file");
    EXPECT_EQ(file["size"], 5);
    EXPECT_EQ(file["modified"], "2024-05-01T10:30:00.000000000Z");
    EXPECT_EQ(file["mode"], "0644");
    EXPECT_EQ(file["writable"], true);
    EXPECT_FALSE(file.contains("target"));
    EXPECT_EQ(found["in"]["kind"], "folder");
    EXPECT_EQ(found["link"]["kind"], "dangling-link");
    EXPECT_EQ(found["link"]["target"]["hex"], "696e2ffe");
    EXPECT_EQ(found["bytes"]["name"]["hex"], "ff");
    EXPECT_EQ(found["bytes"]["path"]["hex"], "ff");
    EXPECT_EQ(found["bytes"]["location"], top + "/%FF");
}

TEST(CommandFind, ListsMemoryInAScript) {
    TemporaryFolder folder;
    writeFile(folder / "a", "12");

    Outcome const outcome = CommandRun::vfs({"sh"})
                                .in(folder.path())
                                .input("mkdir -p mem:/x/y\n"
                                       "put -i a mem:/x/y/%FF\n"
                                       "put -i a mem:/x/b.txt\n"
                                       "find mem:\n"
                                       "find -0 mem:/x *.txt\n"
                                       "find -t d mem:/x\n")
                                .run();

    EXPECT_EQ(outcome.err, "");
    std::string const lists = outcome.out;
    EXPECT_THAT(lists, ::testing::EndsWith(std::string("b.txt\0y\n", 8)));
    EXPECT_THAT(linesOf(lists.substr(0, lists.size() - 8)),
                UnorderedElementsAre("x", "x/y", "x/y/\xFF", "x/b.txt"));
}

TEST(CommandFind, EndsQuietlyWhenItsReaderDoes) {
    TemporaryFolder folder;
    for (std::string const words : {"find /usr", "find --json /usr", "ls -R /usr", "tree /usr"}) {
        Outcome const outcome =
            shell(folder, "vfs " + words + " | head -n 1 | wc -l; echo ${PIPESTATUS[0]}");
        EXPECT_EQ(outcome.out, "1\n141\n") << words;
        EXPECT_EQ(outcome.err, "") << words;
    }
}

TEST(CommandFind, EndsAtTheFirstSignal) {
    TemporaryFolder folder;
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    Process process = CommandRun::vfs({"find", "/usr"}).in(folder.path()).outputTo(ends[1]).start();
    ::close(ends[1]);
    int const capacity = ::fcntl(ends[0], F_GETPIPE_SZ);
    for (int waiting = 0; waiting < capacity;) { // nobody reads, so that it comes to stand still
        ASSERT_EQ(::ioctl(ends[0], FIONREAD, &waiting), 0);
        ::usleep(1000);
    }

    process.signal(SIGINT);
    Outcome const outcome = process.wait();
    ::close(ends[0]);

    EXPECT_EQ(outcome.code, 130);
    EXPECT_EQ(outcome.err, "");
}

TEST(CommandFind, NeedsNoMoreMemoryForMoreFiles) {
    if (VFS_SANITIZED) {
        GTEST_SKIP() << "a sanitizer keeps freed memory";
    }
    TemporaryFolder folder;
    fs::create_directory(folder / "empty");
    fs::create_directory(folder / "full");
    makeFiles(folder / "full", 60'000);
    for (std::string const option : {"-0", "-tf", "--json"}) {
        long const least = vfs(folder, {"find", option, "empty"}).peakKiB;

        Outcome const outcome = vfs(folder, {"find", option, "full"});

        EXPECT_GT(outcome.out.size(), 60'000u * 34) << option;
        EXPECT_LT(outcome.peakKiB, least + 2048) << option;
    }
}

} // namespace
} // namespace cli_test
