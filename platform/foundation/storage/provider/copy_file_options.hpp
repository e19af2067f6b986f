#pragma once

#include <cstdint>
#include <functional>
#include <optional>

namespace foundation::storage::provider {

/// What becomes of an existing destination. For one file, FailIfExists and KeepExisting refuse it
/// with code ResourceAlreadyExists; ReplaceExisting and ReplaceReadOnly replace it unless it is
/// read-only, which is refused with PermissionDenied (under ReplaceReadOnly the caller unlocks and
/// asks again).
enum class ReplacementPolicy : std::uint32_t {
    FailIfExists = 0,
    ReplaceExisting = 1,
    ReplaceReadOnly = 2,
    ReplaceAndDeferDenied = 3,
    KeepExisting = 4,
};

/// Whether a policy lets an existing file be replaced at all.
constexpr bool replaces(ReplacementPolicy policy) noexcept {
    return policy == ReplacementPolicy::ReplaceExisting ||
           policy == ReplacementPolicy::ReplaceReadOnly ||
           policy == ReplacementPolicy::ReplaceAndDeferDenied;
}

/// What a copy achieved. After CopiedWithTimes no time needs carrying over.
enum class CopyStatus : std::uint32_t { Copied = 0, CopiedWithTimes = 1 };

/// Called during a copy with the bytes done and the bytes in all, where known, on the copying
/// thread. Returning false cancels: the copy fails and leaves no partial destination.
using CopyProgress = std::function<bool(std::uint64_t done, std::optional<std::uint64_t> total)>;

struct CopyFileOptions {
    ReplacementPolicy policy = ReplacementPolicy::FailIfExists;
    std::uint32_t reserved = 0;
    CopyProgress progress; ///< may be empty
};

} // namespace foundation::storage::provider
