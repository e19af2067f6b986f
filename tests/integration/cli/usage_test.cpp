#include "command_run.hpp"

#include <gmock/gmock.h>

namespace cli_test {
namespace {

using ::testing::HasSubstr;

struct Row {
    std::vector<std::string> words;
    std::string message; ///< the first line
    std::string hint;    ///< what the second line names
};

TEST(CommandUsage, IsExplainedInOneLineAndAHint) {
    TemporaryFolder folder;
    for (Row const& row : {
             Row{{}, "vfs: a command is needed", "vfs --help"},
             Row{{"frobnicate"}, "vfs: unknown command 'frobnicate'", "vfs --help"},
             Row{{"--frobnicate"}, "vfs: unknown option '--frobnicate'", "vfs --help"},
             Row{{"cat"}, "vfs: cat: LOCATION is missing", "vfs cat --help"},
             Row{{"stat"}, "vfs: stat: LOCATION is missing", "vfs stat --help"},
             Row{{"cp", "a"},
                 "vfs: cp: one more operand is needed: SOURCE... DESTINATION",
                 "vfs cp --help"},
             Row{{"mv"}, "vfs: mv: SOURCE... DESTINATION is missing", "vfs mv --help"},
             Row{{"find"}, "vfs: find: LOCATION [PATTERN] is missing", "vfs find --help"},
             Row{{"find", "a", "*", "b"}, "vfs: find: too many operands", "vfs find --help"},
             Row{{"find", "-t", "l", "a"},
                 "vfs: find: -t takes f for files or d for folders",
                 "vfs find --help"},
             Row{{"ls", "-p"}, "vfs: ls: option -p needs a value", "vfs ls --help"},
             Row{{"ls", "-x"}, "vfs: ls: unknown option -x", "vfs ls --help"},
             Row{{"tree", "-L", "0"},
                 "vfs: tree: -L takes a whole number, 1 or more",
                 "vfs tree --help"},
             Row{{"tree", "-L", "2x"},
                 "vfs: tree: -L takes a whole number, 1 or more",
                 "vfs tree --help"},
             Row{{"tree", "-L", "-1"},
                 "vfs: tree: -L takes a whole number, 1 or more",
                 "vfs tree --help"},
             Row{{"tree", "a", "b"}, "vfs: tree: too many operands", "vfs tree --help"},
             Row{{"put", "a", "b"}, "vfs: put: too many operands", "vfs put --help"},
             Row{{"put", "a", "-i"}, "vfs: put: option -i needs a value", "vfs put --help"},
             Row{{"providers", "a"}, "vfs: providers: no operand is taken", "vfs providers --help"},
             Row{{"cat", "-q", "a"}, "vfs: cat: unknown option -q", "vfs cat --help"},
             Row{{"cat", "--quick=1", "a"}, "vfs: cat: unknown option --quick", "vfs cat --help"},
             Row{{"rm", "-dz", "a"}, "vfs: rm: unknown option -z", "vfs rm --help"},
             Row{{"cp", "-n", "-f", "a", "b"},
                 "vfs: cp: -n and -f exclude each other",
                 "vfs cp --help"},
             Row{{"touch", "-d", "yesterday", "a"},
                 "vfs: touch: not a time as 2024-05-01T10:30:00Z: 'yesterday'",
                 "vfs touch --help"},
         }) {
        Outcome const outcome = vfs(folder, row.words);
        EXPECT_EQ(outcome.code, 2) << row.message;
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err,
                  row.message + "\nTry '" + row.hint + "' for the options and examples.\n");
        EXPECT_TRUE(folder.names().empty()) << row.message;
    }
}

TEST(CommandUsage, TakesWordsBehindTwoHyphensAsOperands) {
    TemporaryFolder folder;
    writeFile(folder / "-x", "dashed");
    writeFile(folder / "--", "hyphens");

    EXPECT_EQ(vfs(folder, {"cat", "--", "-x"}).out, "dashed");
    EXPECT_EQ(vfs(folder, {"cat", "--", "--"}).out, "hyphens");
    EXPECT_EQ(vfs(folder, {"cat", "./-x"}).out, "dashed");
}

TEST(CommandUsage, TakesOptionsAmongOperands) {
    TemporaryFolder folder;
    writeFile(folder / "a", "");

    EXPECT_EQ(vfs(folder, {"exists", "a", "-v", "a"}).out, "a: file\na: file\n");
}

TEST(CommandUsage, TakesBracketsAsPartsOfNames) {
    TemporaryFolder folder;
    for (std::string const name : {"[a,b]", "[]", "[a", "\x01[a]", "{a,b}", "a,b", "=", "%%"}) {
        writeFile(folder / name, "of " + name);
        EXPECT_EQ(vfs(folder, {"cat", name}).out, "of " + name);
        EXPECT_EQ(vfs(folder, {"put", "-i", name, "copy"}).code, 0) << name;
        EXPECT_EQ(readFile(folder / "copy"), "of " + name);
    }
}

TEST(CommandUsage, TellsItsVersion) {
    TemporaryFolder folder;

    Outcome const outcome = vfs(folder, {"--version"});

    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.out, "vfs " VFS_VERSION "\n");
}

TEST(CommandUsage, ReportsAFullDeviceForHelpAndFacts) {
    TemporaryFolder folder;
    for (std::string const words :
         {"--help", "--version", "cat --help", "providers", "stat .", "exists -v .", "ls -a /",
          "find /usr/include", "find --json /usr/include", "ls -R /usr/include", "tree /etc"}) {
        Outcome const outcome = shell(folder, "vfs " + words + " > /dev/full");
        EXPECT_EQ(outcome.code, 1) << words;
        EXPECT_THAT(outcome.err, HasSubstr("standard output: no space left\n")) << words;
    }
}

} // namespace
} // namespace cli_test
