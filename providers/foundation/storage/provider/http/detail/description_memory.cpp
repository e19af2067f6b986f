#include <foundation/storage/provider/http/detail/description_memory.hpp>

#include <utility>

namespace foundation::storage::provider::http::detail {

namespace {

constexpr std::size_t mostEntries = 64;

} // namespace

std::optional<Description> DescriptionMemory::find(std::string const& url) const {
    std::lock_guard const lock(mutex_);
    auto const found = entries_.find(url);
    if (found == entries_.end() || Clock::now() - found->second.asked >= lifetime_) {
        return std::nullopt;
    }
    return found->second.description;
}

void DescriptionMemory::keep(std::string const& url, Description const& description,
                             Clock::time_point asked) {
    if (lifetime_ <= std::chrono::milliseconds(0)) {
        return;
    }
    std::lock_guard const lock(mutex_);
    if (asked <= forgotten_) {
        return;
    }
    if (entries_.size() >= mostEntries) {
        std::erase_if(entries_, [&](auto const& entry) {
            return Clock::now() - entry.second.asked >= lifetime_;
        });
        if (entries_.size() >= mostEntries) {
            entries_.clear();
        }
    }
    entries_.insert_or_assign(url, Entry{description, asked});
}

void DescriptionMemory::forget() {
    std::lock_guard const lock(mutex_);
    entries_.clear();
    forgotten_ = Clock::now();
}

} // namespace foundation::storage::provider::http::detail
