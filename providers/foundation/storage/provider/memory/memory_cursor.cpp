#include <foundation/storage/provider/memory/memory_cursor.hpp>

#include <foundation/storage/provider/exception.hpp>

#include <shared_mutex>
#include <stdexcept>
#include <utility>

namespace foundation::storage::provider::memory {

using detail::Depth;
using detail::FolderNode;
using detail::Level;
using detail::ListingChunk;
using detail::ListingChunkPtr;
using detail::OuterLevel;

namespace {

/// Every level keeps a chunk, so that those deep down are small: there may be very many of them.
ListingChunk::Limits limitsAt(std::size_t depth) {
    constexpr std::size_t levelsWithLargeChunks = 32;
    return {.entries = depth < levelsWithLargeChunks ? std::size_t{256} : std::size_t{16}};
}

/// 0 in the listed folder.
std::size_t depthBelow(detail::OuterLevelPtr const& outer) {
    return outer ? outer->depth() + 1 : 0;
}

} // namespace

MemoryCursor::MemoryCursor(std::shared_ptr<MemoryListing const> listing)
    : listing_(std::move(listing)) {
    position_.level.folder = listing_->root;
}

// The text of the path stays with the one who needed it.
MemoryCursor::MemoryCursor(MemoryCursor const& other)
    : IFolderEntryIterator(),
      listing_(other.listing_),
      position_(other.position_),
      next_(other.next_),
      nextIndex_(other.nextIndex_),
      nextPosition_(other.nextPosition_) {}

MemoryCursor::~MemoryCursor() = default;

MemoryCursor* MemoryCursor::cloneIterator() const {
    return new MemoryCursor(*this);
}

bool MemoryCursor::hasNext() const {
    if (next_ == Next::Unknown) {
        look();
    }
    return next_ != Next::End;
}

void MemoryCursor::advance() {
    if (next_ == Next::Unknown) {
        look();
    }
    switch (next_) {
    case Next::Near:
        position_.level.index = nextIndex_;
        break;
    case Next::Far:
        position_ = std::move(nextPosition_);
        nextPosition_ = Position();
        break;
    case Next::Failure:
        next_ = Next::End;
        throw Exception(ErrorCode::ResourceNotFound, listing_->location);
    case Next::End:
    case Next::Unknown:
        throw std::logic_error("advance() behind the last entry of a listing");
    }
    next_ = Next::Unknown;
}

FolderEntry MemoryCursor::currentEntry() const {
    Level const& level = position_.level;
    if (!level.chunk) {
        throw std::logic_error("currentEntry() before the first entry of a listing");
    }
    std::u16string_view const last = level.name();
    ustring name;
    if (position_.outer) {
        ustring const& path = path_.of(position_.outer);
        name.reserve(path.size() + last.size());
        name = path;
    }
    name += last;
    bool const isFile = !level.isAtFolder();
    AttributeValues const* const attributes = level.chunk->attributes(level.index);
    if (!attributes) {
        return FolderEntry(std::move(name), isFile);
    }
    return isFile ? FolderEntry(std::move(name), FileAttributes(*attributes))
                  : FolderEntry(std::move(name), FolderAttributes(*attributes));
}

void MemoryCursor::look() const {
    if (lookInChunk()) {
        return;
    }
    Position position = position_;
    Found found = Found::Entry;
    do {
        found = moveOn(position);
    } while (found == Found::Entry && !position.level.chunk->isShown(position.level.index));
    switch (found) {
    case Found::Entry:
        nextPosition_ = std::move(position);
        next_ = Next::Far;
        return;
    case Found::End:
        next_ = Next::End;
        return;
    case Found::Failure:
        next_ = Next::Failure;
        return;
    }
}

/// The usual case, which needs neither the lock nor a second position.
bool MemoryCursor::lookInChunk() const noexcept {
    Level const& level = position_.level;
    if (!level.chunk) {
        return false;
    }
    bool const recursive = listing_->selection.depth == Depth::Recursive;
    for (std::size_t index = level.index;;) {
        if (recursive && level.chunk->isFolder(index)) {
            return false; // it is to be entered first
        }
        if (++index == level.chunk->size()) {
            return false;
        }
        if (level.chunk->isShown(index)) {
            nextIndex_ = index;
            next_ = Next::Near;
            return true;
        }
    }
}

/// Goes to the next entry, shown or not.
MemoryCursor::Found MemoryCursor::moveOn(Position& position) const {
    if (listing_->selection.depth == Depth::Recursive && position.level.isAtFolder() &&
        enterFolder(position)) {
        return Found::Entry;
    }
    Level& level = position.level;
    for (;;) {
        if (level.chunk && level.index + 1 < level.chunk->size()) {
            ++level.index;
            return Found::Entry;
        }
        std::size_t const depth = depthBelow(position.outer);
        if (!level.chunk || !level.chunk->isLast()) {
            bool const isThere = fetch(level, depth);
            if (!isThere && depth == 0) {
                return Found::Failure;
            }
            if (isThere && level.chunk->size() != 0) {
                return Found::Entry;
            }
        }
        if (depth == 0) {
            return Found::End;
        }
        level = position.outer->level();
        position.outer = position.outer->parent();
    }
}

/// Goes to the first entry of the folder at which a position stands; false where there is none, or
/// no folder of that name any more.
bool MemoryCursor::enterFolder(Position& position) const {
    Level& outer = position.level;
    Level inner;
    {
        std::shared_lock const lock(listing_->tree->mutex);
        FolderNode::Children const& children = outer.folder->children();
        auto const found = children.find(outer.name());
        if (found == children.end() || !found->second->isFolder()) {
            return false;
        }
        inner.folder = std::static_pointer_cast<FolderNode>(found->second);
    }
    if (!fetch(inner, depthBelow(position.outer) + 1) || inner.chunk->size() == 0) {
        return false;
    }
    position.outer = new OuterLevel(std::move(outer), std::move(position.outer));
    position.level = std::move(inner);
    return true;
}

/// Puts a level at the first entry of its next chunk, which is empty at the end only. False where
/// the folder is no longer in the tree.
bool MemoryCursor::fetch(Level& level, std::size_t depth) const {
    ListingChunkPtr chunk = level.chunk;
    do {
        std::shared_lock const lock(listing_->tree->mutex);
        if (!listing_->tree->contains(*level.folder)) {
            return false;
        }
        chunk = new ListingChunk(*level.folder, chunk ? &chunk->resumeBehind() : nullptr,
                                 listing_->selection, limitsAt(depth));
    } while (chunk->size() == 0 && !chunk->isLast());
    level.chunk = std::move(chunk);
    level.index = 0;
    return true;
}

} // namespace foundation::storage::provider::memory
