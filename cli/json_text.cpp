#include "json_text.hpp"

#include <fl/i18n/conversion.hpp>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <stdexcept>

namespace cli {

namespace {

bool isFirstOfPair(char16_t unit) {
    return unit >= 0xd800 && unit < 0xdc00;
}

} // namespace

nlohmann::ordered_json bytesAsJson(std::string const& bytes) {
    try {
        fl::i18n::to_ustring(bytes);
        return bytes;
    } catch (std::range_error const&) {
        std::string hex;
        for (char const byte : bytes) {
            hex += fmt::format("{:02x}", static_cast<unsigned char>(byte));
        }
        return {{"hex", hex}};
    }
}

std::string locationForPrograms(std::u16string_view location) {
    std::u16string text;
    for (char16_t const unit : location) {
        if (unit >= 0xdc80 && unit <= 0xdcff && (text.empty() || !isFirstOfPair(text.back()))) {
            for (char const digit : fmt::format("%{:02X}", static_cast<unsigned>(unit - 0xdc00))) {
                text += static_cast<char16_t>(digit);
            }
        } else {
            text += unit;
        }
    }
    return fl::i18n::toDisplayString(text);
}

std::string jsonLine(nlohmann::ordered_json const& object) {
    using Handler = nlohmann::ordered_json::error_handler_t;
    return object.dump(-1, ' ', false, Handler::replace) + "\n";
}

} // namespace cli
