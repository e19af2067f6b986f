#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace foundation::storage::provider::container {

/// Whether a tree of folders can hold the name: it is not empty, `.` or `..`, has no NUL in it, and
/// is no longer than 65,535 bytes.
bool isMemberName(std::string_view name) noexcept;

/// Whether it is nothing but such names, at most so many.
bool isMemberPath(std::string_view path, std::uint32_t maximumDepth) noexcept;

/// A path without its segments `.`, with which some tools begin every name, and without the empty
/// ones behind its first: one that begins with a slash, or is empty, stays so. `buffer` may come to
/// hold it.
std::string_view withoutDots(std::string_view path, std::string& buffer);

} // namespace foundation::storage::provider::container
