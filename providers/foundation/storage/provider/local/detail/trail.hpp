#pragma once

#include <foundation/storage/provider/detail/chain_node.hpp>
#include <foundation/storage/provider/local/detail/folder_chunk.hpp>
#include <foundation/storage/provider/local/detail/listed_folder.hpp>

#include <cstdint>
#include <string_view>
#include <utility>

namespace foundation::storage::provider::local::detail {

/// How far one folder of a tree has been listed.
struct Level {
    FolderChunkPtr chunk;
    std::uint32_t next = 0;  ///< offset of the first entry that was not met yet
    bool abandoned = false;  ///< reading on, or opening it again, has failed
    FolderIdentity identity; ///< set where needsDescriptor() was true at the beginning

    /// Whether there are entries left to be read, or folders to be opened.
    bool needsDescriptor() const noexcept {
        return !abandoned && (!chunk->isLast() || chunk->hasFolderFrom(next));
    }
};

/// A folder above the one that a walk is in.
class TrailNode final : public provider::detail::ChainNode<TrailNode> {
  public:
    /// `entered` is the offset of the folder in `level` that the walk went into.
    TrailNode(Ptr parent, Level level, std::uint32_t entered)
        : ChainNode(std::move(parent)),
          level_(std::move(level)),
          entered_(entered),
          open_(level_.needsDescriptor() ? this
                : this->parent()         ? this->parent()->open_
                                         : nullptr) {}

    Level const& level() const noexcept { return level_; }
    std::string_view enteredName() const noexcept { return level_.chunk->at(entered_).name; }
    /// The innermost of this folder and those above it that needs its descriptor again, or null.
    TrailNode const* nearestOpen() const noexcept { return open_; }

  private:
    Level const level_;
    std::uint32_t const entered_;
    TrailNode const* const open_;
};

/// The way from the listed folder to the one that a walk is in.
using TrailPtr = TrailNode::Ptr;

} // namespace foundation::storage::provider::local::detail
