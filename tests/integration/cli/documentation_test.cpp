#include "command_run.hpp"

#include <gmock/gmock.h>

#include <sstream>

namespace cli_test {
namespace {

struct Example {
    std::string line;
    std::string output;
};

// The commands in the console blocks of a page, each with what the page shows below it.
std::vector<Example> examplesOf(std::string const& page) {
    std::vector<Example> examples;
    bool inside = false;
    std::istringstream in(page);
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with("```")) {
            inside = line == "```console";
        } else if (inside && line.starts_with("$ ")) {
            examples.push_back({line.substr(2), ""});
        } else if (inside && line.starts_with("> ")) {
            examples.back().line += "\n" + line.substr(2);
        } else if (inside) {
            examples.back().output += line + "\n";
        }
    }
    return examples;
}

std::string replaced(std::string text, std::string const& what, std::string const& by) {
    for (std::size_t at = text.find(what); at != std::string::npos;
         at = text.find(what, at + by.size())) {
        text.replace(at, what.size(), by);
    }
    return text;
}

TEST(CommandDocumentation, ShowsWhatTheCommandPrints) {
    std::vector<Example> const examples =
        examplesOf(readFile(VFS_SOURCE_FOLDER "/docs/command.md"));
    ASSERT_GT(examples.size(), 20u);
    TemporaryFolder folder;
    std::string const here = folder.path().string();
    for (Example const& example : examples) {
        Outcome const outcome =
            shell(folder, "exec 2>&1\n" + replaced(example.line, "/tmp/demo", here));
        EXPECT_EQ(replaced(outcome.out, here, "/tmp/demo"), example.output) << example.line;
    }
}

TEST(CommandDocumentation, SpeaksOfEveryCommand) {
    TemporaryFolder folder;
    std::string const page = readFile(VFS_SOURCE_FOLDER "/docs/command.md");
    std::string const list =
        shell(folder, "vfs --help | sed -n '/^Commands:/,/^$/s/^  \\([a-z]*\\) .*/\\1/p'").out;
    std::istringstream in(list);
    int commands = 0;
    for (std::string command; in >> command; ++commands) {
        EXPECT_THAT(page, ::testing::HasSubstr("\n## " + command + "\n"));
    }
    EXPECT_GT(commands, 5);
}

} // namespace
} // namespace cli_test
