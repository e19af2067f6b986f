#include "listed_trees.hpp"

#include <cli/tree_comparison.hpp>

#include <gmock/gmock.h>

#include <set>

namespace cli_test {
namespace {

namespace fs = std::filesystem;

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;

// Two equal trees, `a` and `b`.
class CommandCheck : public ::testing::Test {
  protected:
    CommandCheck() {
        fs::create_directories(folder_ / "a/docs/2024");
        writeFile(folder_ / "a/notes.txt", "Buy milk.\n");
        writeFile(folder_ / "a/docs/old.txt", "old");
        writeFile(folder_ / "a/docs/2024/new.txt", "new");
        fs::create_symlink("docs/2024", folder_ / "a/link");
        copyAgain();
    }
    void copyAgain() { shell(folder_, "rm -rf b && cp -a a b"); }
    Outcome check(std::vector<std::string> words) {
        words.insert(words.begin(), "check");
        return vfs(folder_, words);
    }

    TemporaryFolder folder_;
};

TEST_F(CommandCheck, FindsNoDifferenceBetweenEqualTrees) {
    for (std::string const by : {"size", "time", "content", "digest"}) {
        Outcome const outcome = check({"--by", by, "a", "b"});
        EXPECT_EQ(outcome.code, 0) << by;
        EXPECT_EQ(outcome.err, "") << by;
        EXPECT_THAT(outcome.out, ::testing::StartsWith("4 files and 3 folders compared")) << by;
        EXPECT_THAT(outcome.out, EndsWith(", no difference\n")) << by;
    }
    EXPECT_EQ(check({"a", "b"}).out, "4 files and 3 folders compared (16 B), no difference\n");
    EXPECT_EQ(check({"--json", "a", "b"}).out,
              "{\"equal\":true,\"differences\":0,\"failures\":0,\"files\":4,\"folders\":3,"
              "\"bytes\":16}\n");
}

TEST_F(CommandCheck, NamesEachDifferenceInOrder) {
    writeFile(folder_ / "b/docs/2024/new.txt", "nEw");
    writeFile(folder_ / "b/docs/old.txt", "older");
    fs::remove(folder_ / "b/notes.txt");
    fs::create_directory(folder_ / "b/notes.txt");
    writeFile(folder_ / "b/notes.txt/inside", "");
    fs::remove(folder_ / "b/link");
    fs::create_symlink("docs", folder_ / "b/link");
    writeFile(folder_ / "a/gone", "");
    fs::create_directories(folder_ / "b/added/inner");

    Outcome const outcome = check({"a", "b"});

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "");
    EXPECT_THAT(linesOf(outcome.out), ElementsAre("added/: only in b", "gone: only in a",
                                                  "link: target differs (docs/2024, docs)",
                                                  "notes.txt: kind differs (file, folder)",
                                                  "docs/old.txt: size differs (3 bytes, 5 bytes)",
                                                  "docs/2024/new.txt: content differs",
                                                  "3 files and 3 folders compared, 6 differences"));
    EXPECT_THAT(
        linesOf(check({"--json", "a", "b"}).out),
        ElementsAre(
            R"({"path":"added","difference":"only-in-second","kind":"folder"})",
            R"({"path":"gone","difference":"only-in-first","kind":"file"})",
            R"({"path":"link","difference":"target","first":"docs/2024","second":"docs"})",
            R"({"path":"notes.txt","difference":"kind","first":"file","second":"folder"})",
            R"({"path":"docs/old.txt","difference":"size","first":3,"second":5})",
            R"({"path":"docs/2024/new.txt","difference":"content"})",
            R"({"equal":false,"differences":6,"failures":0,"files":3,"folders":3,"bytes":0})"));
}

TEST_F(CommandCheck, SeesOfAFileWhatItIsToldTo) {
    struct Row {
        std::string change;
        bool bySize;
        bool byTime;
        bool byContent;
    };
    for (Row const& row : {
             Row{"true", false, false, false},
             Row{"touch -r b/notes.txt stamp; printf bUY b/notes.txt | "
                 "dd of=b/notes.txt conv=notrunc status=none; touch -r stamp b/notes.txt",
                 false, false, true},
             Row{"touch -d 2024-05-01T10:30:00.000000001Z a/notes.txt; "
                 "touch -d 2024-05-01T10:30:00.000000002Z b/notes.txt",
                 false, true, false},
             Row{"touch -d 2024-05-01T10:30:00Z a/notes.txt; "
                 "touch -d 2024-05-01T10:30:00.5Z b/notes.txt",
                 false, true, false},
             Row{"touch -r b/notes.txt stamp; echo more >> b/notes.txt; touch -r stamp b/notes.txt",
                 true, true, true},
             Row{"touch -d 2001-01-01 b b/docs; touch -h -d 2001-01-01 b/link", false, false,
                 false},
         }) {
        copyAgain();
        shell(folder_, row.change);
        EXPECT_EQ(check({"--by", "size", "a", "b"}).code, row.bySize) << row.change;
        EXPECT_EQ(check({"--by", "time", "a", "b"}).code, row.byTime) << row.change;
        EXPECT_EQ(check({"--by", "content", "a", "b"}).code, row.byContent) << row.change;
        EXPECT_EQ(check({"--by=digest", "a", "b"}).code, row.byContent) << row.change;
        EXPECT_EQ(check({"a", "b"}).code, row.byContent) << row.change;
    }
}

TEST_F(CommandCheck, ShowsTimesToTheNanosecond) {
    shell(folder_, "touch -d 2024-05-01T10:30:00.000000001Z a/notes.txt; "
                   "touch -d 2024-05-01T10:30:00.000000002Z b/notes.txt");

    EXPECT_THAT(check({"--by", "time", "a", "b"}).out,
                HasSubstr("notes.txt: time differs (2024-05-01T10:30:00.000000001Z, "
                          "2024-05-01T10:30:00.000000002Z)\n"));
}

TEST_F(CommandCheck, ComparesTwoFiles) {
    writeFile(folder_ / "same", "Buy milk.\n");
    writeFile(folder_ / "other", "Buy bread.");

    EXPECT_EQ(check({"a/notes.txt", "same"}).out, "1 file compared (10 B), no difference\n");
    Outcome const outcome = check({"a/notes.txt", "other"});
    EXPECT_EQ(outcome.out, "a/notes.txt: content differs\n1 file compared, 1 difference\n");
    EXPECT_EQ(outcome.code, 1);
    Outcome const kinds = check({"a/notes.txt", "b"});
    EXPECT_EQ(kinds.out,
              "a/notes.txt: kind differs (file, folder)\n0 files compared, 1 difference\n");
    EXPECT_EQ(kinds.code, 1);
}

TEST_F(CommandCheck, ComparesToTheLastByteOfLargeFiles) {
    std::string bytes(1'000'000, 'x');
    writeFile(folder_ / "one", bytes);
    bytes.back() = 'y';
    writeFile(folder_ / "other", bytes);

    EXPECT_EQ(check({"one", "other"}).code, 1);
    EXPECT_EQ(check({"one", "one"}).code, 0);
}

TEST_F(CommandCheck, FollowsLinksAtTheTopAlone) {
    fs::create_symlink("b", folder_ / "to-b");
    fs::create_symlink("a/notes.txt", folder_ / "to-file");
    fs::create_symlink("nowhere", folder_ / "dangling");

    EXPECT_EQ(check({"a", "to-b"}).code, 0);
    EXPECT_EQ(check({"to-file", "b/notes.txt"}).code, 0);
    Outcome const outcome = check({"dangling", "a"});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "vfs: check: dangling: is a link that leads nowhere\n");
}

