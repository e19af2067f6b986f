#pragma once

#include <foundation/storage/provider/exists_result.hpp>

#include <cstdint>
#include <string>
#include <string_view>

/// How things are written for people.
namespace cli {

/// `text` on one line: control characters, line separators, characters that turn the direction of
/// text, byte order marks, and bytes that are not UTF-8 are escaped (`\n`, `\x1b`, `\u202e`).
std::string onOneLine(std::string_view text);

/// The same for a location as a person typed it, where a password in it is replaced by `***`.
std::string shownLocation(std::string_view typed);

/// "812 bytes", "1.5 MiB (1572864 bytes)".
std::string sizeInWords(std::uint64_t bytes);
/// "812 B", "1.5 MiB".
std::string shortSize(double bytes);

/// "rw-r--r-- (0644)".
std::string modeInWords(std::uint32_t mode);

/// "file", "folder", "link to a file" ...
char const* kindInWords(foundation::storage::provider::ExtendedExistsResult kind);

/// The same as one word for programs: "file", "folder", "link-to-file" ...
char const* kindForPrograms(foundation::storage::provider::ExtendedExistsResult kind);

} // namespace cli
