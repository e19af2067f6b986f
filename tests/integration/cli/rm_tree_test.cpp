#include "listed_trees.hpp"

#include <gmock/gmock.h>

#include <csignal>

namespace cli_test {
namespace {

namespace fs = std::filesystem;

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

// A tree, `docs`, and `kept` beside it, where links of the tree lead.
class CommandRmTree : public ::testing::Test {
  protected:
    CommandRmTree() {
        fs::create_directories(folder_ / "docs/2024/deep");
        fs::create_directory(folder_ / "docs/empty");
        writeFile(folder_ / "docs/notes.txt", "");
        writeFile(folder_ / "docs/2024/old.txt", "");
        writeFile(folder_ / "docs/2024/deep/x", "");
        fs::create_directory(folder_ / "kept");
        writeFile(folder_ / "kept/in", "kept");
        fs::create_symlink("../kept", folder_ / "docs/to-kept");
        fs::create_symlink("../kept/in", folder_ / "docs/2024/dangling");
        fs::create_symlink("..", folder_ / "docs/2024/up");
    }
    Outcome rm(std::vector<std::string> words) {
        words.insert(words.begin(), "rm");
        return vfs(folder_, words);
    }
    Outcome answered(std::string const& answers, std::vector<std::string> words) {
        words.insert(words.begin(), "rm");
        return CommandRun::vfs(words).in(folder_.path()).input(answers).run();
    }
    std::vector<std::string> left() {
        return linesOf(shell(folder_, "find docs 2>/dev/null | LC_ALL=C sort").out);
    }

