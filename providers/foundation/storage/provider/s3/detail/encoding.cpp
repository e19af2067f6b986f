#include <foundation/storage/provider/s3/detail/encoding.hpp>

#include <foundation/storage/provider/s3/detail/digest.hpp>

namespace foundation::storage::provider::s3::detail {

namespace {

bool isPlain(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_' || c == '~';
}

} // namespace

std::string encoded(std::string_view bytes, Slash slash) {
    constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size());
    for (char const c : bytes) {
        if (isPlain(c) || (c == '/' && slash == Slash::Kept)) {
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

std::optional<std::string> decoded(std::string_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '+') {
            bytes += ' ';
        } else if (text[i] != '%') {
            bytes += text[i];
        } else {
            std::string const byte = bytesOfHex(text.substr(i + 1, 2));
            if (byte.size() != 1) {
                return std::nullopt;
            }
            bytes += byte;
            i += 2;
        }
    }
    return bytes;
}

} // namespace foundation::storage::provider::s3::detail
