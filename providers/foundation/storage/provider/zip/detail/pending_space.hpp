#pragma once

#include <foundation/storage/provider/spool/space.hpp>
#include <foundation/storage/provider/zip/zip_options.hpp>

#include <atomic>
#include <cstdint>

namespace foundation::storage::provider::zip::detail {

/// What is pending could not be kept, or not be read again.
using PendingFailure = spool::Failure;

/// The room for content that is not in the archive yet, shared by all that is pending of one
/// archive. Safe on any thread.
class PendingSpace : public spool::Space {
  public:
    explicit PendingSpace(ZipOptions const& options)
        : Space(options.maximumPendingMemory, options.temporaryFolder) {}

    /// How often anything changed that the archive is to hold.
    std::uint64_t changes() const noexcept { return changes_; }
    void countChange() noexcept { ++changes_; }
    /// Streams that may still write.
    void addWriter() noexcept { ++writers_; }
    void removeWriter() noexcept { --writers_; }
    bool hasWriter() const noexcept { return writers_ != 0; }

  private:
    std::atomic<std::uint64_t> changes_ = 0;
    std::atomic<int> writers_ = 0;
};

} // namespace foundation::storage::provider::zip::detail
