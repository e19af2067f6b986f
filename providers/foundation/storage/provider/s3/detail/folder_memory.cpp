#include <foundation/storage/provider/s3/detail/folder_memory.hpp>

namespace foundation::storage::provider::s3::detail {

std::uint64_t FolderMemory::changes() const {
    std::lock_guard const lock(mutex_);
    return changes_;
}

void FolderMemory::keep(std::string const& folder, std::uint64_t changesBefore) {
    std::lock_guard const lock(mutex_);
    if (changes_ != changesBefore) {
        return;
    }
    if (folders_.size() >= most) {
        folders_.clear(); // they are asked for again, once each
    }
    folders_.insert_or_assign(folder, Clock::now());
}

bool FolderMemory::has(std::string const& folder) const {
    std::lock_guard const lock(mutex_);
    auto const found = folders_.find(folder);
    return found != folders_.end() && Clock::now() - found->second < lifetime;
}

void FolderMemory::forget(std::string const& folder) {
    std::lock_guard const lock(mutex_);
    ++changes_;
    std::string const below = folder + '/';
    auto const first = folders_.lower_bound(below);
    auto last = first;
    while (last != folders_.end() && last->first.starts_with(below)) {
        ++last;
    }
    folders_.erase(first, last);
    for (std::string above = folder; !above.empty();) {
        folders_.erase(above);
        std::size_t const slash = above.rfind('/');
        above.resize(slash == std::string::npos ? 0 : slash);
    }
}

} // namespace foundation::storage::provider::s3::detail
