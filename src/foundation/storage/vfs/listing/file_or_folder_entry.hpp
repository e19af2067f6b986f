#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/vfs/fwd.hpp>
#include <foundation/storage/vfs/listing/file_entry.hpp>
#include <foundation/storage/vfs/listing/folder_entry.hpp>

#include <boost/variant/get.hpp>
#include <boost/variant/variant.hpp>

namespace foundation::storage::vfs {

/// The name as the listing gave it; no handle is made.
FOUNDATION_EXPORT ustring getName(FileOrFolderEntry const& entry);
/// Those of the handle, which is made if it was not yet. Throw what making it and the handle's own
/// operation do.
FOUNDATION_EXPORT AbsoluteIRI getLocation(FileOrFolderEntry const& entry);
FOUNDATION_EXPORT CanonicalAbsoluteIRI getCanonicalLocation(FileOrFolderEntry const& entry);

} // namespace foundation::storage::vfs
