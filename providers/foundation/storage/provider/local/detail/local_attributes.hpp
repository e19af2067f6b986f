#pragma once

#include <foundation/storage/provider/attributes.hpp>
#include <foundation/storage/provider/local/detail/kernel_path.hpp>

#include <fcntl.h>
#include <sys/stat.h>

namespace foundation::storage::provider::local::detail {

/// What statx(2) is asked for where attributes are wanted.
inline constexpr unsigned attributesMask =
    STATX_TYPE | STATX_MODE | STATX_SIZE | STATX_ATIME | STATX_MTIME | STATX_BTIME;

AttributeValues attributeValuesOf(struct statx const& item) noexcept;

/// statx(2) of an item, links followed; of one that leads nowhere its own. The error number, or 0.
int statxFollowed(KernelPath const& path, unsigned mask, struct statx& result) noexcept;

/// The keys `posix.mode`, `posix.uid`, `posix.gid`, `posix.inode`, `posix.device` and
/// `posix.links`, and the extended attributes of the namespace `user.`; links followed.
ExtendedAttributes readExtendedAttributes(KernelPath const& path, StorageIRI const& location);

} // namespace foundation::storage::provider::local::detail
