#pragma once

#include <foundation/storage/provider/web/deadline.hpp>

#include <condition_variable>
#include <mutex>
#include <set>
#include <string>

namespace foundation::storage::provider::http::detail {

/// The names that are being made, so that of many threads one makes a name: servers look whether
/// something is there, and only then make it. Safe on any thread.
class NamesInWork {
  public:
    /// Has a name for as long as it lives; waits while another one has it. Throws web::Failure
    /// where that takes too long.
    class Hold {
      public:
        Hold(NamesInWork& names, std::string name, web::Deadline const& deadline);
        Hold(Hold const&) = delete;
        Hold& operator=(Hold const&) = delete;
        ~Hold();

      private:
        NamesInWork& names_;
        std::string const name_;
    };

  private:
    std::mutex mutex_;
    std::condition_variable given_;
    std::set<std::string, std::less<>> names_; ///< guarded by the mutex
};

} // namespace foundation::storage::provider::http::detail
