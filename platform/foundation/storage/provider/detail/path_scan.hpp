#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace foundation::storage::provider::detail {

/// What one pass over the text of a path finds.
struct PathScan {
    std::size_t length = 0;      ///< of the path
    std::size_t lastSegment = 0; ///< where the last segment begins
    std::uint64_t hash = 0;
    /// Nothing in the path is encoded, and it has neither empty nor dot segments: it is its own
    /// decoded and resolved form, and the other members but `length` count.
    bool regular = false;
};

/// Where a path ends: with the text, or before a query or fragment.
enum class PathEnd : std::uint8_t { Text, Suffix };

/// REQUIRES: `text` starts with a slash.
PathScan scanPath(std::u16string_view text, PathEnd end) noexcept;

/// What one pass over a decoded name finds.
struct NameScan {
    bool plain = false; ///< it stands in a text as it is
    bool slash = false; ///< it is a path
};

NameScan scanName(std::u16string_view name) noexcept;

} // namespace foundation::storage::provider::detail
