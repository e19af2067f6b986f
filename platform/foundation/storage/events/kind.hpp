#pragma once

#include <cstdint>

namespace foundation::storage::events {

/// What happened to a watched item.
enum class Kind : std::uint32_t {
    Created = 0,
    Modified = 1,          ///< its bytes
    AttributesChanged = 2, ///< times, permissions, extended attributes
    Removed = 3,
    Overflow = 4, ///< reports were lost; what is watched must be looked at again
};

/// What a change report is about.
enum class EntryType : std::uint32_t { File = 0, Folder = 1 };

} // namespace foundation::storage::events
