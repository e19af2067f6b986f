#pragma once

#include <string>
#include <string_view>

namespace foundation::storage::provider::zip::detail {

/// The path of a member in UTF-8 or in the bytes of whatever the archive has, from what its central
/// header says: the Unicode path of Info-ZIP's extra field 0x7075, else the name itself, which is
/// UTF-8 where bit 11 of the flags says so, and of code page 437 where it has other than ASCII.
/// `buffer` may come to hold it.
std::string_view memberPath(std::string_view name, std::string_view extra, bool isUtf8,
                            std::string& buffer);

} // namespace foundation::storage::provider::zip::detail
