#include <foundation/storage/provider/tar/detail/block_cache.hpp>

namespace foundation::storage::provider::tar::detail {

BlockCache::Block BlockCache::find(std::uint64_t number) {
    std::lock_guard const lock(mutex_);
    auto const found = found_.find(number);
    if (found == found_.end()) {
        return nullptr;
    }
    order_.splice(order_.begin(), order_, found->second);
    return found->second->second;
}

void BlockCache::keep(std::uint64_t number, Block const& block) {
    std::lock_guard const lock(mutex_);
    if (most_ == 0 || found_.contains(number)) {
        return;
    }
    if (order_.size() >= most_) {
        found_.erase(order_.back().first);
        order_.pop_back();
    }
    order_.emplace_front(number, block);
    found_.emplace(number, order_.begin());
}

std::optional<std::uint64_t> BlockCache::end() const {
    std::lock_guard const lock(mutex_);
    return end_;
}

void BlockCache::setEnd(std::uint64_t end) {
    std::lock_guard const lock(mutex_);
    end_ = end;
}

} // namespace foundation::storage::provider::tar::detail
