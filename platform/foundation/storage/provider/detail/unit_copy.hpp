#pragma once

#include <cstddef>
#include <cstring>

namespace foundation::storage::provider::detail {

/// Copies `count` units and returns the end of the copy. The parts of a location are short: a call
/// of memcpy would cost more than what it copies.
inline char16_t* copyUnits(char16_t* out, char16_t const* in, std::size_t count) noexcept {
    // The last step overlaps the one before it.
    if (count >= 8) {
        for (std::size_t at = 0; at + 8 < count; at += 8) {
            std::memcpy(out + at, in + at, 8 * sizeof(char16_t));
        }
        std::memcpy(out + count - 8, in + count - 8, 8 * sizeof(char16_t));
    } else if (count >= 4) {
        std::memcpy(out, in, 4 * sizeof(char16_t));
        std::memcpy(out + count - 4, in + count - 4, 4 * sizeof(char16_t));
    } else {
        for (std::size_t at = 0; at < count; ++at) {
            out[at] = in[at];
        }
    }
    return out + count;
}

} // namespace foundation::storage::provider::detail
