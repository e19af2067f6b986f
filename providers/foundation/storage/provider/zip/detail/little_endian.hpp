#pragma once

#include <cstddef>
#include <cstdint>

namespace foundation::storage::provider::zip::detail {

/// Numbers as zip has them: the lowest byte first, aligned to nothing.
inline std::uint16_t read16(unsigned char const* at) noexcept {
    return static_cast<std::uint16_t>(at[0] | at[1] << 8);
}
inline std::uint32_t read32(unsigned char const* at) noexcept {
    return read16(at) | std::uint32_t{read16(at + 2)} << 16;
}
inline std::uint64_t read64(unsigned char const* at) noexcept {
    return read32(at) | std::uint64_t{read32(at + 4)} << 32;
}

} // namespace foundation::storage::provider::zip::detail