TEST_F(CommandCheck, ComparesWhatLinksLeadToWhereItIsToldTo) {
    fs::create_symlink("notes.txt", folder_ / "a/was-file");
    fs::create_symlink("docs", folder_ / "a/was-folder");
    EXPECT_EQ(vfs(folder_, {"cp", "-r", "-L", "a", "copy"}).code, 0);
    EXPECT_FALSE(fs::is_symlink(folder_ / "copy/link"));

    EXPECT_EQ(check({"-L", "a", "copy"}).out,
              "7 files and 6 folders compared (35 B), no difference\n");
    EXPECT_EQ(check({"-L", "copy", "a"}).code, 0);
    EXPECT_EQ(check({"a", "copy"}).code, 1);

    writeFile(folder_ / "copy/was-file", "Buy silk.\n");
    writeFile(folder_ / "copy/was-folder/old.txt", "older");
    EXPECT_THAT(linesOf(check({"-L", "a", "copy"}).out),
                ElementsAre("was-file: content differs",
                            "was-folder/old.txt: size differs (3 bytes, 5 bytes)",
                            HasSubstr("2 differences")));
    EXPECT_THAT(linesOf(check({"-L", "--by", "size", "a", "copy"}).out),
                ElementsAre("was-folder/old.txt: size differs (3 bytes, 5 bytes)",
                            HasSubstr("1 difference")));
}

