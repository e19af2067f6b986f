#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>

namespace foundation::storage::provider::s3::detail {

/// Folders that were there a moment ago, so that making many files in one asks for it once. Safe on
/// any thread.
class FolderMemory {
  public:
    using Clock = std::chrono::steady_clock;

    void keep(std::string const& folder);
    bool has(std::string const& folder) const;
    /// Forgets the folder, and all above and below it.
    void forget(std::string const& folder);

  private:
    static constexpr std::chrono::seconds lifetime{10};
    static constexpr std::size_t most = 4096;

    mutable std::mutex mutex_;
    std::map<std::string, Clock::time_point> folders_; ///< guarded by the mutex
};

} // namespace foundation::storage::provider::s3::detail
