#pragma once

#include <cstddef>
#include <filesystem>

namespace bench {

/// A tree of the local disk, made by whoever needs it and removed with this. For one thread.
class ListedTree {
  public:
    ListedTree(std::filesystem::path path, std::size_t entries);
    ListedTree(ListedTree const&) = delete;
    ListedTree& operator=(ListedTree const&) = delete;
    ~ListedTree();

    std::filesystem::path const& path() const { return path_; }
    /// Files and folders in it, itself not counted.
    std::size_t entries() const { return entries_; }
    /// Fails the program where a contender did not do its work.
    void require(std::size_t counted) const;

  private:
    std::filesystem::path path_;
    std::size_t entries_;
};

/// One folder of so many empty files.
ListedTree makeFlatTree(std::filesystem::path const& path, std::size_t files);
/// 200,000 empty files in 10,000 folders, which lie in 100 more.
ListedTree makeWideTree(std::filesystem::path const& path);
/// A chain of 2,000 folders.
ListedTree makeDeepTree(std::filesystem::path const& path);

} // namespace bench
