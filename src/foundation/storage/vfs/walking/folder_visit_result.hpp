#pragma once

#include <foundation/export.hpp>

#include <cstdint>
#include <iosfwd>

namespace foundation::storage::vfs {

/// What a visitor answers: go on, pass over the folder, or end the walk.
enum class FolderVisitResult : std::uint32_t { Continue = 0, Skip = 1, Stop = 2 };

/// "FolderVisitResult::Continue" and the like; "Unhandled FolderVisitResult" for a value out of
/// range.
FOUNDATION_EXPORT std::ostream& operator<<(std::ostream& out, FolderVisitResult const& result);

} // namespace foundation::storage::vfs
