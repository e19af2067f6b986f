#include <foundation/storage/provider/detail/path_scan.hpp>

#include <foundation/storage/provider/detail/location_hash.hpp>
#include <foundation/storage/provider/detail/location_text.hpp>

#include <algorithm>
#include <bit>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace foundation::storage::provider::detail {

namespace {

constexpr std::size_t blockSize = 8;

/// Of eight units, one bit each: those that end a simple scan, and the slashes.
struct Block {
    unsigned special;
    unsigned slash;
};

/// What is special about a unit.
enum class Scan : std::uint8_t {
    Path,           ///< percent sign, NUL, surrogate
    PathWithSuffix, ///< these, and what begins a query or fragment
    Name,           ///< whatever has to be encoded
};

#if defined(__SSE2__)

template<Scan scan>
inline Block classify(char16_t const* units) noexcept {
    __m128i const block = _mm_loadu_si128(reinterpret_cast<__m128i const*>(units));
    auto const equal = [&](short unit) { return _mm_cmpeq_epi16(block, _mm_set1_epi16(unit)); };
    __m128i special = _mm_or_si128(
        equal('%'), _mm_cmpeq_epi16(_mm_and_si128(block, _mm_set1_epi16(short(0xF800))),
                                    _mm_set1_epi16(short(0xD800))));
    if constexpr (scan != Scan::Path) {
        special = _mm_or_si128(special, _mm_or_si128(equal('?'), equal('#')));
    }
    if constexpr (scan == Scan::Name) {
        // Up to 0x1F, and from 0x7F to 0x9F, by what a saturating subtraction leaves nothing of.
        __m128i const zero = _mm_setzero_si128();
        __m128i const low = _mm_cmpeq_epi16(_mm_subs_epu16(block, _mm_set1_epi16(0x1F)), zero);
        __m128i const from7F = _mm_sub_epi16(block, _mm_set1_epi16(0x7F));
        __m128i const high = _mm_cmpeq_epi16(_mm_subs_epu16(from7F, _mm_set1_epi16(0x20)), zero);
        special = _mm_or_si128(special, _mm_or_si128(low, high));
    } else {
        special = _mm_or_si128(special, equal(0));
    }
    auto const bits =
        static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(special, equal('/'))));
    return {bits & 0xFF, bits >> 8};
}

#else

template<Scan scan>
inline Block classify(char16_t const* units) noexcept {
    Block block{0, 0};
    for (unsigned i = 0; i < blockSize; ++i) {
        char16_t const c = units[i];
        bool special = c == u'%' || (c & 0xF800) == 0xD800;
        if constexpr (scan != Scan::Path) {
            special = special || c == u'?' || c == u'#';
        }
        if constexpr (scan == Scan::Name) {
            special = special || c < 0x20 || (c >= 0x7F && c < 0xA0);
        } else {
            special = special || c == 0;
        }
        block.special |= static_cast<unsigned>(special) << i;
        block.slash |= static_cast<unsigned>(c == u'/') << i;
    }
    return block;
}

#endif

/// The units from `at` on, of which there are fewer than eight; the bits of others are clear.
template<Scan scan>
inline Block classifyRest(std::u16string_view text, std::size_t at) noexcept {
    std::size_t const left = text.size() - at;
    Block block;
    if (text.size() >= blockSize) {
        block = classify<scan>(text.data() + text.size() - blockSize);
        block.special >>= blockSize - left;
        block.slash >>= blockSize - left;
    } else {
        char16_t padded[blockSize] = {};
        std::memcpy(padded, text.data() + at, left * sizeof(char16_t));
        block = classify<scan>(padded);
        unsigned const there = (1U << left) - 1;
        block.special &= there;
        block.slash &= there;
    }
    return block;
}

template<Scan scan>
PathScan scanAs(std::u16string_view text) noexcept {
    PathScan result;
    result.hash = rootHash;
    std::size_t segment = 1;
    bool regular = true;
    auto const closeSegment = [&](std::size_t end) {
        std::u16string_view const name(text.data() + segment, end - segment);
        if (name.empty() || (name[0] == u'.' && isDotSegment(name))) {
            regular = false;
        } else {
            result.hash = hashSegment(result.hash, name);
            result.lastSegment = segment;
        }
        segment = end + 1;
    };

    std::size_t at = 1;
    result.length = text.size();
    while (at < text.size()) {
        bool const whole = text.size() - at >= blockSize;
        Block block = whole ? classify<scan>(text.data() + at) : classifyRest<scan>(text, at);
        if (block.special != 0) [[unlikely]] {
            auto const first = static_cast<unsigned>(std::countr_zero(block.special));
            char16_t const c = text[at + first];
            if (scan == Scan::PathWithSuffix && (c == u'?' || c == u'#')) {
                result.length = at + first;
                block.slash &= (1U << first) - 1;
            } else {
                // Encoded, or not simply a character: what is left to find is the end.
                std::size_t end = at + first;
                while (scan == Scan::PathWithSuffix && end < text.size() && text[end] != u'?' &&
                       text[end] != u'#') {
                    ++end;
                }
                result.length = scan == Scan::PathWithSuffix ? end : text.size();
                return result;
            }
        }
        for (unsigned slashes = block.slash; slashes != 0; slashes &= slashes - 1) {
            closeSegment(at + static_cast<unsigned>(std::countr_zero(slashes)));
        }
        if (result.length != text.size()) {
            break;
        }
        at += blockSize;
    }
    if (result.length == 1) {
        result.lastSegment = 1;
    } else {
        closeSegment(result.length);
    }
    result.regular = regular;
    return result;
}

} // namespace

PathScan scanPath(std::u16string_view text, PathEnd end) noexcept {
    return end == PathEnd::Suffix ? scanAs<Scan::PathWithSuffix>(text) : scanAs<Scan::Path>(text);
}

NameScan scanName(std::u16string_view name) noexcept {
    if (name.size() < blockSize) {
        Block const block = classifyRest<Scan::Name>(name, 0);
        return {block.special == 0, block.slash != 0};
    }
    // The last block overlaps the one before it.
    std::size_t const last = name.size() - blockSize;
    Block all = classify<Scan::Name>(name.data() + last);
    for (std::size_t at = 0; at < last; at += blockSize) {
        Block const block = classify<Scan::Name>(name.data() + at);
        all.special |= block.special;
        all.slash |= block.slash;
    }
    return {all.special == 0, all.slash != 0};
}

} // namespace foundation::storage::provider::detail
