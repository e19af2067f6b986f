#pragma once

#include <foundation/storage/provider/zip/detail/archive_index.hpp>

#include <cstddef>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

namespace foundation::storage::provider::zip::detail {

/// As long as a path may be for the kernel.
constexpr std::uint64_t longestTarget = 4096;

/// The targets of links that have been read: where archives lie in archives behind links, reading
/// them anew at every step would multiply from each to the next. Bounded, and safe on any thread.
class LinkTargets {
  public:
    std::optional<std::string> find(ArchiveIndex::Number link) const;
    void keep(ArchiveIndex::Number link, std::string const& target);

  private:
    mutable std::mutex mutex_;
    std::unordered_map<ArchiveIndex::Number, std::string> targets_; ///< guarded by the mutex
    std::size_t bytes_ = 0;                                         ///< of all of them; likewise
};

} // namespace foundation::storage::provider::zip::detail
