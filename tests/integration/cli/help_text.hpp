#pragma once

#include <string>
#include <vector>

namespace cli_test {

/// The commands that `vfs --help` lists.
std::vector<std::string> commands();

/// The letters and names of the options that a command's help shows, with their hyphens.
std::vector<std::string> optionsOf(std::string const& command);

} // namespace cli_test
