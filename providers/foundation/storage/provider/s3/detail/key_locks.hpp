#pragma once

#include <condition_variable>
#include <mutex>
#include <set>
#include <string>
#include <utility>

namespace foundation::storage::provider::s3::detail {

/// Keeps changes of one key apart that the store cannot keep apart by itself, as far as they come
/// through one provider. Safe on any thread.
class KeyLocks {
  public:
    /// While it lives nobody else has a lock on any of its keys. Does not outlive the locks.
    class Held {
      public:
        Held(KeyLocks& locks, std::set<std::string> keys) : locks_(locks), keys_(std::move(keys)) {
            std::unique_lock lock(locks_.mutex_);
            locks_.released_.wait(lock, [&] {
                for (std::string const& key : keys_) {
                    if (locks_.held_.contains(key)) {
                        return false;
                    }
                }
                return true;
            });
            locks_.held_.insert(keys_.begin(), keys_.end());
        }
        Held(Held const&) = delete;
        Held& operator=(Held const&) = delete;
        ~Held() {
            {
                std::lock_guard const lock(locks_.mutex_);
                for (std::string const& key : keys_) {
                    locks_.held_.erase(key);
                }
            }
            locks_.released_.notify_all();
        }

      private:
        KeyLocks& locks_;
        std::set<std::string> const keys_;
    };

    Held lock(std::string const& key) { return Held(*this, {key}); }
    Held lock(std::string const& one, std::string const& other) {
        return Held(*this, {one, other});
    }

  private:
    std::mutex mutex_;
    std::condition_variable released_;
    std::set<std::string> held_; ///< guarded by the mutex
};

} // namespace foundation::storage::provider::s3::detail
