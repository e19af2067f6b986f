#include <foundation/storage/provider/web/encoding.hpp>

#include <cstddef>
#include <cstdint>

namespace foundation::storage::provider::web {

namespace {

bool isLetterOrDigit(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

} // namespace

std::string inSmallLetters(std::string_view text) {
    std::string small(text);
    for (char& c : small) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return small;
}

int valueOfHex(char digit) noexcept {
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    char const small = static_cast<char>(digit | 0x20);
    return small >= 'a' && small <= 'f' ? small - 'a' + 10 : -1;
}

std::string percentEncoded(std::string_view bytes, std::string_view alsoPlain) {
    constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size());
    for (char const c : bytes) {
        if (isLetterOrDigit(c) || alsoPlain.find(c) != std::string_view::npos) {
            text += c;
        } else {
            auto const byte = static_cast<unsigned char>(c);
            text += '%';
            text += digits[byte >> 4];
            text += digits[byte & 15];
        }
    }
    return text;
}

std::optional<std::string> percentDecoded(std::string_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            bytes += text[i];
            continue;
        }
        int const high = i + 2 < text.size() ? valueOfHex(text[i + 1]) : -1;
        int const low = high >= 0 ? valueOfHex(text[i + 2]) : -1;
        if (low < 0) {
            return std::nullopt;
        }
        bytes += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return bytes;
}

std::string base64(std::string_view bytes) {
    constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        std::uint32_t group = 0;
        for (std::size_t k = 0; k < 3; ++k) {
            group =
                group << 8 | (i + k < bytes.size() ? static_cast<unsigned char>(bytes[i + k]) : 0U);
        }
        for (std::size_t k = 0; k < 4; ++k) {
            text += i + k > bytes.size() ? '=' : digits[group >> (18 - 6 * k) & 63];
        }
    }
    return text;
}

} // namespace foundation::storage::provider::web
