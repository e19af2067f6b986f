#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <sys/inotify.h>
#include <unordered_map>
#include <vector>

namespace foundation::storage::provider::local::detail {

/// What inotify(7) had in its queue: the events of one gathering, and which of them are the two
/// ends of a move. For one thread at a time.
class WatchBatch {
  public:
    struct Event {
        int watch;
        std::uint32_t mask;
        std::uint32_t cookie;
        std::string_view name; ///< empty where it is about the watched folder itself
    };
    /// Where something was moved to.
    struct Arrival {
        int watch;
        std::string_view name;
    };

    WatchBatch();

    /// Takes what is in the queue, without waiting for more. False where it was empty.
    bool read(int inotify) noexcept;

    std::size_t bytes() const noexcept { return size_; }
    /// Calls `take(Event)` for every event, in their order.
    template<class Take>
    void forEach(Take const& take) const {
        for (std::size_t at = 0; at < size_;) {
            auto const& event = *reinterpret_cast<inotify_event const*>(buffer_.data() + at);
            take(eventOf(event));
            at += sizeof event + event.len;
        }
    }
    /// Null where it was moved out of all that is watched.
    Arrival const* arrivalOf(std::uint32_t cookie) const noexcept;

  private:
    static Event eventOf(inotify_event const& event) noexcept;
    bool readOnce(int inotify);
    bool endsWithDeparture() const noexcept;
    void index();

    std::vector<char> buffer_;
    std::size_t size_ = 0;
    std::size_t last_ = 0; ///< where the last event begins
    std::unordered_map<std::uint32_t, Arrival> arrivals_;
};

} // namespace foundation::storage::provider::local::detail
