#include <foundation/storage/provider/container/item_streams.hpp>

#include <utility>

namespace foundation::storage::provider::container {

namespace {

/// Each may hold the state of a decoder, or what was asked for ahead.
constexpr std::size_t mostIdle = 2;

std::unique_ptr<ItemBytes> another(ItemBytes const& opener) {
    return std::make_unique<ItemBytes>(opener.pinned()->openAnother());
}

} // namespace

ItemStreams::ItemStreams(StorageItem item, First first)
    : item_(std::move(item)),
      endFirst_(first == First::End
                    ? dynamic_cast<extensions::IEndFirstStreams const*>(item_.getProvider().get())
                    : nullptr),
      isNested_(item_.getLocation().hasInnerIRI()) {
    idle_.reserve(mostIdle); // so that bringing one back takes no memory
}

ItemStreams::Lent ItemStreams::lend() {
    std::unique_ptr<ItemBytes> bytes;
    {
        std::lock_guard const lock(mutex_);
        if (!idle_.empty()) {
            bytes = std::move(idle_.back());
            idle_.pop_back();
        } else if (opener_) {
            bytes = another(*opener_);
        }
    }
    if (!bytes) {
        bytes = pin(open());
    }
    return {bytes.release(), Return{shared_from_this()}};
}

std::unique_ptr<ItemBytes> ItemStreams::open() const {
    return std::make_unique<ItemBytes>(endFirst_ != nullptr
                                           ? endFirst_->openEndFirst(item_.getLocation())
                                           : item_.openReadOnlyStream());
}

/// Of two that are opened at once, one says which version it is.
std::unique_ptr<ItemBytes> ItemStreams::pin(std::unique_ptr<ItemBytes> opened) {
    if (opened->pinned() == nullptr) {
        return opened;
    }
    std::lock_guard const lock(mutex_);
    if (opener_) {
        return another(*opener_);
    }
    opener_ = another(*opened);
    return opened;
}

bool ItemStreams::isOutdated() const {
    std::lock_guard const lock(mutex_);
    return isOutdated_;
}

void ItemStreams::Return::operator()(ItemBytes* bytes) const noexcept {
    std::unique_ptr<ItemBytes> returned(bytes);
    auto* const pinned = returned->pinned();
    if (!returned->isGood()) {
        if (pinned != nullptr && pinned->isOutdated()) {
            std::lock_guard const lock(owner->mutex_);
            owner->isOutdated_ = true;
        }
        return;
    }
    if (pinned == nullptr && !owner->isNested_) {
        return;
    }
    returned->rest();
    std::lock_guard const lock(owner->mutex_); // released before what is too much goes
    if (owner->idle_.size() < mostIdle) {
        owner->idle_.push_back(std::move(returned));
    }
}

} // namespace foundation::storage::provider::container
