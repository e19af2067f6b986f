#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace foundation::storage::provider::tar::detail {

/// The bytes of an archive, as they are before compression. For one thread at a time. Failures are
/// those of the item's provider and stream, and container::DecodingFailure.
class ArchiveBytes {
  public:
    ArchiveBytes() = default;
    ArchiveBytes(ArchiveBytes const&) = delete;
    ArchiveBytes& operator=(ArchiveBytes const&) = delete;
    virtual ~ArchiveBytes();

    /// What lies at `position`, as much as is at hand; empty at the end. Valid until the next call.
    virtual std::span<unsigned char const> see(std::uint64_t position) = 0;
    /// Fills as much of the buffer as there is from `position` on.
    virtual std::size_t readAt(std::uint64_t position, std::span<unsigned char> buffer) = 0;
    /// The position, or the end where that comes before it.
    virtual std::uint64_t reach(std::uint64_t position) = 0;
    /// How many there are, where going back costs no more than going on.
    virtual std::optional<std::uint64_t> size() const { return std::nullopt; }
    /// As of the item's bytes, since nobody may read on for long.
    virtual void rest() noexcept = 0;
    /// Whether no call has failed.
    virtual bool isGood() const noexcept = 0;
};

} // namespace foundation::storage::provider::tar::detail
