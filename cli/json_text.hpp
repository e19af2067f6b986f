#pragma once

#include <nlohmann/json_fwd.hpp>

#include <string>

/// Facts for programs.
namespace cli {

/// Bytes that a storage gave: text where they are UTF-8, otherwise an object with the member "hex",
/// so that none is lost.
nlohmann::ordered_json bytesAsJson(std::string const& bytes);

/// `object` on a line of its own. What is not UTF-8 in it is replaced.
std::string jsonLine(nlohmann::ordered_json const& object);

} // namespace cli
