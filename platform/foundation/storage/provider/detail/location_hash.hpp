#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

/// The hash of a location. It is folded segment by segment, so that the hash of a child continues
/// that of its folder; the segments' own hashes do not wait for each other.
namespace foundation::storage::provider::detail {

inline constexpr std::uint64_t hashSeed = 0x9E3779B97F4A7C15;

/// Both halves of the product of two words, folded into one.
inline std::uint64_t hashJoin(std::uint64_t a, std::uint64_t b) noexcept {
    __extension__ using Wide = unsigned __int128;
    Wide const product = static_cast<Wide>(a ^ 0xA0761D6478BD642F) * (b ^ 0xE7037ED1A0B428DB);
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

/// Four units as a word.
inline std::uint64_t hashWord(char16_t const* units) noexcept {
    std::uint64_t word;
    std::memcpy(&word, units, sizeof word);
    return word;
}

inline std::uint64_t hashUnits(std::u16string_view units) noexcept {
    char16_t const* in = units.data();
    std::size_t left = units.size();
    std::uint64_t hash = hashSeed ^ left;
    for (; left > 8; left -= 8, in += 8) {
        hash = hashJoin(hashWord(in) ^ hash, hashWord(in + 4));
    }
    if (left >= 4) {
        // The two words overlap where there are fewer than eight units.
        return hashJoin(hashWord(in) ^ hash, hashWord(in + left - 4));
    }
    std::uint64_t word = 0;
    for (; left > 0; --left) {
        word = word << 16 | in[left - 1];
    }
    return hashJoin(word ^ hash, hashSeed);
}

/// The hash of a path that is a root, on top of which the segments are folded. A path has the same
/// hash wherever it belongs; what stands before it is joined to the whole.
inline constexpr std::uint64_t rootHash = hashSeed;

inline std::uint64_t hashSegment(std::uint64_t hash, std::u16string_view segment) noexcept {
    return (std::rotl(hash, 23) ^ hashUnits(segment)) * 0x9FB21C651E98DF25;
}

/// `identity` has one slash before each segment; a root is a slash alone.
inline std::uint64_t hashPath(std::u16string_view identity) noexcept {
    std::uint64_t hash = rootHash;
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