TEST_F(CommandCheck, FollowsNoLinkToAFolderThatItIsIn) {
    for (char const* const side : {"a", "b"}) {
        fs::create_symlink("..", folder_ / side / "docs/up");
        fs::create_directory(folder_ / side / "first");
        fs::create_directory(folder_ / side / "second");
        fs::create_symlink("../second", folder_ / side / "first/next");
        fs::create_symlink("../first", folder_ / side / "second/next");
        fs::create_symlink("nowhere", folder_ / side / "dangling");
    }
    Outcome const outcome = check({"-L", "a", "b"});
    EXPECT_EQ(outcome.code, 1);
    std::string const loop = ": is a link to a folder that it is in; it is not followed";
    EXPECT_THAT(linesOf(outcome.err),
                ::testing::UnorderedElementsAre(
                    "vfs: check: a/dangling: is a link that leads nowhere",
                    "vfs: check: b/dangling: is a link that leads nowhere",
                    "vfs: check: a/docs/up" + loop, "vfs: check: b/docs/up" + loop,
                    "vfs: check: a/first/next/next" + loop, "vfs: check: b/first/next/next" + loop,
                    "vfs: check: a/second/next/next" + loop,
                    "vfs: check: b/second/next/next" + loop));
    EXPECT_THAT(outcome.out, HasSubstr("no difference, 8 failed"));
}

TEST_F(CommandCheck, TakesLinksThatLeadToTheSameAsEqualWhatEverIsThere) {
    fs::create_symlink("target", folder_ / "a/one");
    fs::create_symlink("target", folder_ / "b/one");
    fs::create_directory(folder_ / "a/target");
    fs::create_symlink("notes.txt", folder_ / "a/was-file");
    writeFile(folder_ / "b/was-file", "Buy milk.\n");
    fs::create_symlink("docs", folder_ / "a/was-folder");
    fs::create_directory(folder_ / "b/was-folder");

    EXPECT_THAT(linesOf(check({"a", "b"}).out),
                ElementsAre("target/: only in a", "was-file: kind differs (link to a file, file)",
                            "was-folder: kind differs (link to a folder, folder)",
                            HasSubstr("3 differences")));
}

TEST_F(CommandCheck, ReportsOperandsThatCannotBeCompared) {
    shell(folder_, "mkfifo fifo");
    Outcome const outcome = check({"missing", "fifo"});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "vfs: check: missing: no such file or folder\n"
                           "vfs: check: fifo: is not a regular file\n");
    EXPECT_EQ(check({"a/notes.txt/", "b/notes.txt"}).err,
              "vfs: check: a/notes.txt/: is not a folder\n");
}

