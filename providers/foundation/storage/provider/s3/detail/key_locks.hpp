#pragma once

#include <array>
#include <functional>
#include <mutex>
#include <string_view>
#include <utility>

namespace foundation::storage::provider::s3::detail {

/// Keeps changes of one key apart that the store cannot keep apart by itself, as far as they come
/// through one provider. Several keys may share a lock.
class KeyLocks {
  public:
    std::unique_lock<std::mutex> lock(std::string_view key) {
        return std::unique_lock(mutexOf(key));
    }
    /// Both, without a deadlock.
    std::pair<std::unique_lock<std::mutex>, std::unique_lock<std::mutex>>
    lock(std::string_view one, std::string_view other) {
        std::mutex* first = &mutexOf(one);
        std::mutex* second = &mutexOf(other);
        if (first == second) {
            return {std::unique_lock(*first), std::unique_lock<std::mutex>()};
        }
        if (std::less<>()(second, first)) {
            std::swap(first, second);
        }
        std::unique_lock held(*first);
        return {std::move(held), std::unique_lock(*second)};
    }

  private:
    std::mutex& mutexOf(std::string_view key) {
        return mutexes_[std::hash<std::string_view>()(key) % mutexes_.size()];
    }

    std::array<std::mutex, 64> mutexes_;
};

} // namespace foundation::storage::provider::s3::detail
