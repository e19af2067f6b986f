// The conversions, against each other and against the plainest form of the rules.

#include "require.hpp"

#include <fl/i18n/conversion.hpp>

#include <cstdint>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

using fl::i18n::ustring;

namespace {

template<class Convert>
auto attempt(Convert const& convert) -> std::optional<decltype(convert())> {
    try {
        return convert();
    } catch (std::range_error const&) {
        return std::nullopt;
    }
}

bool isLoneByte(char32_t c) {
    return c >= 0xDC80 && c <= 0xDCFF;
}

void convertBytes(std::string const& bytes) {
    ustring const name = fl::i18n::storageNameToUstring(bytes);
    require(fl::i18n::ustringToStorageName(name) == bytes);
    require(fl::i18n::toDisplayString(name) == bytes);
    ustring appended = u"x";
    fl::i18n::appendStorageName(appended, bytes);
    require(appended == u"x" + name);

    bool wellFormed = true;
    for (char32_t const c : fl::i18n::to_u32string(name)) {
        require((c < 0xD800 || c > 0xDFFF || isLoneByte(c)) && c <= 0x10FFFF);
        wellFormed = wellFormed && !isLoneByte(c);
    }
    auto const text = attempt([&] { return fl::i18n::to_ustring(bytes); });
    require(text.has_value() == wellFormed);
    if (text) {
        require(*text == name);
        require(fl::i18n::to_string(*text) == bytes);
    }
}

void convertUnits(ustring const& units) {
    bool wellFormed = true;
    bool onlyBytes = true;
    std::size_t points = 0;
    std::u32string const wide = fl::i18n::to_u32string(units);
    for (char32_t const c : wide) {
        bool const lone = c >= 0xD800 && c <= 0xDFFF;
        wellFormed = wellFormed && !lone;
        onlyBytes = onlyBytes && (!lone || isLoneByte(c));
        points += c >= 0x10000 ? 2 : 1;
    }
    require(points == units.size());

    auto const narrow = attempt([&] { return fl::i18n::to_string(units); });
    require(narrow.has_value() == wellFormed);
    if (narrow) {
        require(fl::i18n::to_ustring(*narrow) == units);
    }
    auto const name = attempt([&] { return fl::i18n::ustringToStorageName(units); });
    require(name.has_value() == onlyBytes);
    if (name) {
        // Bytes that make a character become it, so only the bytes come back as they were.
        require(fl::i18n::ustringToStorageName(fl::i18n::storageNameToUstring(*name)) == *name);
        require(fl::i18n::toDisplayString(units) == *name);
    }
    require(fl::i18n::toDisplayString(units).size() <= units.size() * 3);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string const bytes(reinterpret_cast<char const*>(data), size);
    convertBytes(bytes);
    ustring units(size / 2, u'\0');
    std::memcpy(units.data(), bytes.data(), units.size() * sizeof(char16_t));
    convertUnits(units);
    return 0;
}
