#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace foundation::storage::provider::s3::detail {

/// What a slash becomes.
enum class Slash { Kept, Encoded };

/// As names stand in the path and the query of a request, and in what is signed of it: each byte
/// but for ASCII letters, digits and `-._~` becomes %XX.
std::string encoded(std::string_view bytes, Slash slash);

/// As a listing gives names: %XX is a byte, and a plus sign a blank. Nothing where an escape is
/// malformed.
std::optional<std::string> decoded(std::string_view text);

} // namespace foundation::storage::provider::s3::detail
