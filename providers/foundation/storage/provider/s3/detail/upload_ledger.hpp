#pragma once

#include <mutex>
#include <set>
#include <string>
#include <string_view>

namespace foundation::storage::provider::s3::detail {

/// The uploads of this process, so that none is taken for one that was lost. Safe on any thread.
class UploadLedger {
  public:
    /// For as long as an upload is asked for, and has no id.
    class Beginning {
      public:
        Beginning(UploadLedger& ledger, std::string_view key) : ledger_(ledger), key_(key) {
            std::lock_guard const lock(ledger_.mutex_);
            ledger_.beginning_.insert(key_);
        }
        Beginning(Beginning const&) = delete;
        Beginning& operator=(Beginning const&) = delete;
        ~Beginning() {
            std::lock_guard const lock(ledger_.mutex_);
            ledger_.beginning_.erase(ledger_.beginning_.find(key_));
        }

      private:
        UploadLedger& ledger_;
        std::string const key_;
    };

    void add(std::string const& upload) {
        std::lock_guard const lock(mutex_);
        open_.insert(upload);
    }
    void remove(std::string_view upload) {
        std::lock_guard const lock(mutex_);
        open_.erase(std::string(upload));
    }
    bool has(std::string const& upload) const {
        std::lock_guard const lock(mutex_);
        return open_.contains(upload);
    }
    bool isBegunTwice(std::string_view key) const {
        std::lock_guard const lock(mutex_);
        return beginning_.count(std::string(key)) > 1;
    }

  private:
    mutable std::mutex mutex_;
    std::multiset<std::string> beginning_; ///< keys
    std::set<std::string> open_;
};

} // namespace foundation::storage::provider::s3::detail
