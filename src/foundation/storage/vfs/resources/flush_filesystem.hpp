#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/vfs/fwd.hpp>

namespace foundation::storage::vfs::extensions {

/// Writes the pending state of the storage at a location out; nothing, where its provider keeps
/// none back. Throws vfs::Exception.
FOUNDATION_EXPORT void flushFilesystem(AbsoluteIRI const& location,
                                       StorageSystemReference const& storageSystem);

} // namespace foundation::storage::vfs::extensions
