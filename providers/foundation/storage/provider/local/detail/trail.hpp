#pragma once

#include <foundation/storage/provider/local/detail/folder_chunk.hpp>
#include <foundation/storage/provider/local/detail/listed_folder.hpp>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <atomic>
#include <cstdint>

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

class TrailNode;
using TrailPtr = boost::intrusive_ptr<TrailNode const>;

/// The way from the listed folder to the one that a walk is in: a chain of the folders above,
/// from the innermost one up. Immutable and reference-counted, so that walks share what they have
/// in common, on any threads, and a copy of a walk costs the same at every depth.
class TrailNode {
  public:
    /// `entered` is the offset of the folder in `level` that the walk went into.
    TrailNode(TrailPtr parent, Level level, std::uint32_t entered)
        : parent_(std::move(parent)),
          level_(std::move(level)),
          entered_(entered),
          depth_(parent_ ? parent_->depth_ + 1 : 0),
          open_(level_.needsDescriptor() ? this
                : parent_                ? parent_->open_
                                         : nullptr) {}
    TrailNode(TrailNode const&) = delete;
    TrailNode& operator=(TrailNode const&) = delete;

    TrailPtr const& parent() const noexcept { return parent_; }
    Level const& level() const noexcept { return level_; }
    std::string_view enteredName() const noexcept { return level_.chunk->at(entered_).name; }
    /// 0 for the listed folder.
    std::uint32_t depth() const noexcept { return depth_; }
    /// The innermost of this folder and those above it that needs its descriptor again, or null.
    TrailNode const* nearestOpen() const noexcept { return open_; }

  private:
    friend void intrusive_ptr_add_ref(TrailNode const* node) noexcept {
        node->references_.fetch_add(1, std::memory_order_relaxed);
    }
    /// Frees one node after the other: a chain may be longer than a stack of calls.
    friend void intrusive_ptr_release(TrailNode const* node) noexcept {
        while (node != nullptr && node->references_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            TrailNode const* const parent = node->parent_.detach();
            delete node;
            node = parent;
        }
    }

    mutable std::atomic<std::uint32_t> references_ = 0;
    mutable TrailPtr parent_;
    Level const level_;
    std::uint32_t const entered_;
    std::uint32_t const depth_;
    TrailNode const* const open_;
};

} // namespace foundation::storage::provider::local::detail
