#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

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

inline void put16(std::string& bytes, std::uint64_t value) {
    bytes += static_cast<char>(value & 0xFF);
    bytes += static_cast<char>(value >> 8 & 0xFF);
}
inline void put32(std::string& bytes, std::uint64_t value) {
    put16(bytes, value);
    put16(bytes, value >> 16);
}
inline void put64(std::string& bytes, std::uint64_t value) {
    put32(bytes, value);
    put32(bytes, value >> 32);
}

} // namespace foundation::storage::provider::zip::detail
