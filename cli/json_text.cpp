#include "json_text.hpp"

#include <fl/i18n/conversion.hpp>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <stdexcept>

namespace cli {

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

std::string jsonLine(nlohmann::ordered_json const& object) {
    using Handler = nlohmann::ordered_json::error_handler_t;
    return object.dump(-1, ' ', false, Handler::replace) + "\n";
}

} // namespace cli
