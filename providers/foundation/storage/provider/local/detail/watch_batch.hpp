#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <sys/inotify.h>
#include <unordered_map>
#include <vector>

namespace foundation::storage::provider::local::detail {

/// What inotify(7) had in its queue: the events of one gathering, which of them are the two ends of
/// a move, and which two moves are one exchange. For one thread at a time.
///
/// The kernel tells of an exchange of `a` and `b` as of a move from `a` to `b` and one back, which
/// read one behind the other would leave one of the two. So `b` goes last to where it has come:
/// `a` departs, `b` moves to `a`, and `b` is there again. A file that is moved and moved back at
/// once looks the same; what is there when it is read decides.
class WatchBatch {
  public:
    struct Event {
        int watch;
        std::uint32_t mask;
        std::uint32_t cookie;
        std::string_view name; ///< empty where it is about the watched folder itself
    };
    enum class Answer { No, Yes, Unknown };
    /// Where something was moved to.
    struct Arrival {
        int watch;
        std::string_view name;
    };

    WatchBatch();

    /// Takes what is in the queue, without waiting for more. False where it was empty.
    bool read(int inotify) noexcept;

    std::size_t bytes() const noexcept { return size_; }
    /// Calls `take(Event)` for every event, in their order but for exchanges. Those are what looks
    /// like it where `isThere(watch, name)`, called when all events before are taken, is Yes of the
    /// name that was the second to go. Where that cannot be known, what was moved was removed and
    /// created.
    template<class IsThere, class Take>
    void forEach(IsThere const& isThere, Take const& take) {
        auto exchange = exchanges_.begin();
        for (std::size_t at = 0; at < size_; at = behind(at)) {
            if (exchange != exchanges_.end() && at == exchange->firstDeparture &&
                !isExchange(*exchange, isThere)) {
                ++exchange;
            }
            if (exchange != exchanges_.end() && at == exchange->firstArrival) {
                continue;
            }
            take(eventAt(at));
            if (exchange != exchanges_.end() && at == exchange->secondArrival) {
                take(eventAt(exchange->firstArrival));
                ++exchange;
            }
        }
    }
    /// Null where it was moved out of all that is watched.
    Arrival const* arrivalOf(std::uint32_t cookie) const noexcept;

  private:
    /// Of two moves, where the events are.
    struct Exchange {
        std::size_t firstDeparture;
        std::size_t firstArrival;
        std::size_t secondArrival;
    };
    struct Move;

    inotify_event const& rawAt(std::size_t at) const noexcept {
        return *reinterpret_cast<inotify_event const*>(buffer_.data() + at);
    }
    Event eventAt(std::size_t at) const noexcept;
    std::size_t behind(std::size_t at) const noexcept {
        return at + sizeof(inotify_event) + rawAt(at).len;
    }
    bool readOnce(int inotify);
    void readEnd(int inotify);
    void index();
    bool areExchange(Move const& first, Move const& second) const noexcept;
    template<class IsThere>
    bool isExchange(Exchange const& exchange, IsThere const& isThere) {
        Event const first = eventAt(exchange.firstArrival);
        Answer const answer = isThere(first.watch, first.name);
        if (answer != Answer::No) {
            arrivals_.erase(first.cookie);
        }
        if (answer == Answer::Unknown) {
            arrivals_.erase(eventAt(exchange.secondArrival).cookie);
        }
        return answer == Answer::Yes;
    }

    std::vector<char> buffer_;
    std::size_t size_ = 0;
    std::size_t last_ = 0; ///< where the last event begins
    std::unordered_map<std::uint32_t, Arrival> arrivals_;
    std::vector<Exchange> exchanges_; ///< in the order of their events
};

} // namespace foundation::storage::provider::local::detail
