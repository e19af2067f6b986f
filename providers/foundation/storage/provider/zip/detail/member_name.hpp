#pragma once

#include <string>
#include <string_view>

namespace foundation::storage::provider::zip::detail {

/// What the bytes of a name are: UTF-8 where bit 11 of the flags says so, whatever the system had
/// where the archive was made on Unix, and else of code page 437.
enum class NameSpelling { Kept, CodePage437 };

/// The path of a member in UTF-8 or in the bytes of whatever the archive has, from what its central
/// header says: the Unicode path of Info-ZIP's extra field 0x7075, else the name itself, from code
/// page 437 where that is its spelling. `buffer` may come to hold it.
std::string_view memberPath(std::string_view name, std::string_view extra, NameSpelling spelling,
                            std::string& buffer);

/// In UTF-8.
std::string fromCodePage437(std::string_view text);

} // namespace foundation::storage::provider::zip::detail
