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

/// Where the events of a move, or an exchange, are about.
struct WatchBatch::Move {
    std::size_t departure;
    std::size_t arrival;
};

bool WatchBatch::read(int inotify) noexcept {
    bool const wasLarge = size_ > readSize;
    size_ = 0;
    arrivals_.clear();
    exchanges_.clear();
    try {
        if (!wasLarge && buffer_.size() > readSize) {
            std::vector<char>(readSize).swap(buffer_); // the burst is over
        }
        while (size_ < batchSize && readOnce(inotify)) {
        }
        if (size_ != 0) {
            readEnd(inotify);
        }
        index();
    } catch (std::bad_alloc const&) {
        arrivals_.clear(); // what is moved is removed and created then
        exchanges_.clear();
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

/// What belongs together is put into the queue at once; it may be that it is about to be.
void WatchBatch::readEnd(int inotify) {
    std::uint32_t const mask = rawAt(last_).mask;
    if ((mask & IN_MOVED_FROM) != 0) {
        pollfd more{inotify, POLLIN, 0};
        if (::poll(&more, 1, 1) > 0) {
            readOnce(inotify);
        }
    } else if ((mask & (IN_MOVED_TO | IN_MOVE_SELF)) != 0) {
        readOnce(inotify);
    }
}

WatchBatch::Event WatchBatch::eventAt(std::size_t at) const noexcept {
    inotify_event const& event = rawAt(at);
    std::string_view const name =
        event.len == 0 ? std::string_view()
                       : std::string_view(event.name, ::strnlen(event.name, event.len));
    return {event.wd, event.mask, event.cookie, name};
}

/// Of a folder that is watched itself, only its having moved stands between the two moves of an
/// exchange; one that was replaced changes its attributes there.
void WatchBatch::index() {
    constexpr std::size_t none = static_cast<std::size_t>(-1);
    std::size_t departure = none;
    Move last{none, none};
    for (std::size_t at = 0; at < size_; at = behind(at)) {
        inotify_event const& event = rawAt(at);
        if ((event.mask & IN_MOVED_TO) != 0) {
            Event const arrival = eventAt(at);
            arrivals_.insert_or_assign(event.cookie, Arrival{arrival.watch, arrival.name});
            bool const isMove = departure != none && rawAt(departure).cookie == event.cookie;
            Move const move{isMove ? departure : none, at};
            bool const isSecond = isMove && last.departure != none && areExchange(last, move);
            if (isSecond) {
                exchanges_.push_back({last.departure, last.arrival, at});
            }
            last = isSecond ? Move{none, none} : move;
        } else if ((event.mask & IN_MOVE_SELF) == 0 && (event.mask & IN_MOVED_FROM) == 0) {
            last = {none, none};
        }
        departure = (event.mask & IN_MOVED_FROM) != 0 ? at : none;
    }
}

bool WatchBatch::areExchange(Move const& first, Move const& second) const noexcept {
    auto const isOne = [&](std::size_t a, std::size_t b) {
        Event const x = eventAt(a);
        Event const y = eventAt(b);
        return x.watch == y.watch && x.name == y.name;
    };
    return isOne(first.departure, second.arrival) && isOne(first.arrival, second.departure);
}

WatchBatch::Arrival const* WatchBatch::arrivalOf(std::uint32_t cookie) const noexcept {
    auto const found = arrivals_.find(cookie);
    return found == arrivals_.end() ? nullptr : &found->second;
}

} // namespace foundation::storage::provider::local::detail
