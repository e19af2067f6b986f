#include <fl/i18n/conversion.hpp>

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <stdexcept>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace fl::i18n {

namespace {

using Byte = unsigned char;

constexpr char32_t escapedBytes = 0xDC00; ///< the lone unit for a byte is this plus the byte
constexpr char16_t replacementCharacter = 0xFFFD;

constexpr bool isSurrogate(char32_t c) {
    return (c & 0xFFFFF800) == 0xD800;
}
constexpr bool isHighSurrogate(char32_t c) {
    return (c & 0xFFFFFC00) == 0xD800;
}
constexpr bool isLowSurrogate(char32_t c) {
    return (c & 0xFFFFFC00) == 0xDC00;
}
constexpr bool isEscapedByte(char32_t c) {
    return c >= 0xDC80 && c <= 0xDCFF;
}
constexpr char32_t joinSurrogates(char32_t high, char32_t low) {
    return 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00);
}

/// Writes the ASCII at `in` to `out` and moves both on, up to the first byte that is not ASCII or
/// to near `end`. There is room for as many units as there are bytes left.
inline void widenAscii(Byte const*& in, Byte const* end, char16_t*& out) {
#if defined(__SSE2__)
    __m128i const zero = _mm_setzero_si128();
    while (end - in >= 16) {
        __m128i const bytes = _mm_loadu_si128(reinterpret_cast<__m128i const*>(in));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi8(bytes, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8), _mm_unpackhi_epi8(bytes, zero));
        auto const others = static_cast<unsigned>(_mm_movemask_epi8(bytes));
        if (others != 0) {
            int const run = std::countr_zero(others);
            in += run;
            out += run;
            return;
        }
        in += 16;
        out += 16;
    }
    if (end - in >= 8) {
        __m128i const bytes = _mm_loadl_epi64(reinterpret_cast<__m128i const*>(in));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi8(bytes, zero));
        auto const others = static_cast<unsigned>(_mm_movemask_epi8(bytes));
        int const run = others != 0 ? std::countr_zero(others) : 8;
        in += run;
        out += run;
        if (run < 8) {
            return;
        }
    }
#endif
    while (in != end && *in < 0x80) {
        *out++ = *in++;
    }
}

struct RefuseByte {
    [[noreturn]] char16_t operator()(Byte) const {
        throw std::range_error("text is not well-formed UTF-8");
    }
};

struct EscapeByte {
    char16_t operator()(Byte b) const { return static_cast<char16_t>(escapedBytes + b); }
};

/// The unit of a sequence of three bytes, of which `word` has the first one lowest; 0 where there
/// is none. No well-formed sequence of three bytes is a 0.
inline char16_t threeBytes(std::uint32_t word) {
    if ((word & 0xC0C0F0) != 0x8080E0) {
        return 0;
    }
    auto const c =
        static_cast<char16_t>((word & 0x0F) << 12 | (word >> 8 & 0x3F) << 6 | (word >> 16 & 0x3F));
    return c < 0x800 || isSurrogate(c) ? char16_t{0} : c;
}

/// Decodes the sequence of two or four bytes at `in`, of which `word` has the first one lowest, and
/// moves both on; false where there is none.
inline bool decodeSequence(std::uint32_t word, Byte const*& in, char16_t*& out) {
    if ((word & 0xC0E0) == 0x80C0 && (word & 0x1E) != 0) {
        *out++ = static_cast<char16_t>((word & 0x1F) << 6 | (word >> 8 & 0x3F));
        in += 2;
        return true;
    }
    if ((word & 0xC0C0C0F8) != 0x808080F0) {
        return false;
    }
    char32_t const c = (word & 0x07) << 18 | (word >> 8 & 0x3F) << 12 | (word >> 16 & 0x3F) << 6 |
                       (word >> 24 & 0x3F);
    if (c < 0x10000 || c > 0x10FFFF) {
        return false;
    }
    *out++ = static_cast<char16_t>(0xD7C0 + (c >> 10));
    *out++ = static_cast<char16_t>(0xDC00 + (c & 0x3FF));
    in += 4;
    return true;
}

