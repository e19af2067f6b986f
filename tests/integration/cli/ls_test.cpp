#include "listed_trees.hpp"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include <map>

namespace cli_test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
namespace fs = std::filesystem;

TEST(CommandLs, SortsByTheBytesOfNamesAndMarksFolders) {
    TemporaryFolder folder;
    for (char const* const name :
         {"a", "B", "_", "Z", "b", "10", "9", "\xC3\xA4", "\xEF\xBD\x9E", "\xF0\x9F\x8D\x8B"}) {
        writeFile(folder / name, "");
    }
    fs::create_directory(folder / "M");
    fs::create_symlink("M", folder / "link");

    Outcome const outcome = vfs(folder, {"ls"});

    EXPECT_EQ(outcome.code, 0);
    EXPECT_THAT(linesOf(outcome.out), ElementsAre("10", "9", "B", "M/", "Z", "_", "a", "b", "link",
                                                  "\xC3\xA4", "\xEF\xBD\x9E", "\xF0\x9F\x8D\x8B"));
}

TEST(CommandLs, ListsTheSameAsLsWhateverTheNames) {
    TemporaryFolder folder;
    fs::create_directory(folder / "odd");
    makeOddTree(folder / "odd");

    Outcome const counted =
        shell(folder, "vfs ls -aR odd | grep -c .; find odd | wc -l -z 2>/dev/null || true;"
                      "find odd -print0 | tr -cd '\\0' | wc -c; find odd -type d -print0 | "
                      "tr -cd '\\0' | wc -c");

    // A line for each entry, and one for the heading of each folder.
    std::vector<std::string> const lines = linesOf(counted.out);
    ASSERT_GE(lines.size(), 3u) << counted.out << counted.err;
    long const entries = std::stol(lines[lines.size() - 2]) - 1;
    long const folders = std::stol(lines.back());
    EXPECT_EQ(std::stol(lines[0]), entries + folders);
    EXPECT_EQ(counted.err, "");
}

TEST(CommandLs, EscapesWhatWouldHarmATerminal) {
    TemporaryFolder folder;
    writeFile(folder / "a\nb", "");
    writeFile(folder / "\x1b[0m", "");
    writeFile(folder / "\xFF", "");

    EXPECT_EQ(vfs(folder, {"ls"}).out, "\\x1b[0m\na\\nb\n\\xff\n");
}

TEST(CommandLs, ShowsHiddenNamesWhereAsked) {
    TemporaryFolder folder;
    fs::create_directory(folder / ".git");
    writeFile(folder / ".git/config", "");
    writeFile(folder / ".rc", "");
    writeFile(folder / "a", "");

    EXPECT_EQ(vfs(folder, {"ls"}).out, "a\n");
    EXPECT_EQ(vfs(folder, {"ls", "-a"}).out, ".git/\n.rc\na\n");
    EXPECT_EQ(vfs(folder, {"ls", "-R"}).out, ".:\na\n");
    EXPECT_EQ(vfs(folder, {"ls", "-aR"}).out, ".:\n.git/\n.rc\na\n\n./.git:\nconfig\n");
    EXPECT_EQ(vfs(folder, {"ls", "-p", "*r*"}).out, "");
    EXPECT_EQ(vfs(folder, {"ls", "-p", ".*"}).out, ".git/\n.rc\n");
    EXPECT_EQ(vfs(folder, {"ls", "-R", "-p", ".*"}).out, ".:\n.git/\n.rc\n");
}

TEST(CommandLs, ShowsDetailsInColumns) {
    TemporaryFolder folder;
    writeFile(folder / "file", std::string(1536, 'x'));
    ::chmod((folder / "file").c_str(), 04750);
    fs::create_directory(folder / "folder");
    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
    fs::create_symlink("to\n\xFF", folder / "link");
    for (char const* const name : {"file", "folder", "fifo"}) {
        ASSERT_EQ(vfs(folder, {"touch", "-d", "2024-05-01T10:30:59.9Z", name}).code, 0);
    }
    shell(folder, "touch -h -d 1969-12-31T23:59:58.5Z link");

    EXPECT_EQ(vfs(folder, {"ls", "-l"}).out,
              "orw-------         0 B  2024-05-01T10:30:59Z  fifo\n"
              "-rwsr-x---     1.5 KiB  2024-05-01T10:30:59Z  file\n"
              "drwxr-xr-x           -  2024-05-01T10:30:59Z  folder/\n"
              "lrwxrwxrwx         4 B  1969-12-31T23:59:58Z  link -> to\\n\\xff\n");
}

