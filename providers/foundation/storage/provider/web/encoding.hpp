#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Bytes as text.
namespace foundation::storage::provider::web {

/// Of ASCII letters alone.
std::string inSmallLetters(std::string_view text);

/// The value of a hex digit; negative where it is none.
int valueOfHex(char digit) noexcept;

/// Each byte that is none of these becomes %XX (RFC 3986, section 2.1): ASCII letters and digits,
/// and those in `alsoPlain`.
std::string percentEncoded(std::string_view bytes, std::string_view alsoPlain);
/// Once: what comes out with a percent sign has one. Nothing where an escape is malformed.
std::optional<std::string> percentDecoded(std::string_view text);

/// RFC 4648, section 4.
std::string base64(std::string_view bytes);

} // namespace foundation::storage::provider::web
