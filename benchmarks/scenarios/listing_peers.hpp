#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

/// Other ways to list a folder. Each gives the number of entries that it saw, the root not counted.
namespace bench {

enum class Reach { Folder, Tree };
enum class Facts { Names, Attributes };

/// getdents64(2), openat(2) and statx(2), everything relative to descriptors: what cannot be done
/// without.
std::size_t countByCalls(std::filesystem::path const& path, Reach reach, Facts facts);
std::size_t countByStd(std::filesystem::path const& path, Reach reach, Facts facts);
/// fts(3). REQUIRES: a tree; or names.
std::size_t countByFts(std::filesystem::path const& path, Facts facts);
/// find(1), a process of its own, which writes to nowhere.
void runFind(std::filesystem::path const& path, Facts facts);

} // namespace bench
