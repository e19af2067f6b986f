// The conversions between UTF-8, UTF-16 and UTF-32, against those of ICU.

#include "require.hpp"

#include <fl/i18n/conversion.hpp>

#include <unicode/ustring.h>
#include <unicode/utf.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

template<class Convert>
auto attempt(Convert const& convert) -> std::optional<decltype(convert())> {
    try {
        return convert();
    } catch (std::range_error const&) {
        return std::nullopt;
    }
}

std::optional<std::u16string> toUnits(std::string const& bytes) {
    std::u16string out(bytes.size(), u'\0'); // no text gets longer so
    std::int32_t length = 0;
    UErrorCode error = U_ZERO_ERROR;
    u_strFromUTF8(out.data(), static_cast<std::int32_t>(out.size()), &length, bytes.data(),
                  static_cast<std::int32_t>(bytes.size()), &error);
    if (U_FAILURE(error)) {
        return std::nullopt;
    }
    out.resize(static_cast<std::size_t>(length));
    return out;
}

std::optional<std::string> toBytes(std::u16string const& units) {
    std::string out(units.size() * 3, '\0');
    std::int32_t length = 0;
    UErrorCode error = U_ZERO_ERROR;
    u_strToUTF8(out.data(), static_cast<std::int32_t>(out.size()), &length, units.data(),
                static_cast<std::int32_t>(units.size()), &error);
    if (U_FAILURE(error)) {
        return std::nullopt;
    }
    out.resize(static_cast<std::size_t>(length));
    return out;
}

std::u32string toPoints(std::u16string const& units) {
    std::u32string out;
    auto const length = static_cast<std::int32_t>(units.size());
    for (std::int32_t at = 0; at < length;) {
        UChar32 point = 0;
        U16_NEXT(units.data(), at, length, point); // half a character as it is
        out += static_cast<char32_t>(point);
    }
    return out;
}

/// A name as bytes, of which those that are no character are kept as units of their own.
std::u16string toName(std::string const& bytes) {
    std::u16string out;
    auto const* const data = reinterpret_cast<std::uint8_t const*>(bytes.data());
    auto const length = static_cast<std::int32_t>(bytes.size());
    for (std::int32_t at = 0; at < length;) {
        std::int32_t const begin = at;
        UChar32 point = 0;
        U8_NEXT(data, at, length, point);
        if (point < 0) {
            // What may follow a byte that is no character is looked at again from behind it.
            out += static_cast<char16_t>(0xDC00 + data[begin]);
            at = begin + 1;
        } else if (point < 0x10000) {
            out += static_cast<char16_t>(point);
        } else {
            out += static_cast<char16_t>(U16_LEAD(point));
            out += static_cast<char16_t>(U16_TRAIL(point));
        }
    }
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string const bytes(reinterpret_cast<char const*>(data), size);
    require(attempt([&] { return fl::i18n::to_ustring(bytes); }) == toUnits(bytes));
    require(fl::i18n::storageNameToUstring(bytes) == toName(bytes));

    std::u16string units(size / 2, u'\0');
    std::memcpy(units.data(), bytes.data(), units.size() * sizeof(char16_t));
    require(attempt([&] { return fl::i18n::to_string(units); }) == toBytes(units));
    require(fl::i18n::to_u32string(units) == toPoints(units));
    return 0;
}
