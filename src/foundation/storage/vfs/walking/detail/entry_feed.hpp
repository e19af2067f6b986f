#pragma once

#include <foundation/storage/vfs/listing/file_or_folder_entry.hpp>
#include <foundation/storage/vfs/listing/folder_listing.hpp>

#include <atomic>
#include <cstddef>
#include <deque>
#include <exception>
#include <iterator>
#include <optional>

namespace foundation::storage::vfs::detail {

/// Hands the entries of one listing to tbb::parallel_for_each, which takes from a listing's own
/// iterator what it must not (oneTBB 2021.8): a failure of the iterator never comes back to the
/// caller, and a block that is not full destroys items that were never made.
///
/// So the items that TBB sees are pointers to slots, and nothing here throws: what the listing
/// throws is kept, and ends the feed with one null slot. Who meets that rethrows it.
///
/// Thread safety: one feeder at a time moves the iterators, as parallel_for_each does; take() may
/// be called on any thread. The feed outlives both.
class EntryFeed {
  public:
    class Iterator;
    struct Slot;

    explicit EntryFeed(FolderListing<FileOrFolderEntry> const& listing);
    EntryFeed(EntryFeed const&) = delete;
    EntryFeed& operator=(EntryFeed const&) = delete;
    ~EntryFeed() = default;

    /// Fetches the first entry. REQUIRES: called once.
    Iterator begin() noexcept;
    Iterator end() const noexcept;

    /// The entry in `slot`, which is free for another behind this. Throws what the listing threw
    /// where the slot is null.
    FileOrFolderEntry take(Slot* slot);

  private:
    void next() noexcept;
    void fill() noexcept;
    void fail() noexcept;
    Slot& freeSlot();
    void release(Slot& slot) noexcept;

    FolderListingIterator<FileOrFolderEntry> position_;
    FolderListingIterator<FileOrFolderEntry> const end_;
    std::deque<Slot> slots_;
    Slot* current_ = nullptr; ///< null behind a failure
    bool atEnd_ = false;
    std::exception_ptr failure_; ///< written before its null slot is handed out
    std::atomic<Slot*> free_{nullptr};
};

struct EntryFeed::Slot {
    std::optional<FileOrFolderEntry> entry;
    Slot* nextFree = nullptr;
};

/// All iterators of a feed share its position.
class EntryFeed::Iterator {
  public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Slot*;
    using difference_type = std::ptrdiff_t;
    using pointer = Slot* const*;
    using reference = Slot* const&;

    explicit Iterator(EntryFeed* feed) noexcept : feed_(feed) {}

    reference operator*() const noexcept { return feed_->current_; }
    Iterator& operator++() noexcept {
        feed_->next();
        return *this;
    }
    void operator++(int) noexcept { feed_->next(); }
    bool operator==(Iterator const& other) const noexcept { return isEnd() == other.isEnd(); }

  private:
    bool isEnd() const noexcept { return feed_ == nullptr || feed_->atEnd_; }

    EntryFeed* feed_;
};

inline EntryFeed::Iterator EntryFeed::end() const noexcept {
    return Iterator(nullptr);
}

} // namespace foundation::storage::vfs::detail
