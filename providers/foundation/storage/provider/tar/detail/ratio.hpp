#pragma once

#include <foundation/storage/provider/tar/tar_options.hpp>

#include <algorithm>
#include <cstdint>

namespace foundation::storage::provider::tar::detail {

/// Whether so many bytes came out of so few that they can be next to nothing but zeros.
inline bool isMoreThanRatio(std::uint64_t bytes, std::uint64_t stored,
                            TarOptions const& options) noexcept {
    constexpr std::uint64_t freeOfRatio = std::uint64_t{64} * 1024 * 1024;
    return bytes > freeOfRatio && bytes / std::max<std::uint64_t>(options.maximumRatio, 1) > stored;
}

} // namespace foundation::storage::provider::tar::detail
