#pragma once

#include <chrono>
#include <cstddef>
#include <random>
#include <string>

namespace bench {

/// Changes a tree at random: files and folders are created, written to, moved over and into each
/// other, and removed, folders with all that is in them; and folders are moved out of the tree to
/// another folder, and back. The tree stays small. For one thread.
class RandomChanges {
  public:
    RandomChanges(std::string root, std::string outside, unsigned seed);

    /// How many changes came of one attempt; none where the item to be changed was not there.
    std::size_t tryOne();
    std::chrono::milliseconds anyTimeBelow(std::chrono::milliseconds end);

  private:
    unsigned anyBelow(unsigned end);
    std::string anyFolder(unsigned most);
    std::string anyFile();
    std::string anyFolderOutside();

    std::string const root_;
    std::string const outside_;
    std::mt19937 random_;
};

} // namespace bench