TEST(CommandLs, ListsFilesFirstAndGivesSeveralFoldersHeadings) {
    TemporaryFolder folder;
    fs::create_directory(folder / "one");
    fs::create_directory(folder / "two");
    writeFile(folder / "one/a", "");
    writeFile(folder / "file", "12");

    Outcome const outcome = vfs(folder, {"ls", "two", "file", "missing", "one/"});

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "vfs: ls: missing: no such file or folder\n");
    EXPECT_EQ(outcome.out, "file\n\ntwo:\n\none/:\na\n");
}

TEST(CommandLs, ListsAFileThatIsNamed) {
    TemporaryFolder folder;
    fs::create_directory(folder / "in");
    writeFile(folder / "in/file", "12");
    ::chmod((folder / "in/file").c_str(), 0604);
    fs::create_symlink("file", folder / "in/link");
    fs::create_symlink("nowhere", folder / "in/dangling");
    ASSERT_EQ(vfs(folder, {"touch", "-d", "2024-05-01T10:30:00Z", "in/file"}).code, 0);
    ASSERT_EQ(shell(folder, "touch -h -d 2024-05-02T10:30:00Z in/dangling").code, 0);

    EXPECT_EQ(vfs(folder, {"ls", "in/file", "in/dangling"}).out, "in/file\nin/dangling\n");
    EXPECT_EQ(vfs(folder, {"ls", "-l", "in/file", "in/link", "in/dangling"}).out,
              "-rw----r--         2 B  2024-05-01T10:30:00Z  in/file\n"
              "lrw----r--         2 B  2024-05-01T10:30:00Z  in/link -> file\n"
              "lrwxrwxrwx         7 B  2024-05-02T10:30:00Z  in/dangling -> nowhere\n");
    nlohmann::json const facts =
        nlohmann::json::parse(vfs(folder, {"ls", "--json", "in/link"}).out);
    EXPECT_EQ(facts["name"], "link");
    EXPECT_EQ(facts["path"], "link");
    EXPECT_EQ(facts["kind"], "link-to-file");
    EXPECT_EQ(facts["target"], "file");
    nlohmann::json const dangling =
        nlohmann::json::parse(vfs(folder, {"ls", "--json", "in/dangling"}).out);
    EXPECT_EQ(dangling["kind"], "dangling-link");
    EXPECT_EQ(dangling["size"], 7);
    EXPECT_EQ(dangling["modified"], "2024-05-02T10:30:00.000000000Z");
    EXPECT_EQ(vfs(folder, {"ls", "in/file/"}).err, "vfs: ls: in/file/: is not a folder\n");
}

TEST(CommandLs, FollowsALinkToAFolderThatIsNamed) {
    TemporaryFolder folder;
    fs::create_directory(folder / "in");
    writeFile(folder / "in/a", "");
    fs::create_symlink("in", folder / "link");

    EXPECT_EQ(vfs(folder, {"ls", "link"}).out, "a\n");
    EXPECT_EQ(vfs(folder, {"ls", "-R", "link"}).out, "link:\na\n");
}

TEST(CommandLs, ListsATreeFolderByFolderInOrder) {
    TemporaryFolder folder;
    fs::create_directories(folder / "top/b/x");
    fs::create_directories(folder / "top/a");
    fs::create_directories(folder / "top/C");
    writeFile(folder / "top/b/x/file", "");
    writeFile(folder / "top/a/2", "");
    writeFile(folder / "top/a/1", "");
    std::string const top = (folder / "top").string();

    EXPECT_EQ(vfs(folder, {"ls", "-R", "top"}).out,
              "top:\nC/\na/\nb/\n\ntop/C:\n\ntop/a:\n1\n2\n\ntop/b:\nx/\n\ntop/b/x:\nfile\n");
    EXPECT_EQ(vfs(folder, {"ls", "-R", "top/b/"}).out, "top/b/:\nx/\n\ntop/b/x:\nfile\n");
    EXPECT_EQ(vfs(folder, {"ls", "-R", "file://" + top + "/b"}).out,
              "file://" + top + "/b:\nx/\n\nfile://" + top + "/b/x:\nfile\n");
}

