#pragma once

#include <algorithm>
#include <chrono>

namespace foundation::storage::provider::web {

/// The time by which an operation is to be done. A plain value.
class Deadline {
  public:
    using Clock = std::chrono::steady_clock;
    using Milliseconds = std::chrono::milliseconds;

    explicit Deadline(Milliseconds allowed) : end_(Clock::now() + allowed) {}

    bool isOver() const { return Clock::now() >= end_; }
    /// Never negative.
    Milliseconds left() const {
        auto const left = std::chrono::ceil<Milliseconds>(end_ - Clock::now());
        return std::max(left, Milliseconds(0));
    }

  private:
    Clock::time_point end_;
};

} // namespace foundation::storage::provider::web
