#include "help_text.hpp"

#include "command_run.hpp"
#include "listed_trees.hpp"

#include <sstream>

namespace cli_test {

namespace {

// The first words of the indented lines behind `heading`.
std::vector<std::string> listedUnder(std::string const& text, std::string const& heading) {
    std::vector<std::string> names;
    bool inside = false;
    for (std::string const& line : linesOf(text)) {
        if (line == heading) {
            inside = true;
        } else if (inside && line.starts_with("  ")) {
            std::string name;
            std::istringstream(line) >> name;
            names.push_back(name);
        } else {
            inside = false;
        }
    }
    return names;
}

} // namespace

std::vector<std::string> commands() {
    TemporaryFolder folder;
    return listedUnder(vfs(folder, {"--help"}).out, "Commands:");
}

std::vector<std::string> optionsOf(std::string const& command) {
    TemporaryFolder folder;
    std::vector<std::string> options;
    for (std::string const& words : listedUnder(vfs(folder, {command, "--help"}).out, "Options:")) {
        std::istringstream in(words);
        for (std::string option; std::getline(in, option, ',');) {
            if (option.starts_with('-')) {
                options.push_back(option);
            }
        }
    }
    return options;
}

} // namespace cli_test