TEST(CommandLs, FiltersWhatIsShownAndNotWhatIsEntered) {
    TemporaryFolder folder;
    fs::create_directories(folder / "top/a/b.txt");
    writeFile(folder / "top/a/b.txt/c.txt", "");
    writeFile(folder / "top/a/b.txt/c.md", "");
    writeFile(folder / "top/d.md", "");

    EXPECT_EQ(vfs(folder, {"ls", "-p", "*.md", "top"}).out, "d.md\n");
    EXPECT_EQ(vfs(folder, {"ls", "-R", "-p", "*.txt", "top"}).out,
              "top/a:\nb.txt/\n\ntop/a/b.txt:\nc.txt\n");
    EXPECT_EQ(vfs(folder, {"ls", "-R", "-p", "", "top/a"}).out,
              vfs(folder, {"ls", "-R", "top/a"}).out);
}

TEST(CommandLs, NeverEntersLinks) {
    TemporaryFolder folder;
    fs::create_directories(folder / "top/in");
    fs::create_symlink("..", folder / "top/in/up");
    fs::create_symlink("self", folder / "top/self");

    Outcome const outcome = vfs(folder, {"ls", "-R", "top"});

    EXPECT_EQ(outcome.out, "top:\nin/\nself\n\ntop/in:\nup\n");
    EXPECT_EQ(outcome.code, 0);
}

TEST(CommandLs, ReportsAFolderThatIsClosedAndGoesOn) {
    TemporaryFolder folder;
    fs::create_directories(folder / "top/a/in");
    fs::create_directories(folder / "top/b/closed/in");
    fs::create_directories(folder / "top/c/in");
    ::chmod((folder / "top/b/closed").c_str(), 0);
    auto const list = [&](std::vector<std::string> const& words) {
        return CommandRun::vfs(words).in(folder.path()).unprivileged().run();
    };

    Outcome const tree = list({"ls", "-R", "top"});
    Outcome const json = list({"ls", "-R", "--json", "top"});
    Outcome const alone = list({"ls", "top/b/closed"});
    ::chmod((folder / "top/b/closed").c_str(), 0755);

    std::string const reason = "vfs: ls: top/b/closed: permission denied\n";
    EXPECT_EQ(tree.code, 1);
    EXPECT_EQ(tree.err, reason);
    EXPECT_EQ(tree.out, "top:\na/\nb/\nc/\n\ntop/a:\nin/\n\ntop/a/in:\n\ntop/b:\nclosed/\n\n"
                        "top/c:\nin/\n\ntop/c/in:\n");
    EXPECT_EQ(json.code, 1);
    EXPECT_EQ(json.err, reason);
    EXPECT_EQ(linesOf(json.out).size(), 6u);
    EXPECT_EQ(alone.code, 1);
    EXPECT_EQ(alone.out, "");
    EXPECT_EQ(alone.err, reason);
}

TEST(CommandLs, ShowsNamesWhoseDetailsAreClosed) {
    TemporaryFolder folder;
    fs::create_directories(folder / "names/in");
    writeFile(folder / "names/a", "");
    ::chmod((folder / "names").c_str(), 0444);
    auto const list = [&](std::vector<std::string> const& words) {
        return CommandRun::vfs(words).in(folder.path()).unprivileged().run();
    };

    Outcome const plain = list({"ls", "names"});
    Outcome const details = list({"ls", "-l", "names"});
    ::chmod((folder / "names").c_str(), 0755);

    EXPECT_EQ(plain.out, "a\nin/\n");
    EXPECT_EQ(plain.err, "");
    EXPECT_EQ(plain.code, 0);
    EXPECT_EQ(details.out, "-?????????           ?  ?                     a\n"
                           "d?????????           ?  ?                     in/\n");
    EXPECT_THAT(details.err, HasSubstr("vfs: ls: names/a: permission denied\n"));
    EXPECT_THAT(details.err, HasSubstr("vfs: ls: names/in: permission denied\n"));
    EXPECT_EQ(details.code, 1);
}

