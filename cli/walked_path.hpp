#pragma once

#include "location.hpp"

#include <fl/i18n/conversion.hpp>

#include <cstddef>
#include <string>
#include <utility>

namespace cli {

/// Where a walk through a tree is: its top, and the path from there, in one buffer. Of each folder
/// on the way down a walk needs to keep the length of its path alone, so that its memory grows with
/// the depth of the tree, and not with the square of it. For one thread.
class WalkedPath {
  public:
    explicit WalkedPath(Location top) : top_(std::move(top)) {}

    /// Bytes; empty at the top.
    std::string const& belowTop() const noexcept { return path_; }
    std::size_t length() const noexcept { return path_.size(); }
    /// The path below the top of the item `name` in this folder.
    std::string pathOf(std::string const& name) const {
        return path_.empty() ? name : path_ + '/' + name;
    }
    /// Made anew by each call, which takes time in proportion to the length of the path.
    Location location() const {
        return path_.empty() ? top_ : childLocation(top_, fl::i18n::storageNameToUstring(path_));
    }

    void enter(std::string const& name) {
        if (!path_.empty()) {
            path_ += '/';
        }
        path_ += name;
    }
    /// Goes up to the folder whose length() this was.
    void returnTo(std::size_t length) { path_.resize(length); }

  private:
    Location top_;
    std::string path_;
};

} // namespace cli