TEST_F(CommandCheck, SaysThatSpecialFilesCannotBeCompared) {
    shell(folder_, "mkfifo a/fifo b/fifo a/or-file; echo > b/or-file");

    Outcome const outcome = check({"a", "b"});

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err,
              "vfs: check: a/fifo: is not a regular file, and so cannot be compared\n");
    EXPECT_THAT(linesOf(outcome.out),
                ElementsAre("or-file: kind differs (special file, file)",
                            EndsWith("compared (16 B), 1 difference, 1 failed")));
}

TEST_F(CommandCheck, NamesWhatItCannotReadAndGoesOn) {
    writeFile(folder_ / "a/a-secret", "one");
    copyAgain();
    fs::permissions(folder_ / "b/a-secret", fs::perms::none);
    fs::permissions(folder_ / "b/docs/2024", fs::perms::none);
    writeFile(folder_ / "b/docs/old.txt", "OLD");

    Outcome const outcome =
        CommandRun::vfs({"check", "a", "b"}).in(folder_.path()).unprivileged().run();
    fs::permissions(folder_ / "b/docs/2024", fs::perms::all);

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "vfs: check: b/a-secret: permission denied\n"
                           "vfs: check: b/docs/2024: permission denied\n");
    EXPECT_THAT(linesOf(outcome.out),
                ElementsAre("docs/old.txt: content differs",
                            EndsWith("compared (10 B), 1 difference, 2 failed")));
}

TEST_F(CommandCheck, UnderstandsItsOptions) {
    EXPECT_EQ(check({"a"}).code, 2);
    EXPECT_EQ(check({"a", "b", "c"}).code, 2);
    EXPECT_EQ(check({"--by", "colour", "a", "b"}).code, 2);
    EXPECT_EQ(check({"--by", "", "a", "b"}).code, 2);
}

TEST_F(CommandCheck, ComparesTheDiskWithTheMemory) {
    Outcome const outcome = shell(folder_, "vfs sh <<'END'\n"
                                           "mkdir -p mem:/t/docs/2024\n"
                                           "cp a/notes.txt mem:/t\n"
                                           "cp a/docs/old.txt mem:/t/docs\n"
                                           "cp a/docs/2024/new.txt mem:/t/docs/2024\n"
                                           "cp a/link mem:/t\n"
                                           "check a mem:/t\n"
                                           "check mem:/t a/\n"
                                           "put -i a/notes.txt mem:/t/docs/old.txt\n"
                                           "check a mem:/t\n"
                                           "END\n");

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.out, "4 files and 3 folders compared (16 B), no difference\n"
                           "4 files and 3 folders compared (16 B), no difference\n"
                           "docs/old.txt: size differs (3 bytes, 10 bytes)\n"
                           "4 files and 3 folders compared (13 B), 1 difference\n");
}

TEST_F(CommandCheck, FindsACopyOfATreeCleanToTheNanosecond) {
    fs::create_directory(folder_ / "odd");
    makeOddTree(folder_ / "odd");
    shell(folder_, "ln -s plain odd/link; touch -d 2001-02-03T04:05:06.123456789Z odd/plain/plain");

    Outcome const copied = shell(folder_, "vfs cp -r odd copied && vfs check odd copied && "
                                          "vfs check --by time odd copied && "
                                          "diff -r --no-dereference odd copied");
    Outcome const through = shell(folder_, "vfs sh <<'END' && diff -r --no-dereference odd back\n"
                                           "cp -r odd mem:/odd\n"
                                           "check odd mem:/odd\n"
                                           "cp -r mem:/odd back\n"
                                           "check mem:/odd back\n"
                                           "END\n");

    EXPECT_EQ(copied.code, 0) << copied.out << copied.err;
    EXPECT_EQ(through.code, 0) << through.out << through.err;
}

TEST_F(CommandCheck, ShowsOddNamesOnOneLine) {
    writeFile(folder_ / "a/x\n\x1b[31m\xff", "");

    EXPECT_THAT(check({"a", "b"}).out, HasSubstr("x\\n\\x1b[31m\\xff: only in a\n"));
    EXPECT_THAT(check({"--json", "a", "b"}).out,
                HasSubstr("{\"path\":{\"hex\":\"780a1b5b33316dff\"}"));
}

