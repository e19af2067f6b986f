#include <foundation/storage/provider/local/detail/watch_batch.hpp>

#include <foundation/storage/provider/local/detail/file_descriptor.hpp>

#include <cstring>
#include <limits.h>
#include <new>
#include <poll.h>

namespace foundation::storage::provider::local::detail {

namespace {

constexpr std::size_t readSize = 64 * 1024;
/// More waits for the next batch, so that reports do not wait for the end of a burst.
constexpr std::size_t batchSize = 512 * 1024;
constexpr std::size_t longestEvent = sizeof(inotify_event) + NAME_MAX + 1;

} // namespace

WatchBatch::WatchBatch() : buffer_(readSize) {}

bool WatchBatch::read(int inotify) noexcept {
    size_ = 0;
    arrivals_.clear();
    try {
        while (size_ < batchSize && readOnce(inotify)) {
        }
        if (size_ != 0 && endsWithDeparture()) {
            // The kernel puts the other end into the queue right behind; it may be about to.
            pollfd more{inotify, POLLIN, 0};
            if (::poll(&more, 1, 1) > 0) {
                readOnce(inotify);
            }
        }
        index();
    } catch (std::bad_alloc const&) {
        arrivals_.clear(); // what is moved is removed and created then
    }
    return size_ != 0;
}

/// False where the queue is empty, as far as this tells for sure.
bool WatchBatch::readOnce(int inotify) {
    if (buffer_.size() - size_ < readSize) {
        buffer_.resize(buffer_.size() + readSize);
    }
    std::size_t const room = buffer_.size() - size_;
    ssize_t const got =
        uninterrupted([&] { return ::read(inotify, buffer_.data() + size_, room); });
    if (got <= 0) {
        return false;
    }
    std::size_t const end = size_ + static_cast<std::size_t>(got);
    while (size_ < end) {
        last_ = size_;
        size_ += sizeof(inotify_event) +
                 reinterpret_cast<inotify_event const*>(buffer_.data() + size_)->len;
    }
    // Where another event would have fitted, there was none.
    return room - static_cast<std::size_t>(got) < longestEvent;
}

bool WatchBatch::endsWithDeparture() const noexcept {
    return (reinterpret_cast<inotify_event const*>(buffer_.data() + last_)->mask & IN_MOVED_FROM) !=
           0;
}

WatchBatch::Event WatchBatch::eventOf(inotify_event const& event) noexcept {
    std::string_view const name =
        event.len == 0 ? std::string_view()
                       : std::string_view(event.name, ::strnlen(event.name, event.len));
    return {event.wd, event.mask, event.cookie, name};
}

void WatchBatch::index() {
    forEach([&](Event const& event) {
        if ((event.mask & IN_MOVED_TO) != 0) {
            arrivals_.insert_or_assign(event.cookie, Arrival{event.watch, event.name});
        }
    });
}

WatchBatch::Arrival const* WatchBatch::arrivalOf(std::uint32_t cookie) const noexcept {
    auto const found = arrivals_.find(cookie);
    return found == arrivals_.end() ? nullptr : &found->second;
}

} // namespace foundation::storage::provider::local::detail
