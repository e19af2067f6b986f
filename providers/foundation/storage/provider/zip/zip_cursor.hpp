#pragma once

#include <foundation/storage/provider/i_folder_entry_iterator.hpp>
#include <foundation/storage/provider/zip/detail/archive_index.hpp>

#include <fl/i18n/ustring.hpp>

#include <memory>

namespace foundation::storage::provider::zip {

/// What a listing is to show.
struct ZipSelection {
    enum class Kinds { All, Files, Folders };

    Kinds kinds = Kinds::All;
    bool hasAttributes = true;
    bool isRecursive = false;
    fl::i18n::ustring pattern; ///< that last components match; empty for all
};

/// What all cursors of one listing have in common.
struct ZipListing {
    std::shared_ptr<detail::ArchiveIndex const> index;
    detail::ArchiveIndex::Number folder;
    ZipSelection selection;
};

/// A cursor over one folder of an archive, or over everything below it: depth first, each folder
/// before its contents, siblings in the archive's order. It shows the archive as it was when the
/// listing began. A clone takes no more time than copying a path. Throws std::logic_error from
/// advance() behind the last entry, and from currentEntry() before the first.
class ZipCursor final : public IFolderEntryIterator {
  public:
    explicit ZipCursor(std::shared_ptr<ZipListing const> listing);

    FolderEntry currentEntry() const override;
    bool hasNext() const override { return next_ != detail::ArchiveIndex::none; }
    void advance() override;
    ZipCursor* cloneIterator() const override { return new ZipCursor(*this); }

  private:
    using Number = detail::ArchiveIndex::Number;

    ZipCursor(ZipCursor const& other) = default;

    Number behind(Number entry) const noexcept;
    Number shownFrom(Number entry) const;
    bool isShown(Number entry) const;
    fl::i18n::ustring pathOf(Number entry) const;
    void goToFolder(Number folder);

    std::shared_ptr<ZipListing const> listing_;
    Number current_ = detail::ArchiveIndex::none;
    Number next_;
    Number folder_;            ///< of the current entry
    fl::i18n::ustring prefix_; ///< its path, below the listed folder
};

} // namespace foundation::storage::provider::zip
