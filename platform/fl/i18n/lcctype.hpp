#pragma once

/// Locale-independent character classes.
namespace fl::i18n::lcctype {

constexpr bool isalpha_ascii(char32_t c) noexcept {
    return (c >= U'a' && c <= U'z') || (c >= U'A' && c <= U'Z');
}

constexpr bool isalnum_ascii(char32_t c) noexcept {
    return isalpha_ascii(c) || (c >= U'0' && c <= U'9');
}

} // namespace fl::i18n::lcctype