TEST(CommandLs, ReadsAChainOfTwoThousandFolders) {
    TemporaryFolder folder;
    makeChain(folder.path(), 2000);

    Outcome const outcome = vfs(folder, {"ls", "-R"});

    EXPECT_EQ(outcome.err, "");
    std::vector<std::string> const lines = linesOf(outcome.out);
    ASSERT_EQ(lines.size(), 3 * 2001u - 1);
    EXPECT_EQ(lines.back(), "leaf");
    EXPECT_EQ(lines[lines.size() - 2].size(), std::string(".:").size() + 2000 * 7);
    removeTree(folder.path());
}

TEST(CommandLs, RemembersOfADeepTreeOnlyNames) {
    TemporaryFolder folder;
    makeForkedChain(folder.path(), 1000);

    // Each level but the last has a heading, two names and an empty line, and each folder beside
    // it a heading and an empty line, from the innermost one up.
    Outcome const outcome =
        shell(folder, "set -o pipefail; vfs ls -R | sed -n -e '4001p;4003p' -e '$p;$='");

    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.code, 0);
    std::string above = "."; // of the folders in the last level
    for (int level = 0; level < 999; ++level) {
        above += "/folder";
    }
    EXPECT_THAT(linesOf(outcome.out),
                ElementsAre(above + "/folder:", above + "/side:", "./side:", "6001"));
    if (!VFS_SANITIZED) {
        EXPECT_LT(outcome.peakKiB, shell(folder, "vfs ls | sed -n '$p'").peakKiB + 2048);
    }
    removeTree(folder.path());
}

TEST(CommandLs, PrintsAJsonObjectForEachEntry) {
    TemporaryFolder folder;
    fs::create_directories(folder / "top/in");
    writeFile(folder / "top/in/\xC3\xA4", "123");
    writeFile(folder / "top/.hidden", "");
    fs::create_symlink("in", folder / "top/link");

    std::map<std::string, nlohmann::json> found;
    for (std::string const& line : linesOf(vfs(folder, {"ls", "-R", "--json", "top"}).out)) {
        nlohmann::json const facts = nlohmann::json::parse(line);
        found[facts["path"].get<std::string>()] = facts;
    }

    ASSERT_EQ(found.size(), 3u);
    EXPECT_EQ(found["in"]["kind"], "folder");
    EXPECT_EQ(found["in"]["name"], "in");
    EXPECT_EQ(found["link"]["kind"], "link-to-folder");
    EXPECT_EQ(found["link"]["target"], "in");
    EXPECT_EQ(found["in/\xC3\xA4"]["name"], "\xC3\xA4");
    EXPECT_EQ(found["in/\xC3\xA4"]["size"], 3);
    // What `stat --json` says of a file is what is said here, under the same names.
    nlohmann::json const stat =
        nlohmann::json::parse(vfs(folder, {"stat", "--json", "top/in/\xC3\xA4"}).out);
    for (char const* const member : {"location", "kind", "size", "modified", "mode", "writable"}) {
        EXPECT_EQ(found["in/\xC3\xA4"][member], stat[member]) << member;
    }
}

TEST(CommandLs, ListsMemoryInAScript) {
    TemporaryFolder folder;

    Outcome const outcome = CommandRun::vfs({"sh"})
                                .in(folder.path())
                                .input("mkdir -p mem:/b/c\n"
                                       "touch mem:/a%0A mem:/b/%FF\n"
                                       "ls mem:\n"
                                       "ls -R mem:/b\n"
                                       "ls -R -p c mem:\n"
                                       "ls mem: mem:/b/c\n"
                                       "ls mem:/none\n")
                                .run();

    EXPECT_EQ(outcome.out, "a\\n\nb/\n"
                           "mem:/b:\nc/\n\\xff\n\nmem:/b/c:\n"
                           "mem:/b:\nc/\n"
                           "mem:/:\na\\n\nb/\n\nmem:/b/c:\n");
    EXPECT_EQ(outcome.err, "vfs: ls: mem:/none: no such file or folder\n");
    EXPECT_EQ(outcome.code, 1);
}

} // namespace
} // namespace cli_test
