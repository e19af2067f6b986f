#pragma once

#include "command_run.hpp"

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace cli_test {

std::vector<std::string> linesOf(std::string const& text);

/// Files and folders whose names are hard to print: every kind of byte that means something to a
/// location, a shell or a terminal.
void makeOddTree(std::filesystem::path const& root);

/// A chain of so many folders, whose path is longer than a system call takes, with the file `leaf`
/// in the last.
void makeChain(std::filesystem::path const& root, std::size_t folders);

/// A chain of so many folders, each with an empty one beside it, `side`, that comes behind it: a
/// walk in order has to remember those on its way down.
void makeForkedChain(std::filesystem::path const& root, std::size_t folders);

/// So many empty files in one folder.
void makeFiles(std::filesystem::path const& root, std::size_t files);

/// Removes a tree of any depth.
void removeTree(std::filesystem::path const& root);

} // namespace cli_test