/// UTF-8 to UTF-16; a byte that is not part of a well-formed sequence becomes what `onMalformed`
/// makes of it. `out` has room for as many units as there are bytes. Returns the end of the output.
template<class OnMalformed>
char16_t* decode(Byte const* in, Byte const* end, char16_t* out, OnMalformed const& onMalformed) {
    static_assert(std::endian::native == std::endian::little);
    for (;;) {
        widenAscii(in, end, out);
        // Text outside ASCII tends to go on outside ASCII, a space now and then aside.
        while (end - in >= 4) {
            std::uint32_t word;
            std::memcpy(&word, in, sizeof word);
            if (char16_t const unit = threeBytes(word); unit != 0) {
                *out++ = unit;
                in += 3;
            } else if ((word & 0xC0E0C0E0) == 0x80C080C0 && (word & 0x1E) != 0 &&
                       (word & 0x1E0000) != 0) {
                // Two sequences of two bytes, as most alphabets are written.
                out[0] = static_cast<char16_t>((word & 0x1F) << 6 | (word >> 8 & 0x3F));
                out[1] = static_cast<char16_t>((word >> 16 & 0x1F) << 6 | (word >> 24 & 0x3F));
                out += 2;
                in += 4;
            } else if ((word & 0x80) == 0) {
                *out++ = *in++;
                if ((word & 0x8000) == 0) {
                    break;
                }
            } else if (!decodeSequence(word, in, out)) {
                *out++ = onMalformed(*in++);
            }
        }
        if (end - in >= 4) {
            continue;
        }
        while (in != end) {
            // What is missing reads as NUL, which continues nothing.
            std::uint32_t word = 0;
            std::memcpy(&word, in, static_cast<std::size_t>(end - in));
            if ((word & 0x80) == 0) {
                *out++ = *in++;
            } else if (char16_t const unit = threeBytes(word); unit != 0) {
                *out++ = unit;
                in += 3;
            } else if (!decodeSequence(word, in, out)) {
                *out++ = onMalformed(*in++);
            }
        }
        return out;
    }
}

/// The text that `decode` makes of `bytes`.
template<class OnMalformed>
ustring decoded(std::string_view bytes, OnMalformed const& onMalformed) {
    auto const* in = reinterpret_cast<Byte const*>(bytes.data());
    // A name fits the buffer: one allocation of the exact size, and no filling beforehand.
    std::array<char16_t, 256> buffer;
    if (bytes.size() <= buffer.size()) {
        char16_t* const end = decode(in, in + bytes.size(), buffer.data(), onMalformed);
        return ustring(buffer.data(), static_cast<std::size_t>(end - buffer.data()));
    }
    ustring out(bytes.size(), u'\0');
    char16_t* const end = decode(in, in + bytes.size(), out.data(), onMalformed);
    out.resize(static_cast<std::size_t>(end - out.data()));
    return out;
}

/// Writes the ASCII at `in` to `out` as bytes and moves both on.
inline void narrowAscii(char16_t const*& in, char16_t const* end, char*& out) {
#if defined(__SSE2__)
    __m128i const limit = _mm_set1_epi16(static_cast<short>(0xFF80));
    while (end - in >= 8) {
        __m128i const units = _mm_loadu_si128(reinterpret_cast<__m128i const*>(in));
        __m128i const ascii = _mm_cmpeq_epi16(_mm_and_si128(units, limit), _mm_setzero_si128());
        // Room for three bytes a unit makes the eight bytes of this store safe.
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(units, units));
        auto const mask = static_cast<unsigned>(_mm_movemask_epi8(ascii));
        if (mask != 0xFFFF) {
            int const run = std::countr_one(mask) / 2;
            in += run;
            out += run;
            return;
        }
        in += 8;
        out += 8;
    }
#endif
    while (in != end && *in < 0x80) {
        *out++ = static_cast<char>(*in++);
    }
}

inline char toChar(char32_t bits) {
    return static_cast<char>(static_cast<Byte>(bits));
}

inline char* encodeThreeBytes(char32_t c, char* out) {
    *out++ = toChar(0xE0 | c >> 12);
    *out++ = toChar(0x80 | (c >> 6 & 0x3F));
    *out++ = toChar(0x80 | (c & 0x3F));
    return out;
}

struct RefuseUnit {
    [[noreturn]] char* operator()(char16_t, char*) const {
        throw std::range_error("text is not well-formed UTF-16");
    }
};

