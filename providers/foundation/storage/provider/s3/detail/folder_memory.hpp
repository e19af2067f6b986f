#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace foundation::storage::provider::s3::detail {

/// Folders that were there a moment ago, so that making many files in one asks for it once. Safe on
/// any thread.
class FolderMemory {
  public:
    using Clock = std::chrono::steady_clock;

    /// To be taken before a question is asked.
    std::uint64_t changes() const;
    /// Unless anything has been forgotten since the question was asked.
    void keep(std::string const& folder, std::uint64_t changesBefore);
    bool has(std::string const& folder) const;
    /// Forgets the folder, and all above and below it.
    void forget(std::string const& folder);

    /// What stands around the removal of a folder, or of something in it: also where the answer to
    /// it is lost.
    class Removal {
      public:
        Removal(FolderMemory& memory, std::string folder)
            : memory_(memory),
              folder_(std::move(folder)) {
            memory_.forget(folder_);
        }
        Removal(Removal const&) = delete;
        Removal& operator=(Removal const&) = delete;
        ~Removal() { memory_.forget(folder_); }

      private:
        FolderMemory& memory_;
        std::string const folder_;
    };

  private:
    static constexpr std::chrono::seconds lifetime{10};
    static constexpr std::size_t most = 4096;

    mutable std::mutex mutex_;
    // guarded by the mutex:
    std::map<std::string, Clock::time_point> folders_;
    std::uint64_t changes_ = 0;
};

} // namespace foundation::storage::provider::s3::detail
