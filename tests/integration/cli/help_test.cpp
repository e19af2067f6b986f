#include "command_run.hpp"
#include "help_text.hpp"
#include "listed_trees.hpp"

#include <gmock/gmock.h>

#include <sstream>

namespace cli_test {
namespace {

using ::testing::HasSubstr;

// What the examples speak of.
void prepare(TemporaryFolder const& folder) {
    writeFile(folder / "notes.txt", "Buy milk.\n");
    writeFile(folder / "photo.jpg", "JFIF");
    writeFile(folder / "old.log", "");
    writeFile(folder / "script.vfs", "mkdir mem:/a\ncp notes.txt mem:/a\ncat mem:/a/notes.txt\n");
    writeFile(folder / "same.txt", "Buy milk.\n");
    std::filesystem::create_directory(folder / "docs");
    vfs(folder, {"pack", "docs", "archive.zip"});
    std::filesystem::create_directory(folder / "backup");
    std::filesystem::create_directory(folder / "empty");
}

TEST(CommandHelp, ListsTheCommands) {
    EXPECT_THAT(commands(),
                ::testing::ElementsAre("cat", "check", "cp", "du", "exists", "find", "ls", "mkdir",
                                       "mv", "pack", "providers", "put", "rm", "sh", "stat",
                                       "touch", "tree", "unpack", "watch"));
}

TEST(CommandHelp, SaysWhatAQuestionMarkInAPatternCounts) {
    TemporaryFolder folder;
    for (std::string const command : {"find", "ls"}) {
        std::istringstream words(vfs(folder, {command, "--help"}).out);
        std::string text; // on one line, however it was broken
        for (std::string word; words >> word;) {
            text += word + ' ';
        }
        EXPECT_THAT(text, HasSubstr("? is one UTF-16 code unit (a character beyond U+FFFF counts "
                                    "as two)"))
            << command;
    }
}

// A command that runs until it is ended is ended once it says that it has begun.
std::string endedLine(std::string const& line) {
    if (line.find("vfs watch ") == std::string::npos) {
        return line;
    }
    return line + " -v 2> said & for i in {1..6000}; do ! grep -sq watching said || break; "
                  "sleep 0.01; done; grep -v watching said >&2; kill $!; wait $!";
}

TEST(CommandHelp, ShowsExamplesForEveryCommandAndTheyRun) {
    for (std::string const& command : commands()) {
        TemporaryFolder folder;
        Outcome const help = vfs(folder, {command, "--help"});
        EXPECT_EQ(help.code, 0) << command;
        EXPECT_EQ(help.err, "");
        EXPECT_THAT(help.out, HasSubstr("Usage: vfs " + command + " "));
        std::size_t const examples = help.out.find("\nExamples:\n");
        ASSERT_NE(examples, std::string::npos) << command;
        int ran = 0;
        for (std::string const& line : linesOf(help.out.substr(examples + 11))) {
            TemporaryFolder prepared;
            prepare(prepared);
            Outcome const outcome = shell(prepared, "set -o pipefail; " + endedLine(line));
            EXPECT_EQ(outcome.code, 0) << line << '\n' << outcome.err;
            EXPECT_EQ(outcome.err, "") << line;
            EXPECT_THAT(line, HasSubstr("vfs " + command));
            ++ran;
        }
        EXPECT_GT(ran, 0) << command;
    }
}

TEST(CommandHelp, FitsATerminalOfEightyColumns) {
    TemporaryFolder folder;
    std::vector<std::vector<std::string>> requests{{"--help"}};
    for (std::string const& command : commands()) {
        requests.push_back({command, "--help"});
    }
    for (auto const& request : requests) {
        for (std::string const& line : linesOf(vfs(folder, request).out)) {
            EXPECT_LE(line.size(), 80u) << line;
        }
    }
}

TEST(CommandHelp, ManualRendersWithoutWarnings) {
    TemporaryFolder folder;
    std::string const page = VFS_SOURCE_FOLDER "/cli/vfs.1";

    Outcome const lint = shell(folder, "mandoc -Tlint -Wwarning " + page);
    EXPECT_EQ(lint.code, 0) << lint.out << lint.err;
    Outcome const text = shell(folder, "mandoc -Tutf8 -O width=100 " + page +
                                           " | col -b 2>/dev/null"
                                           " || mandoc -Tutf8 " +
                                           page);
    EXPECT_THAT(text.out, HasSubstr("work on files and folders wherever they lie"));
}

TEST(CommandHelp, ManualSpeaksOfEveryCommandAndOption) {
    std::string const page = readFile(VFS_SOURCE_FOLDER "/cli/vfs.1");
    for (std::string const& command : commands()) {
        EXPECT_THAT(page, HasSubstr("\n.Cm " + command)) << command;
        for (std::string const& option : optionsOf(command)) {
            if (option == "-h") {
                continue; // --help is described once for all
            }
            bool const isLong = option.starts_with("--");
            EXPECT_THAT(page,
                        HasSubstr(isLong ? "Fl Fl " + option.substr(2) : "Fl " + option.substr(1)))
                << command;
        }
    }
}

} // namespace
} // namespace cli_test
