#pragma once

#include <algorithm>
#include <chrono>
#include <stop_token>
#include <utility>

namespace foundation::storage::provider::web {

/// The time by which an operation is to be done, which is at once where nobody wants it any more. A
/// plain value.
class Deadline {
  public:
    using Clock = std::chrono::steady_clock;
    using Milliseconds = std::chrono::milliseconds;

    explicit Deadline(Milliseconds allowed, std::stop_token stop = {})
        : end_(Clock::now() + allowed),
          stop_(std::move(stop)) {}

    bool isOver() const { return stop_.stop_requested() || Clock::now() >= end_; }
    /// Never negative.
    Milliseconds left() const {
        auto const left = std::chrono::ceil<Milliseconds>(end_ - Clock::now());
        return stop_.stop_requested() ? Milliseconds(0) : std::max(left, Milliseconds(0));
    }
    /// One that allows for more.
    Deadline after(Milliseconds more) const {
        Deadline later = *this;
        later.end_ += more;
        return later;
    }
    std::stop_token const& stop() const noexcept { return stop_; }

  private:
    Clock::time_point end_;
    std::stop_token stop_;
};

} // namespace foundation::storage::provider::web
