#pragma once

#include <atomic>
#include <mutex>
#include <shared_mutex>

namespace foundation::storage::provider::memory::detail {

/// A std::shared_mutex under which nobody starves. The plain one lets new readers in while a writer
/// waits: beside six threads that do nothing but look, a writer was seen to wait for minutes. Here
/// whoever waits for a writer to go first lets it, and the readers who wait while it is at work go
/// before the next one. Without a writer readers pay one relaxed load.
class FairSharedMutex {
  public:
    void lock() {
        writers_.fetch_add(1, std::memory_order_relaxed);
        std::lock_guard const turn(turnstile_);
        mutex_.lock();
    }
    void unlock() {
        mutex_.unlock();
        writers_.fetch_sub(1, std::memory_order_relaxed);
    }

    void lock_shared() {
        // Only a hint: who misses a writer that is just coming is one reader more, once.
        if (writers_.load(std::memory_order_relaxed) != 0) {
            std::lock_guard const turn(turnstile_);
        }
        mutex_.lock_shared();
    }
    void unlock_shared() { mutex_.unlock_shared(); }

  private:
    std::atomic<unsigned> writers_{0}; ///< at work or waiting
    std::mutex turnstile_;             ///< held by the writer that waits for the readers to leave
    std::shared_mutex mutex_;
};

} // namespace foundation::storage::provider::memory::detail
