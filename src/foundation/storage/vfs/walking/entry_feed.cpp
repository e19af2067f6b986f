#include <foundation/storage/vfs/walking/detail/entry_feed.hpp>

#include <utility>

namespace foundation::storage::vfs::detail {

EntryFeed::EntryFeed(FolderListing<FileOrFolderEntry> const& listing)
    : position_(listing.begin()),
      end_(listing.end()) {}

EntryFeed::Iterator EntryFeed::begin() noexcept {
    fill();
    return Iterator(this);
}

void EntryFeed::next() noexcept {
    if (failure_) {
        atEnd_ = true;
        return;
    }
    try {
        ++position_;
    } catch (...) {
        fail();
        return;
    }
    fill();
}

void EntryFeed::fill() noexcept {
    try {
        if (position_ == end_) {
            atEnd_ = true;
            return;
        }
        Slot& slot = freeSlot();
        slot.entry.emplace(*position_);
        current_ = &slot;
    } catch (...) {
        fail();
    }
}

void EntryFeed::fail() noexcept {
    failure_ = std::current_exception();
    current_ = nullptr;
}

FileOrFolderEntry EntryFeed::take(Slot* slot) {
    if (slot == nullptr) {
        std::rethrow_exception(failure_);
    }
    FileOrFolderEntry entry = *std::exchange(slot->entry, std::nullopt);
    release(*slot);
    return entry;
}

// Only the feeder takes slots off the list, so its head cannot leave and come back between reading
// it and exchanging it.
EntryFeed::Slot& EntryFeed::freeSlot() {
    Slot* head = free_.load(std::memory_order_acquire);
    while (head != nullptr) {
        if (free_.compare_exchange_weak(head, head->nextFree, std::memory_order_acquire)) {
            return *head;
        }
    }
    return slots_.emplace_back();
}

void EntryFeed::release(Slot& slot) noexcept {
    slot.nextFree = free_.load(std::memory_order_relaxed);
    while (!free_.compare_exchange_weak(slot.nextFree, &slot, std::memory_order_release,
                                        std::memory_order_relaxed)) {
    }
}

} // namespace foundation::storage::vfs::detail
