#include <foundation/storage/provider/zip/zip_cursor.hpp>

#include <foundation/storage/provider/wildcard.hpp>

#include <fl/i18n/conversion.hpp>

#include <stdexcept>
#include <utility>
#include <vector>

namespace foundation::storage::provider::zip {

using detail::ArchiveIndex;
using detail::EntryKind;
using fl::i18n::ustring;

ZipCursor::ZipCursor(std::shared_ptr<ZipListing const> listing)
    : listing_(std::move(listing)),
      next_(shownFrom(listing_->index->firstChildOf(listing_->folder))),
      folder_(listing_->folder) {}

void ZipCursor::advance() {
    if (next_ == ArchiveIndex::none) {
        throw std::logic_error("advance() behind the last entry of a listing");
    }
    current_ = std::exchange(next_, shownFrom(behind(next_)));
    goToFolder(listing_->index->parentOf(current_));
}

FolderEntry ZipCursor::currentEntry() const {
    if (current_ == ArchiveIndex::none) {
        throw std::logic_error("currentEntry() before the first entry of a listing");
    }
    ArchiveIndex const& index = *listing_->index;
    bool const isFile = !index.isFolder(current_);
    if (!listing_->selection.hasAttributes) {
        return FolderEntry(pathOf(current_), isFile);
    }
    AttributeValues const attributes = index.attributesOf(current_);
    return isFile ? FolderEntry(pathOf(current_), FileAttributes(attributes))
                  : FolderEntry(pathOf(current_), FolderAttributes(attributes));
}

/// The entry that follows, shown or not.
ZipCursor::Number ZipCursor::behind(Number entry) const noexcept {
    ArchiveIndex const& index = *listing_->index;
    if (!listing_->selection.isRecursive) {
        return index.nextOf(entry);
    }
    if (index.isFolder(entry) && index.firstChildOf(entry) != ArchiveIndex::none) {
        return index.firstChildOf(entry);
    }
    while (entry != listing_->folder && index.nextOf(entry) == ArchiveIndex::none) {
        entry = index.parentOf(entry);
    }
    return entry == listing_->folder ? ArchiveIndex::none : index.nextOf(entry);
}

ZipCursor::Number ZipCursor::shownFrom(Number entry) const {
    while (entry != ArchiveIndex::none && !isShown(entry)) {
        entry = behind(entry);
    }
    return entry;
}

bool ZipCursor::isShown(Number entry) const {
    ZipSelection const& selection = listing_->selection;
    bool const isFolder = listing_->index->isFolder(entry);
    if (selection.kinds == (isFolder ? ZipSelection::Kinds::Files : ZipSelection::Kinds::Folders)) {
        return false;
    }
    return selection.pattern.empty() ||
           matchesWildcard(selection.pattern,
                           fl::i18n::storageNameToUstring(listing_->index->nameOf(entry)));
}

ustring ZipCursor::pathOf(Number entry) const {
    ustring path = prefix_;
    fl::i18n::appendStorageName(path, listing_->index->nameOf(entry));
    return path;
}

/// By way of the folder above both, so that a deep tree takes no longer than a flat one. What is
/// above has the smaller number.
void ZipCursor::goToFolder(Number folder) {
    ArchiveIndex const& index = *listing_->index;
    std::vector<Number> down;
    for (Number to = folder; folder_ != to;) {
        if (folder_ < to) {
            down.push_back(to);
            to = index.parentOf(to);
            continue;
        }
        folder_ = index.parentOf(folder_);
        std::size_t const slash = prefix_.find_last_of(u'/', prefix_.size() - 2);
        prefix_.resize(slash == ustring::npos ? 0 : slash + 1);
    }
    for (auto below = down.rbegin(); below != down.rend(); ++below) {
        fl::i18n::appendStorageName(prefix_, index.nameOf(*below));
        prefix_ += u'/';
    }
    folder_ = folder;
}

} // namespace foundation::storage::provider::zip
