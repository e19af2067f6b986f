#pragma once

#include <foundation/storage/provider/memory/memory_options.hpp>

#include <atomic>
#include <cstdint>
#include <limits>

namespace foundation::storage::provider::memory::detail {

/// A quantity with an upper bound. Safe on any number of threads.
class Quota {
  public:
    explicit Quota(std::optional<std::uint64_t> maximum)
        : maximum_(maximum.value_or(std::numeric_limits<std::uint64_t>::max())) {}

    /// Takes `amount`, or nothing and answers false.
    bool take(std::uint64_t amount) noexcept {
        std::uint64_t used = used_.load(std::memory_order_relaxed);
        do {
            if (amount > maximum_ - used) {
                return false;
            }
        } while (!used_.compare_exchange_weak(used, used + amount, std::memory_order_relaxed));
        return true;
    }

    void giveBack(std::uint64_t amount) noexcept {
        used_.fetch_sub(amount, std::memory_order_relaxed);
    }

    bool isExhausted() const noexcept { return used_.load(std::memory_order_relaxed) == maximum_; }
    std::uint64_t used() const noexcept { return used_.load(std::memory_order_relaxed); }

  private:
    std::uint64_t const maximum_;
    std::atomic<std::uint64_t> used_{0};
};

/// What one store has left. Shared by everything that takes from it, since open streams outlive the
/// provider.
struct Space {
    explicit Space(MemoryOptions const& options)
        : bytes(options.maximumBytes),
          entries(options.maximumEntries) {}

    Quota bytes;
    Quota entries;
};

} // namespace foundation::storage::provider::memory::detail
