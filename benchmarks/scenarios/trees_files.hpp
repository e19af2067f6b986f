#pragma once

#include <cstddef>
#include <filesystem>

/// The tree that is copied and removed: 20,000 files of 4 KiB in 200 folders.
namespace bench {

inline constexpr std::size_t treeFiles = 20'000;

/// Makes it at `path`, where nothing is.
void makeFileTree(std::filesystem::path const& path);
/// Fails the program where the tree at `path` is not one like it.
void requireFileTree(std::filesystem::path const& path);

} // namespace bench
