#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

/// The hash of a location. It is folded segment by segment, so that the hash of a child continues
/// that of its folder.
namespace foundation::storage::provider::detail {

inline constexpr std::uint64_t hashSeed = 0x9E3779B97F4A7C15;

/// Both halves of the product of two words, folded into one.
inline std::uint64_t hashJoin(std::uint64_t a, std::uint64_t b) noexcept {
    __extension__ using Wide = unsigned __int128;
    Wide const product = static_cast<Wide>(a ^ 0xA0761D6478BD642F) * (b ^ 0xE7037ED1A0B428DB);
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

inline std::uint64_t hashUnits(std::uint64_t hash, std::u16string_view units) noexcept {
    char16_t const* in = units.data();
    std::size_t left = units.size();
    std::uint64_t word = 0;
    for (; left >= 4; left -= 4, in += 4) {
        std::memcpy(&word, in, sizeof word);
        hash = hashJoin(hash, word);
    }
    word = 0;
    for (std::size_t i = 0; i < left; ++i) {
        word = word << 16 | in[i];
    }
    return hashJoin(hash, word ^ static_cast<std::uint64_t>(units.size()) << 56);
}

/// The hash of a root, on top of which the segments are folded.
inline std::uint64_t hashRoot(std::uint64_t stem) noexcept {
    return hashJoin(stem, u'/');
}

inline std::uint64_t hashSegment(std::uint64_t hash, std::u16string_view segment) noexcept {
    return hashUnits(hash, segment);
}

/// `identity` has one slash before each segment; a root is a slash alone.
inline std::uint64_t hashPath(std::uint64_t stem, std::u16string_view identity) noexcept {
    std::uint64_t hash = hashRoot(stem);
    std::size_t begin = 1;
    while (begin < identity.size()) {
        std::size_t end = begin;
        while (end < identity.size() && identity[end] != u'/') {
            ++end;
        }
        hash = hashSegment(hash, identity.substr(begin, end - begin));
        begin = end + 1;
    }
    return hash;
}

} // namespace foundation::storage::provider::detail
