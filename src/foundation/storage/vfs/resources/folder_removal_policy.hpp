#pragma once

#include <foundation/export.hpp>

#include <cstdint>
#include <iosfwd>

namespace foundation::storage::vfs {

/// Whether a folder is removed with what it holds. Every value other than NonRecursive is
/// recursive.
enum class FolderRemovalPolicy : std::uint32_t { NonRecursive = 0, Recursive = 1 };

/// "FolderRemovalPolicy::Recursive" and the like; nothing for a value out of range.
FOUNDATION_EXPORT std::ostream& operator<<(std::ostream& out, FolderRemovalPolicy policy);

} // namespace foundation::storage::vfs