std::set<std::string> pathsOf(std::string const& json) {
    std::set<std::string> paths;
    for (std::string const& line : linesOf(json)) {
        std::string const start = "{\"path\":\"";
        if (line.starts_with(start)) {
            paths.insert(line.substr(start.size(), line.find("\",\"") - start.size()));
        }
    }
    return paths;
}

TEST(CommandCheckBesideDiff, FindsWhatDiffFinds) {
    TemporaryFolder folder;
    fs::create_directory(folder / "a");
    makeOddTree(folder / "a");
    shell(folder, "ln -s plain a/link; ln -s nowhere a/dangling; cp -a a b");
    ASSERT_EQ(shell(folder, "diff -rq --no-dereference a b").code, 0);
    EXPECT_EQ(vfs(folder, {"check", "a", "b"}).code, 0);
    shell(folder, "cd b && rm -r 'in plain' && rm '100%/100%' && echo 1 > '#1/#1' && "
                  "echo new > 'what?x=1/new file' && mkdir 'a!/b!' && rm '!/!' && mkdir '!/!' && "
                  "echo 2 > 'in *'/'-rf' && ln -sfn elsewhere link && rm dangling && "
                  "ln -s nowhere dangling && echo > '...'/'~'");
    std::string const diff =
        shell(folder, "LC_ALL=C diff -rq --no-dereference a b | "
                      "sed -E 's,^Only in [ab]: ,,; s,^Only in [ab]/(.*): ,\\1/,; "
                      "s,^Files a/(.*) and b/.* differ$,\\1,; "
                      "s,^Symbolic links a/(.*) and b/.* differ$,\\1,; "
                      "s,^File a/(.*) is a .* while file .*,\\1,'")
            .out;
    std::vector<std::string> const found = linesOf(diff);
    ASSERT_EQ(found.size(), 9u) << diff;

    Outcome const outcome = vfs(folder, {"check", "--json", "a", "b"});

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(pathsOf(outcome.out), std::set<std::string>(found.begin(), found.end()));
}

TEST(CommandCheckOfDeepTrees, ComparesChainsOfTwoThousandFolders) {
    TemporaryFolder folder;
    for (std::string const side : {"a", "b"}) {
        fs::create_directory(folder / side);
        makeChain(folder / side, 2000);
    }

    Outcome const outcome = vfs(folder, {"check", "a", "b"});
    shell(folder, "rm -rf a b");

    EXPECT_EQ(outcome.out, "1 file and 2001 folders compared, no difference\n");
    EXPECT_EQ(outcome.code, 0) << outcome.err;
}

TEST(SameTime, IsExactInOneKindOfStorageAndCutInTwo) {
    struct Row {
        std::int32_t first;
        std::int32_t second;
        bool exact;
        bool cut;
    };
    for (Row const& row : {
             Row{123'456'789, 123'456'789, true, true},
             Row{123'456'789, 123'456'788, false, false},
             Row{123'456'789, 123'456'000, false, true},
             Row{123'456'000, 123'456'789, false, true},
             Row{123'456'789, 123'457'000, false, false},
             Row{123'456'789, 123'000'000, false, true},
             Row{123'456'000, 124'000'000, false, false},
             Row{999'999'999, 0, false, true},
             Row{1, 0, false, true},
             Row{0, 0, true, true},
         }) {
        EXPECT_EQ(cli::isSameTime({5, row.first}, {5, row.second}, true), row.exact) << row.first;
        EXPECT_EQ(cli::isSameTime({5, row.first}, {5, row.second}, false), row.cut) << row.first;
        EXPECT_FALSE(cli::isSameTime({5, row.first}, {6, row.second}, false)) << row.first;
        EXPECT_FALSE(cli::isSameTime({5, row.first}, {6, row.second}, true)) << row.first;
    }
    EXPECT_TRUE(cli::isSameTime({-5, 500'000'000}, {-5, 0}, false));
}

} // namespace
} // namespace cli_test