    TemporaryFolder folder_;
};

TEST_F(CommandRmTree, RemovesAllOfItAndNothingThatLinksLeadTo) {
    for (std::string const option : {"-r", "-R", "--recursive", "-rf", "-rv"}) {
        shell(folder_, "cp -a docs again");

        Outcome const outcome = rm({option, "again"});

        EXPECT_EQ(outcome.code, 0) << option;
        EXPECT_EQ(outcome.err, "") << option;
        EXPECT_THAT(folder_.names(), ElementsAre("docs", "kept")) << option;
        EXPECT_EQ(readFile(folder_ / "kept/in"), "kept") << option;
    }
}

TEST_F(CommandRmTree, RemovesFilesAndEmptyFoldersToo) {
    writeFile(folder_ / "a", "");
    fs::create_directory(folder_ / "e");

    EXPECT_EQ(rm({"-r", "a", "e/", "docs/"}).err, "");

    EXPECT_THAT(folder_.names(), ElementsAre("kept"));
}

TEST_F(CommandRmTree, RemovesALinkItselfAndRefusesOneWithASlash) {
    fs::create_symlink("docs", folder_ / "link");
    fs::create_symlink("docs/notes.txt", folder_ / "file-link");

    Outcome const refused = rm({"-r", "link/", "file-link/", "docs/notes.txt/"});
    EXPECT_EQ(refused.code, 1);
    EXPECT_EQ(refused.err, "vfs: rm: link/: is a link, which is removed without the slash\n"
                           "vfs: rm: file-link/: is a link, which is removed without the slash\n"
                           "vfs: rm: docs/notes.txt/: is not a folder\n");
    EXPECT_EQ(rm({"-r", "link", "file-link"}).code, 0);

    EXPECT_THAT(folder_.names(), ElementsAre("docs", "kept"));
    EXPECT_EQ(left().size(), 10u);
}

TEST_F(CommandRmTree, RefusesAFolderThatItWasNotToldToEnter) {
    Outcome const outcome = rm({"docs"});

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "vfs: rm: docs: is a folder (-r removes it with what is in it, -d an "
                           "empty one)\n");
    EXPECT_EQ(left().size(), 10u);
}

TEST_F(CommandRmTree, RefusesWhatEndsInADot) {
    for (std::string const operand : {".", "..", "./", "..//", "docs/.", "docs/..", "docs/../",
                                      "docs/2024/./", "kept/../docs/."}) {
        for (std::string const option : {"-r", "-rf", "-rv", "-d"}) {
            Outcome const outcome = rm({option, operand});
            EXPECT_EQ(outcome.code, 1) << operand;
            EXPECT_THAT(outcome.err, HasSubstr(operand + ": is not removed, because it ends in "
                                                         "'.' or '..'\n"));
        }
    }
    std::string const iri = "file://" + folder_.path().string() + "/docs/";
    EXPECT_EQ(rm({"-r", iri + ".."}).code, 1);
    EXPECT_EQ(rm({"-r", iri + "."}).code, 1);
    EXPECT_EQ(left().size(), 10u);
    EXPECT_EQ(rm({"-r", "docs/2024/../2024"}).code, 0); // which ends in a name
    EXPECT_EQ(left().size(), 4u);
}

TEST_F(CommandRmTree, RefusesTheRootOfAStorage) {
    // As a rehearsal only: what a bug here would do to the disk is more than a test should risk.
    for (std::string const operand : {"/", "//", "file:///", "/tmp/../", "/."}) {
        Outcome const outcome = rm({"-r", "--dry-run", operand});
        EXPECT_EQ(outcome.code, 1) << operand;
        EXPECT_THAT(outcome.err, HasSubstr(operand + ": is not removed, because it ")) << operand;
        EXPECT_EQ(outcome.out, "") << operand;
    }
    EXPECT_EQ(rm({"-r", "--dry-run", "/"}).err,
              "vfs: rm: /: is not removed, because it is the root of its storage\n");
    Outcome const memory = shell(folder_, "vfs sh <<'END'\n"
                                          "put -i kept/in mem:/a\n"
                                          "rm -r mem:\n"
                                          "rm -rf mem:/\n"
                                          "ls mem:\n"
                                          "END\n");
    EXPECT_EQ(memory.out, "a\n");
    EXPECT_EQ(memory.code, 1);
}

TEST_F(CommandRmTree, PassesOverWhatIsMissingWhereForced) {
    Outcome const reported = rm({"-r", "missing", "docs"});
    EXPECT_EQ(reported.code, 1);
    EXPECT_EQ(reported.err, "vfs: rm: missing: no such file or folder\n"
                            "vfs: rm: 1 of 2 locations removed, 1 failed: missing\n");
    EXPECT_THAT(left(), IsEmpty());
    EXPECT_EQ(rm({"-rf", "missing"}).code, 0);
    EXPECT_EQ(rm({"-rf", "missing"}).err, "");
}

TEST_F(CommandRmTree, NamesEachItemWhereAskedEachFolderBehindWhatWasInIt) {
    Outcome const outcome = rm({"-rv", "docs"});

    std::vector<std::string> const lines = linesOf(outcome.out);
    EXPECT_THAT(lines,
                UnorderedElementsAre("removed docs/notes.txt", "removed docs/to-kept",
                                     "removed docs/2024/old.txt", "removed docs/2024/dangling",
                                     "removed docs/2024/up", "removed docs/2024/deep/x",
                                     "removed docs/2024/deep/", "removed docs/2024/",
                                     "removed docs/empty/", "removed docs/"));
    EXPECT_EQ(lines.back(), "removed docs/");
    EXPECT_EQ(rm({"-v", "kept/in"}).out, "removed kept/in\n");
    EXPECT_EQ(rm({"-dv", "kept"}).out, "removed kept/\n");
}

TEST_F(CommandRmTree, RemovesNothingInARehearsal) {
    std::string const script = "vfs rm -r --dry-run docs kept/in | sed 's/^would remove/removed/' "
                               "> rehearsed; vfs rm -rv docs kept/in > done; cmp rehearsed done";
    Outcome const rehearsal = rm({"-ri", "--dry-run", "docs"});
    EXPECT_EQ(rehearsal.code, 0);
    EXPECT_EQ(rehearsal.err, "");
    EXPECT_EQ(linesOf(rehearsal.out).size(), 10u);
    EXPECT_EQ(left().size(), 10u);
    EXPECT_EQ(rm({"-d", "--dry-run", "docs/empty"}).out, "would remove docs/empty/\n");
    EXPECT_EQ(left().size(), 10u);

    Outcome const both = shell(folder_, script);
    EXPECT_EQ(both.code, 0) << both.out;
    EXPECT_THAT(folder_.names(), ElementsAre("done", "kept", "rehearsed"));
}

TEST_F(CommandRmTree, AsksForEachItem) {
    shell(folder_, "rm -r docs/2024 docs/to-kept");

    Outcome const all = answered("y\ny\ny\ny\n", {"-ri", "docs"});
    EXPECT_EQ(all.code, 0);
    EXPECT_EQ(all.err, "vfs: rm: enter docs? vfs: rm: remove docs/notes.txt? "
                       "vfs: rm: remove docs/empty? vfs: rm: remove docs? ");
    EXPECT_THAT(left(), IsEmpty());
    EXPECT_EQ(answered("y\n", {"-i", "kept/in"}).err, "vfs: rm: remove kept/in? ");
    EXPECT_FALSE(fs::exists(folder_ / "kept/in"));
}

TEST_F(CommandRmTree, KeepsWhatItIsToldToAndTheFoldersAbove) {
    shell(folder_, "rm -r docs/2024 docs/to-kept");

    Outcome const notEntered = answered("n\n", {"-ri", "docs"});
    EXPECT_EQ(notEntered.code, 0);
    EXPECT_EQ(notEntered.err, "vfs: rm: enter docs? ");
    EXPECT_EQ(left().size(), 3u);
    Outcome const oneKept = answered("y\nno\nyes\n", {"-ri", "docs"});
    EXPECT_EQ(oneKept.code, 0);
    EXPECT_EQ(oneKept.err, "vfs: rm: enter docs? vfs: rm: remove docs/notes.txt? "
                           "vfs: rm: remove docs/empty? ");
    EXPECT_THAT(left(), ElementsAre("docs", "docs/notes.txt"));
    EXPECT_EQ(answered("", {"-ri", "docs", "kept/in"}).code, 0); // no answer is no
    EXPECT_EQ(left().size(), 2u);
    EXPECT_TRUE(fs::exists(folder_ / "kept/in"));
}

TEST_F(CommandRmTree, UnderstandsItsOptions) {
    EXPECT_EQ(rm({"-fi", "docs"}).code, 2);
    EXPECT_EQ(rm({"-r"}).code, 2);
    EXPECT_EQ(shell(folder_, "echo 'rm -ri docs' | vfs sh").code, 2);
    EXPECT_EQ(left().size(), 10u);
}

TEST_F(CommandRmTree, GoesOnBehindWhatItMayNotRemoveAndSumsUp) {
    fs::create_directories(folder_ / "docs/closed/inner");
    writeFile(folder_ / "docs/locked", "");
    fs::create_directories(folder_ / "docs/fixed/inner");
    writeFile(folder_ / "docs/fixed/a", "");
    fs::create_directory(folder_ / "docs/closed-and-empty");
    shell(folder_, "chmod -R 777 .; chmod 000 docs/closed docs/closed-and-empty; "
                   "chmod 555 docs/fixed; touch other");
    for (std::string const option : {"-r", "-rv"}) {
        Outcome const outcome = CommandRun::vfs({"rm", option, "docs", "other"})
                                    .in(folder_.path())
                                    .unprivileged()
                                    .run();

        EXPECT_EQ(outcome.code, 1);
        EXPECT_THAT(linesOf(outcome.err),
                    UnorderedElementsAre("vfs: rm: docs/closed: permission denied",
                                         "vfs: rm: docs/fixed/a: permission denied",
                                         "vfs: rm: docs/fixed/inner: permission denied",
                                         HasSubstr("vfs: rm: 1 of 2 locations removed, 3 failed: "
                                                   "docs/")));
        EXPECT_THAT(left(), ElementsAre("docs", "docs/closed", "docs/closed/inner", "docs/fixed",
                                        "docs/fixed/a", "docs/fixed/inner"));
        writeFile(folder_ / "other", "");
    }
    Outcome const rehearsal = CommandRun::vfs({"rm", "-r", "--dry-run", "docs/closed"})
                                  .in(folder_.path())
                                  .unprivileged()
                                  .run();
    shell(folder_, "chmod -R 777 .");

    EXPECT_EQ(rehearsal.code, 1);
    EXPECT_EQ(rehearsal.err, "vfs: rm: docs/closed: permission denied\n"
                             "vfs: rm: 0 of 1 location would be removed, 1 failed: docs/closed\n");
}

TEST_F(CommandRmTree, TakesEveryNameAndShowsItOnOneLine) {
    fs::create_directory(folder_ / "odd");
    makeOddTree(folder_ / "odd");
    shell(folder_, "cp -a odd again");

    EXPECT_EQ(rm({"-r", "odd"}).code, 0);
    Outcome const told = rm({"-rv", "again"});

    EXPECT_EQ(told.code, 0) << told.err;
    EXPECT_EQ(linesOf(told.out).size(), 32u * 35 + 1);
    EXPECT_THAT(told.out, HasSubstr("removed again/line\\nbreak/line\\nbreak\n"));
    EXPECT_THAT(told.out, HasSubstr("removed again/\\xff/\n"));
    EXPECT_THAT(folder_.names(), ElementsAre("docs", "kept"));
}

TEST_F(CommandRmTree, RemovesTreesOfAnyDepth) {
    fs::create_directory(folder_ / "deep");
    makeChain(folder_ / "deep", 20'000);
    EXPECT_EQ(rm({"-r", "deep"}).err, "");
    EXPECT_FALSE(fs::exists(folder_ / "deep"));

    fs::create_directory(folder_ / "deep");
    makeChain(folder_ / "deep", 2'000);
    EXPECT_EQ(linesOf(rm({"-rv", "deep"}).out).size(), 2'002u);
    EXPECT_FALSE(fs::exists(folder_ / "deep"));
}

TEST_F(CommandRmTree, MemoryDoesNotGrowWithTheFiles) {
    if (VFS_SANITIZED != 0) {
        GTEST_SKIP() << "a sanitizer's own memory hides that of the command";
    }
    for (std::string const option : {"-r", "-rv"}) {
        fs::create_directory(folder_ / "few");
        fs::create_directory(folder_ / "many");
        makeFiles(folder_ / "few", 10);
        makeFiles(folder_ / "many", 50'000);

        long const least = rm({option, "few"}).peakKiB;
        Outcome const outcome =
            shell(folder_, "exec 2>&1; vfs rm " + option + " many | tail -n1; vfs ls");

        EXPECT_LT(outcome.peakKiB, least + 4096) << option;
        EXPECT_FALSE(fs::exists(folder_ / "many")) << option;
    }
}

// The signal comes with a call that removes, so that it always meets a removal under way.
class CommandRmInterrupted : public CommandRmTree {
  protected:
    void SetUp() override {
#ifdef __SANITIZE_THREAD__
        GTEST_SKIP() << "the thread sanitizer holds signals back until a call that it knows";
#endif
        if (shell(folder_, "strace -o trace true").code != 0) {
            GTEST_SKIP() << "tracing a process is refused here";
        }
        fs::remove(folder_ / "trace");
        fs::create_directory(folder_ / "many");
        makeFiles(folder_ / "many", 1000);
    }
    Outcome interrupted(std::string const& words) {
        return shell(folder_, "strace -o /dev/null -e trace=unlinkat "
                              "-e inject=unlinkat:signal=SIGINT:when=100 vfs rm " +
                                  words);
    }
    std::size_t filesLeft() const {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(folder_ / "many"), fs::directory_iterator()));
    }
};

TEST_F(CommandRmInterrupted, EndsAtOnceAndSaysWhatIsRemovedWhereTheStorageRemoves) {
    writeFile(folder_ / "a", "");

    Outcome const outcome = interrupted("-r a many kept");

    EXPECT_EQ(outcome.code, 130);
    EXPECT_EQ(outcome.err,
              "vfs: rm: interrupted; 1 of 3 locations removed, many perhaps in part\n");
    EXPECT_GT(filesLeft(), 800u);
    EXPECT_LT(filesLeft(), 1000u);
    EXPECT_TRUE(fs::exists(folder_ / "kept/in"));
}

TEST_F(CommandRmInterrupted, EndsWithTheItemAndSaysWhatIsRemovedWhereItNamesItems) {
    Outcome const outcome = interrupted("-rv many kept");

    EXPECT_EQ(outcome.code, 130);
    EXPECT_EQ(outcome.err, "vfs: rm: interrupted; 0 of 2 locations removed\n");
    EXPECT_EQ(filesLeft(), 1000 - linesOf(outcome.out).size());
    EXPECT_TRUE(fs::exists(folder_ / "kept/in"));
}

TEST_F(CommandRmInterrupted, AnIgnoredSignalStaysIgnored) {
    Outcome const outcome =
        shell(folder_, "trap '' INT; strace -o /dev/null -e trace=unlinkat "
                       "-e inject=unlinkat:signal=SIGINT:when=100 vfs rm -r many kept");

    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_FALSE(fs::exists(folder_ / "many"));
    EXPECT_FALSE(fs::exists(folder_ / "kept"));
}

} // namespace
} // namespace cli_test
