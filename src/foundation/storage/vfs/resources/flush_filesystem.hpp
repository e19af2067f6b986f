#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/vfs/fwd.hpp>

namespace foundation::storage::vfs::extensions {

/// Writes the pending state of the storage at a location out; nothing, where its provider keeps
/// none back. Throws vfs::Exception; what asking the system for the provider throws
/// (UnsupportedIRISchemeException, std::runtime_error where the system is gone); and, as it is,
/// what a provider throws that is no provider::Exception, as a provider::ByteStreamFailure.
FOUNDATION_EXPORT void flushFilesystem(AbsoluteIRI const& location,
                                       StorageSystemReference const& storageSystem);

} // namespace foundation::storage::vfs::extensions
