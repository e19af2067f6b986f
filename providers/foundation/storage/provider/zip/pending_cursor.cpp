#include <foundation/storage/provider/zip/pending_cursor.hpp>

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/wildcard.hpp>

#include <fl/i18n/conversion.hpp>

#include <mutex>
#include <stdexcept>
#include <utility>

namespace foundation::storage::provider::zip {

using detail::PendingNode;

namespace {

constexpr std::size_t chunkSize = 256;

bool shows(ZipSelection const& selection, std::string const& name, bool isFolder) {
    return selection.kinds !=
               (isFolder ? ZipSelection::Kinds::Files : ZipSelection::Kinds::Folders) &&
           (selection.pattern.empty() ||
            matchesWildcard(selection.pattern, fl::i18n::storageNameToUstring(name)));
}

} // namespace

PendingCursor::PendingCursor(std::shared_ptr<PendingListing const> listing)
    : listing_(std::move(listing)),
      position_{Level{listing_->folder, nullptr, 0}} {}

bool PendingCursor::hasNext() const {
    if (next_ == Next::Unknown) {
        look();
    }
    return next_ != Next::End;
}

void PendingCursor::advance() {
    if (next_ == Next::Unknown) {
        look();
    }
    switch (next_) {
    case Next::Entry:
        position_.swap(nextPosition_);
        nextPosition_.clear();
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

FolderEntry PendingCursor::currentEntry() const {
    if (!position_.back().chunk) {
        throw std::logic_error("currentEntry() before the first entry of a listing");
    }
    fl::i18n::ustring path;
    for (Level const& level : position_) {
        path += path.empty() ? u"" : u"/";
        fl::i18n::appendStorageName(path, level.entry().name);
    }
    Shown const& entry = position_.back().entry();
    if (!listing_->selection.hasAttributes) {
        return FolderEntry(std::move(path), !entry.isFolder);
    }
    return entry.isFolder ? FolderEntry(std::move(path), FolderAttributes(entry.attributes))
                          : FolderEntry(std::move(path), FileAttributes(entry.attributes));
}

void PendingCursor::look() const {
    Position position = position_;
    do {
        next_ = moveOn(position);
    } while (next_ == Next::Entry && !position.back().entry().isShown);
    if (next_ == Next::Entry) {
        nextPosition_ = std::move(position);
    }
}

/// Goes to the next entry, shown or not.
PendingCursor::Next PendingCursor::moveOn(Position& position) const {
    if (listing_->selection.isRecursive && position.back().chunk &&
        position.back().entry().isFolder && enter(position)) {
        return Next::Entry;
    }
    for (;;) {
        Level& level = position.back();
        if (level.chunk && level.index + 1 < level.chunk->entries.size()) {
            ++level.index;
            return Next::Entry;
        }
        if (!level.chunk || !level.chunk->isLast) {
            bool const isThere = fetch(level);
            if (!isThere && position.size() == 1) {
                return Next::Failure;
            }
            if (isThere && !level.chunk->entries.empty()) {
                return Next::Entry;
            }
        }
        if (position.size() == 1) {
            return Next::End;
        }
        position.pop_back();
    }
}

/// Goes to the first entry of the folder at which a position stands; false where there is none, or
/// no folder of that name any more.
bool PendingCursor::enter(Position& position) const {
    Level inner;
    {
        std::lock_guard const lock(listing_->tree->mutex);
        auto const& children = position.back().folder->children;
        auto const found = children.find(position.back().entry().name);
        if (found == children.end() || !found->second->isFolder()) {
            return false;
        }
        inner.folder = found->second;
    }
    if (!fetch(inner) || inner.chunk->entries.empty()) {
        return false;
    }
    position.push_back(std::move(inner));
    return true;
}

/// Puts a level at the first entry of its next chunk, which is empty at the end only. False where
/// the folder is no longer in the tree.
bool PendingCursor::fetch(Level& level) const {
    ZipSelection const& selection = listing_->selection;
    detail::PendingTree& tree = *listing_->tree;
    auto chunk = std::make_shared<Chunk>();
    std::lock_guard const lock(tree.mutex);
    if (!tree.contains(*level.folder)) {
        return false;
    }
    auto const& children = level.folder->children;
    auto child = level.chunk && !level.chunk->entries.empty()
                     ? children.upper_bound(level.chunk->entries.back().name)
                     : children.begin();
    for (; child != children.end(); ++child) {
        if (chunk->entries.size() == chunkSize) {
            chunk->isLast = false;
            break;
        }
        PendingNode& node = *child->second;
        bool const isShown = shows(selection, child->first, node.isFolder());
        if (isShown || (selection.isRecursive && node.isFolder())) {
            chunk->entries.push_back({child->first, node.isFolder(), isShown,
                                      isShown && selection.hasAttributes ? tree.attributesOf(&node)
                                                                         : AttributeValues()});
        }
    }
    level.chunk = std::move(chunk);
    level.index = 0;
    return true;
}

} // namespace foundation::storage::provider::zip
