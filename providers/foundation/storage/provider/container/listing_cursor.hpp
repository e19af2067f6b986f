#pragma once

#include <foundation/storage/provider/attributes.hpp>
#include <foundation/storage/provider/container/selection.hpp>
#include <foundation/storage/provider/i_folder_entry_iterator.hpp>
#include <foundation/storage/provider/wildcard.hpp>

#include <fl/i18n/conversion.hpp>
#include <fl/i18n/ustring.hpp>

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

namespace foundation::storage::provider::container {

/// A cursor over one folder of an archive, or over everything below it: depth first, each folder
/// before its contents, siblings in the archive's order. It shows the archive as it was when the
/// listing began. A clone takes no more time than copying a path. Throws std::logic_error from
/// advance() behind the last entry, and from currentEntry() before the first.
template<class Index>
class ListingCursor final : public IFolderEntryIterator {
  public:
    using Number = typename Index::Number;

    /// What all cursors of one listing have in common.
    struct Listing {
        std::shared_ptr<Index const> index;
        Number folder;
        Selection selection;
    };

    explicit ListingCursor(std::shared_ptr<Listing const> listing)
        : listing_(std::move(listing)),
          next_(shownFrom(listing_->index->firstChildOf(listing_->folder))),
          folder_(listing_->folder) {}

    FolderEntry currentEntry() const override;
    bool hasNext() const override { return next_ != Index::none; }
    void advance() override;
    ListingCursor* cloneIterator() const override { return new ListingCursor(*this); }

  private:
    ListingCursor(ListingCursor const& other) = default;

    Number behind(Number entry) const noexcept;
    Number shownFrom(Number entry) const;
    bool isShown(Number entry) const;
    fl::i18n::ustring pathOf(Number entry) const;
    void goToFolder(Number folder);

    std::shared_ptr<Listing const> listing_;
    Number current_ = Index::none;
    Number next_;
    Number folder_;            ///< of the current entry
    fl::i18n::ustring prefix_; ///< its path, below the listed folder
};

template<class Index>
void ListingCursor<Index>::advance() {
    if (next_ == Index::none) {
        throw std::logic_error("advance() behind the last entry of a listing");
    }
    current_ = std::exchange(next_, shownFrom(behind(next_)));
    goToFolder(listing_->index->parentOf(current_));
}

template<class Index>
FolderEntry ListingCursor<Index>::currentEntry() const {
    if (current_ == Index::none) {
        throw std::logic_error("currentEntry() before the first entry of a listing");
    }
    Index const& index = *listing_->index;
    bool const isFile = !index.isFolder(current_);
    if (!listing_->selection.hasAttributes) {
        return FolderEntry(pathOf(current_), isFile);
    }
    AttributeValues const attributes = index.attributesOf(current_);
    return isFile ? FolderEntry(pathOf(current_), FileAttributes(attributes))
                  : FolderEntry(pathOf(current_), FolderAttributes(attributes));
}

/// The entry that follows, shown or not.
template<class Index>
typename ListingCursor<Index>::Number ListingCursor<Index>::behind(Number entry) const noexcept {
    Index const& index = *listing_->index;
    if (!listing_->selection.isRecursive) {
        return index.nextOf(entry);
    }
    if (index.isFolder(entry) && index.firstChildOf(entry) != Index::none) {
        return index.firstChildOf(entry);
    }
    while (entry != listing_->folder && index.nextOf(entry) == Index::none) {
        entry = index.parentOf(entry);
    }
    return entry == listing_->folder ? Index::none : index.nextOf(entry);
}

template<class Index>
typename ListingCursor<Index>::Number ListingCursor<Index>::shownFrom(Number entry) const {
    while (entry != Index::none && !isShown(entry)) {
        entry = behind(entry);
    }
    return entry;
}

template<class Index>
bool ListingCursor<Index>::isShown(Number entry) const {
    Selection const& selection = listing_->selection;
    bool const isFolder = listing_->index->isFolder(entry);
    if (selection.kinds == (isFolder ? Selection::Kinds::Files : Selection::Kinds::Folders)) {
        return false;
    }
    return selection.pattern.empty() ||
           matchesWildcard(selection.pattern,
                           fl::i18n::storageNameToUstring(listing_->index->nameOf(entry)));
}

template<class Index>
fl::i18n::ustring ListingCursor<Index>::pathOf(Number entry) const {
    fl::i18n::ustring path = prefix_;
    fl::i18n::appendStorageName(path, listing_->index->nameOf(entry));
    return path;
}

/// By way of the folder above both, so that a deep tree takes no longer than a flat one.
/// REQUIRES of the index: what is above has the smaller number.
template<class Index>
void ListingCursor<Index>::goToFolder(Number folder) {
    Index const& index = *listing_->index;
    std::vector<Number> down;
    for (Number to = folder; folder_ != to;) {
        if (folder_ < to) {
            down.push_back(to);
            to = index.parentOf(to);
            continue;
        }
        folder_ = index.parentOf(folder_);
        std::size_t const slash = prefix_.find_last_of(u'/', prefix_.size() - 2);
        prefix_.resize(slash == fl::i18n::ustring::npos ? 0 : slash + 1);
    }
    for (auto below = down.rbegin(); below != down.rend(); ++below) {
        fl::i18n::appendStorageName(prefix_, index.nameOf(*below));
        prefix_ += u'/';
    }
    folder_ = folder;
}

} // namespace foundation::storage::provider::container
