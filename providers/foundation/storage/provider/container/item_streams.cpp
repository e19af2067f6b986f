#include <foundation/storage/provider/container/item_streams.hpp>

#include <utility>

namespace foundation::storage::provider::container {

namespace {

/// Each may hold a file open, and the state of a decoder.
constexpr std::size_t mostIdle = 2;

} // namespace

ItemStreams::ItemStreams(StorageItem item)
    : item_(std::move(item)),
      isKeeping_(item_.getLocation().hasInnerIRI()) {
    idle_.reserve(mostIdle); // so that bringing one back takes no memory
}

ItemStreams::Lent ItemStreams::lend() {
    std::unique_ptr<ItemBytes> bytes;
    {
        std::lock_guard const lock(mutex_);
        if (!idle_.empty()) {
            bytes = std::move(idle_.back());
            idle_.pop_back();
        }
    }
    if (!bytes) {
        bytes = std::make_unique<ItemBytes>(item_);
    }
    return {bytes.release(), Return{shared_from_this()}};
}

void ItemStreams::Return::operator()(ItemBytes* bytes) const noexcept {
    std::unique_ptr<ItemBytes> returned(bytes);
    if (owner->isKeeping_ && returned->isGood()) {
        std::lock_guard const lock(owner->mutex_);
        if (owner->idle_.size() < mostIdle) {
            owner->idle_.push_back(std::move(returned));
        }
    }
}

} // namespace foundation::storage::provider::container
