#pragma once

#include <foundation/storage/provider/timestamp.hpp>

#include <optional>
#include <string>

/// Points in time as people write them (ISO 8601).
namespace cli {

/// "2024-05-01T10:11:12.123456789Z".
std::string isoTime(foundation::storage::provider::Timestamp time);

/// The same without the fraction, "2024-05-01T10:11:12Z", for columns.
std::string isoTimeToSecond(foundation::storage::provider::Timestamp time);

/// Reads "2024-05-01", "2024-05-01T10:11", with seconds, a fraction, and `Z` or an offset behind
/// it; without an offset the time is local. A space may stand for the T. Empty where the text is
/// none of these or no such moment exists.
std::optional<foundation::storage::provider::Timestamp> parseIsoTime(std::string const& text);

} // namespace cli
