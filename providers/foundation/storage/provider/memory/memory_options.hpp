#pragma once

#include <cstdint>
#include <optional>

namespace foundation::storage::provider::memory {

/// What a store in memory may hold. Beyond a limit, writing and creating fail with code
/// NoSpaceLeft; removing makes room again, as soon as the last stream on what was removed is gone.
struct MemoryOptions {
    /// Bytes of content. Holes of whole blocks (64 KiB) are free, and so is a copy until one of the
    /// two is changed. While every byte is taken nothing can be created either.
    std::optional<std::uint64_t> maximumBytes;
    /// Files, folders and links, the root not counted.
    std::optional<std::uint64_t> maximumEntries;
};

} // namespace foundation::storage::provider::memory
