#pragma once

#include <foundation/storage/provider/web/deadline.hpp>

#include <condition_variable>
#include <list>
#include <mutex>
#include <set>
#include <string>

namespace foundation::storage::provider::s3::detail {

/// Keeps changes of one key apart that the store cannot keep apart by itself, as far as they come
/// through one provider. Safe on any thread.
class KeyLocks {
  public:
    /// Single keys, and all keys with a prefix.
    struct Names {
        std::set<std::string> keys = {};
        std::set<std::string> prefixes = {};
    };

    /// While it lives nobody else has a lock on any of its keys. Does not outlive the locks.
    class Held {
      public:
        Held(KeyLocks& locks, Names names, web::Deadline const& deadline);
        Held(Held const&) = delete;
        Held& operator=(Held const&) = delete;
        ~Held();

      private:
        KeyLocks& locks_;
        Names const names_;
    };

    /// Waits for those who have one of them, or were there before and wait for one. Throws
    /// web::Failure, code ResourceInUse, where that takes longer than the deadline.
    Held lock(web::Deadline const& deadline, std::set<std::string> keys,
              std::set<std::string> prefixes = {});

  private:
    using Waiting = std::list<Names const*>;

    bool isTurnOf(Waiting::const_iterator place) const;

    std::mutex mutex_;
    std::condition_variable released_;
    // guarded by the mutex:
    Names held_;
    Waiting waiting_; ///< in their order
};

} // namespace foundation::storage::provider::s3::detail
