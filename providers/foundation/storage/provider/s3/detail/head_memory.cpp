#include <foundation/storage/provider/s3/detail/head_memory.hpp>

namespace foundation::storage::provider::s3::detail {

std::optional<ObjectHead> HeadMemory::find(std::string const& key) const {
    std::lock_guard const lock(mutex_);
    auto const found = heads_.find(key);
    if (found == heads_.end() || Clock::now() - found->second.since >= lifetime_) {
        return std::nullopt;
    }
    return found->second.head;
}

std::uint64_t HeadMemory::changes() const {
    std::lock_guard const lock(mutex_);
    return changes_;
}

void HeadMemory::keep(std::string const& key, ObjectHead const& head, std::uint64_t changesBefore) {
    if (lifetime_ <= std::chrono::milliseconds::zero()) {
        return;
    }
    std::lock_guard const lock(mutex_);
    if (changes_ != changesBefore) {
        return;
    }
    if (heads_.size() >= most) {
        heads_.clear(); // they are asked for again, once each
    }
    heads_.insert_or_assign(key, Known{head, Clock::now()});
}

void HeadMemory::forget(std::string const& key) {
    std::lock_guard const lock(mutex_);
    ++changes_;
    heads_.erase(key);
}

void HeadMemory::forgetAll() {
    std::lock_guard const lock(mutex_);
    ++changes_;
    heads_.clear();
}

} // namespace foundation::storage::provider::s3::detail
