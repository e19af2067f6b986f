#pragma once

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <string_view>

/// Facts for programs.
namespace cli {

/// Bytes that a storage gave: text where they are UTF-8, otherwise an object with the member "hex",
/// so that none is lost.
nlohmann::ordered_json bytesAsJson(std::string const& bytes);

/// The text of a location, which is always UTF-8: a byte that is not stands there as `%NN`, which
/// means the same.
std::string locationForPrograms(std::u16string_view location);

/// `object` on a line of its own. What is not UTF-8 in it is replaced.
std::string jsonLine(nlohmann::ordered_json const& object);

} // namespace cli
