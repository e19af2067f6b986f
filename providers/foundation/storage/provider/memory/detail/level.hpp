#pragma once

#include <foundation/storage/provider/detail/chain_node.hpp>
#include <foundation/storage/provider/memory/detail/listing_chunk.hpp>
#include <foundation/storage/provider/memory/detail/nodes.hpp>

#include <cstddef>
#include <memory>
#include <string_view>
#include <utility>

namespace foundation::storage::provider::memory::detail {

/// A folder that is being listed, and where in it: at an entry, or without a chunk before the
/// first.
struct Level {
    std::shared_ptr<FolderNode> folder;
    ListingChunkPtr chunk;
    std::size_t index = 0;

    std::u16string_view name() const noexcept { return chunk->name(index); }
    bool isAtFolder() const noexcept { return chunk && chunk->isFolder(index); }
};

/// A level above the current one. It stands at the folder that the next one lists.
class OuterLevel final : public provider::detail::ChainNode<OuterLevel> {
  public:
    OuterLevel(Level level, Ptr parent) : ChainNode(std::move(parent)), level_(std::move(level)) {}

    Level const& level() const noexcept { return level_; }

  private:
    Level const level_;
};

using OuterLevelPtr = OuterLevel::Ptr;

/// The names of levels from the outermost in, each with a `/` behind it. Keeps the text, and
/// changes it by as much as the levels have changed since the last time; a prefix kept with each
/// level would cost hundreds of megabytes at 20,000 levels. For one thread at a time.
class LevelPath {
  public:
    /// Null for no levels.
    ustring const& of(OuterLevelPtr const& innermost);

  private:
    OuterLevelPtr innermost_; // what the text was made of
    ustring text_;
};

} // namespace foundation::storage::provider::memory::detail
