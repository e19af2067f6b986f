#pragma once

#include <foundation/storage/provider/local/detail/kernel_path.hpp>

#include <cstddef>
#include <optional>
#include <sys/stat.h>

namespace foundation::storage::provider::local::detail {

/// How many levels an open folder lies below the folder `outer`, 0 where it is that. Nothing where
/// it is not there, or where the way up cannot be gone. Other views of `outer` count as well.
std::optional<std::size_t> levelsBelow(FileDescriptor folder, struct stat const& outer) noexcept;

/// Whether one of two folders lies in the other so that a copy of the tree `from` to `to`, with
/// links followed, would write into what it copies: `to` lies in `from`; or `to` is above `from`,
/// and there is a folder in `from` that the copy would take for `from` itself, like a/b/b where a/b
/// is copied to a.
bool wouldCopyIntoItself(KernelPath const& from, KernelPath const& to);

} // namespace foundation::storage::provider::local::detail
