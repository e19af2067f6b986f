#pragma once

#include <foundation/storage/provider/i_folder_entry_iterator.hpp>
#include <foundation/storage/provider/s3/detail/listing.hpp>

#include <cstddef>
#include <memory>

namespace foundation::storage::provider::s3 {

/// A cursor over one folder, or over everything below it, depth first, each folder before its
/// contents; siblings come in the order of their keys' bytes. It stands in a page of keys; from the
/// second entry of a page on, the next one is on its way. A clone takes constant time and asks for
/// nothing.
///
/// hasNext() throws no failure of the store: it answers true, and advance() throws, which ends the
/// listing. A listing that leaves out keys fails so at its end, with IOError. Throws
/// std::logic_error from advance() behind the last entry, and from currentEntry() before the first.
class S3Cursor final : public IFolderEntryIterator {
  public:
    /// `page` is the first one.
    S3Cursor(detail::ListingPtr listing, std::shared_ptr<detail::RequestThreads> threads,
             detail::ListedPagePtr page);
    ~S3Cursor() override;

    FolderEntry currentEntry() const override;
    bool hasNext() const override;
    void advance() override;
    S3Cursor* cloneIterator() const override;

  private:
    struct Position {
        detail::ListedPagePtr page;
        std::size_t index = 0;
        std::size_t end = 0; ///< of the entry in the item's path; 0: before the item
        /// What comes behind the page, where it was asked for.
        std::shared_ptr<detail::PageFetch> next = nullptr;

        detail::ListedItem const& item() const { return page->items()[index]; }
        bool isFile() const { return item().isFile && end == item().path.size(); }
    };
    enum class Next { Unknown, Entry, End, Failure };

    S3Cursor(S3Cursor const& other) = default;

    void look() const;
    bool moveOn(Position& position) const;
    bool isShown(Position const& position) const;

    detail::ListingPtr listing_;
    std::shared_ptr<detail::RequestThreads> threads_;
    Position position_;
    bool isAtEntry_ = false;
    mutable Next next_ = Next::Unknown;
    mutable Position nextPosition_;
    mutable std::exception_ptr failure_;
};

} // namespace foundation::storage::provider::s3