struct RestoreByte {
    char* operator()(char16_t unit, char* out) const {
        if (!isEscapedByte(unit)) {
            throw std::range_error("a name holds half a character");
        }
        *out++ = toChar(unit - escapedBytes);
        return out;
    }
};

struct RestoreOrReplace {
    char* operator()(char16_t unit, char* out) const {
        return isEscapedByte(unit) ? RestoreByte{}(unit, out)
                                   : encodeThreeBytes(replacementCharacter, out);
    }
};

/// UTF-16 to UTF-8; `onLone` writes what becomes of a lone surrogate, at most three bytes. `out`
/// has room for three bytes a unit. Returns the end of the output.
template<class OnLone>
char* encode(char16_t const* in, char16_t const* end, char* out, OnLone const& onLone) {
    for (;;) {
        narrowAscii(in, end, out);
        for (;;) {
            if (in == end) {
                return out;
            }
            char32_t const c = *in;
            if (c < 0x80) {
                *out++ = toChar(c);
                ++in;
                if (in != end && *in < 0x80) {
                    break;
                }
            } else if (c < 0x800) {
                *out++ = toChar(0xC0 | c >> 6);
                *out++ = toChar(0x80 | (c & 0x3F));
                ++in;
            } else if (!isSurrogate(c)) {
                out = encodeThreeBytes(c, out);
                ++in;
            } else if (isHighSurrogate(c) && end - in >= 2 && isLowSurrogate(in[1])) {
                char32_t const joined = joinSurrogates(c, in[1]);
                *out++ = toChar(0xF0 | joined >> 18);
                *out++ = toChar(0x80 | (joined >> 12 & 0x3F));
                *out++ = toChar(0x80 | (joined >> 6 & 0x3F));
                *out++ = toChar(0x80 | (joined & 0x3F));
                in += 2;
            } else {
                out = onLone(*in, out);
                ++in;
            }
        }
    }
}

template<class OnLone>
std::string encoded(std::u16string_view text, OnLone const& onLone) {
    std::array<char, 768> buffer;
    if (text.size() <= buffer.size() / 3) {
        char* const end = encode(text.data(), text.data() + text.size(), buffer.data(), onLone);
        return std::string(buffer.data(), static_cast<std::size_t>(end - buffer.data()));
    }
    std::string out(text.size() * 3, '\0');
    char* const end = encode(text.data(), text.data() + text.size(), out.data(), onLone);
    out.resize(static_cast<std::size_t>(end - out.data()));
    return out;
}

} // namespace

ustring to_ustring(std::string_view utf8) {
    return decoded(utf8, RefuseByte{});
}

std::string to_string(std::u16string_view text) {
    return encoded(text, RefuseUnit{});
}

std::u32string to_u32string(std::u16string_view text) {
    std::u32string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t c = text[i];
        if (isHighSurrogate(c) && i + 1 < text.size() && isLowSurrogate(text[i + 1])) {
            c = joinSurrogates(c, text[++i]);
        }
        out.push_back(c);
    }
    return out;
}

ustring storageNameToUstring(std::string_view bytes) {
    return decoded(bytes, EscapeByte{});
}

void appendStorageName(ustring& out, std::string_view bytes) {
    auto const* in = reinterpret_cast<Byte const*>(bytes.data());
    std::array<char16_t, 256> buffer;
    if (bytes.size() <= buffer.size()) {
        char16_t* const end = decode(in, in + bytes.size(), buffer.data(), EscapeByte{});
        out.append(buffer.data(), static_cast<std::size_t>(end - buffer.data()));
    } else {
        out += decoded(bytes, EscapeByte{});
    }
}

std::string ustringToStorageName(std::u16string_view name) {
    return encoded(name, RestoreByte{});
}

std::string toDisplayString(std::u16string_view text) {
    return encoded(text, RestoreOrReplace{});
}

codecvt_ustring_to_string::codecvt_ustring_to_string(std::string_view encoding) {
    constexpr std::string_view utf8 = "UTF-8";
    bool same = encoding.size() == utf8.size();
    for (std::size_t i = 0; same && i < utf8.size(); ++i) {
        char const c = encoding[i];
        same = (c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c) == utf8[i];
    }
    if (!same) {
        throw std::invalid_argument("the only narrow encoding is UTF-8");
    }
}

std::string codecvt_ustring_to_string::operator()(std::u16string_view text) const {
    return to_string(text);
}

} // namespace fl::i18n
