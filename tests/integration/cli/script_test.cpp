#include "command_run.hpp"

#include <gmock/gmock.h>

namespace cli_test {
namespace {

using ::testing::HasSubstr;

Outcome script(TemporaryFolder const& folder, std::string const& text,
               std::vector<std::string> words = {"sh"}) {
    return CommandRun::vfs(std::move(words)).in(folder.path()).input(text).run();
}

TEST(CommandSh, KeepsWhatCommandsWriteToMemory) {
    TemporaryFolder folder;
    writeFile(folder / "a", "content");

    Outcome const outcome = script(folder, "mkdir -p mem:/x/y\n"
                                           "put -i a mem:/x/y/b\n"
                                           "cp mem:/x/y/b mem:/c\n"
                                           "mv mem:/c mem:/d\n"
                                           "cat mem:/x/y/b mem:/d\n"
                                           "rm mem:/d\n"
                                           "exists mem:/d\n");

    EXPECT_EQ(outcome.out, "contentcontent");
    EXPECT_EQ(outcome.code, 1); // the last one: nothing is there
    EXPECT_EQ(outcome.err, "");
}

TEST(CommandSh, QuotesAsAShellDoes) {
    TemporaryFolder folder;
    std::string const text =
        "touch 'single quoted $x \\ \"' \"double \\\"q\\\" \\$y \\z 'in'\" plain\\ blank\n"
        "   # a comment 'with a quotation\n"
        "\n"
        "touch a#b # another\n"
        "touch 'line\nbreak' con\\\ntinued \"joi\\\nned\"\n"
        "touch $HOME *.txt ~ `x` mixed'of '\"all\"\n"
        "touch 'a;b|c' \\<\\> a\\& b&c\t''tab\n";

    Outcome const outcome = script(folder, text);

    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_THAT(folder.names(),
                ::testing::UnorderedElementsAre(
                    "single quoted $x \\ \"", "double \"q\" $y \\z 'in'", "plain blank", "a#b",
                    "line\nbreak", "continued", "joined", "$HOME", "*.txt", "~", "`x`",
                    "mixedof all", "a;b|c", "<>", "a&", "b&c", "tab"));
}

TEST(CommandSh, PassesEmptyWordsOn) {
    TemporaryFolder folder;

    EXPECT_THAT(script(folder, "exists ''\n").err,
                HasSubstr("vfs: exists: : not a valid location"));
}

TEST(CommandSh, RunsALastLineWithoutALineBreak) {
    TemporaryFolder folder;
    writeFile(folder / "a", "content");

    EXPECT_EQ(script(folder, "cat a").out, "content");
}

TEST(CommandSh, GoesOnAndEndsWithTheHighestCode) {
    TemporaryFolder folder;
    writeFile(folder / "a", "content");

    EXPECT_EQ(script(folder, "").code, 0);
    EXPECT_EQ(script(folder, "cat missing\ncat a\n").code, 1);
    EXPECT_EQ(script(folder, "cat missing\ncat a\n").out, "content");
    EXPECT_EQ(script(folder, "frobnicate\ncat missing\ncat a\n").code, 2);
    EXPECT_EQ(script(folder, "frobnicate\ncat missing\ncat a\n").out, "content");
}

TEST(CommandSh, StopsAtTheFirstFailureWhereAsked) {
    TemporaryFolder folder;
    writeFile(folder / "a", "content");

    Outcome const outcome = script(folder, "cat a\ncat missing\nfrobnicate\ncat a\n", {"sh", "-e"});

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.out, "content");
}

TEST(CommandSh, RefusesWhatItDoesNotUnderstandWithTheLine) {
    TemporaryFolder folder;
    writeFile(folder / "a", "content");
    struct Row {
        std::string text;
        std::string message;
    };
    for (Row const& row : {
             Row{"cat a\n\ntouch 'open\nmore\n", "line 3: a quotation is not closed"},
             Row{"cat a\ntouch \"open", "line 2: a quotation is not closed"},
             Row{"cat a\ntouch x\\", "line 2: nothing stands behind the backslash"},
             Row{"touch x; touch y\ncat a\n", "line 1: ';' must be quoted"},
             Row{"cat a\ncat a | touch y\n", "line 2: '|' must be quoted"},
             Row{"cat a\ncat a>x\n", "line 2: '>' must be quoted"},
             Row{"'cat' a\ncat <a\n", "line 2: '<' must be quoted"},
             Row{"'line\\\n' x\ncat a\ntouch x &\n", "line 4: '&' must be quoted"},
             Row{"cat a\ntouch x && touch y\n", "line 2: '&' must be quoted"},
             Row{std::string("cat a\ntouch x\0y\n", 16), "line 2: a NUL character"},
             Row{std::string("cat a\ntouch 'x\0y'\n", 18), "line 2: a NUL character"},
         }) {
        Outcome const outcome = script(folder, row.text);
        EXPECT_EQ(outcome.code, 2) << row.text;
        EXPECT_EQ(outcome.out, "content") << row.text;
        EXPECT_THAT(outcome.err, HasSubstr("vfs: sh: standard input: " + row.message));
        EXPECT_THAT(folder.names(), ::testing::ElementsAre("a")) << row.text;
    }
}

TEST(CommandSh, LeavesStandardInputToTheScript) {
    TemporaryFolder folder;

    Outcome const outcome = script(folder, "put a\nput -i - a\nsh\nexists -v .\n");

    EXPECT_EQ(outcome.code, 2);
    EXPECT_EQ(outcome.out, ".: folder\n");
    EXPECT_THAT(outcome.err, HasSubstr("vfs: put: standard input holds the commands here"));
    EXPECT_THAT(outcome.err, HasSubstr("vfs: sh: a script cannot run another one"));
    EXPECT_TRUE(folder.names().empty());
}

TEST(CommandSh, ReportsAnInputThatCannotBeRead) {
    TemporaryFolder folder;

    Outcome const outcome = shell(folder, "vfs sh < .");

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "vfs: sh: standard input: Is a directory\n");
}

TEST(CommandSh, AnswersEachCommandBeforeItWaitsForTheNext) {
    TemporaryFolder folder;

    // The second line is written only once the answer to the first has been read.
    Outcome const outcome =
        shell(folder,
              "coproc vfs sh; echo 'exists -v mem:' >&${COPROC[1]}; read -r answer <&${COPROC[0]};"
              "echo \"$answer\"; echo 'exists -v mem:/x' >&${COPROC[1]};"
              "read -r answer <&${COPROC[0]}; echo \"$answer\"");

    EXPECT_EQ(outcome.out, "mem:/: folder\nmem:/x: nothing\n");
}

} // namespace
} // namespace cli_test
