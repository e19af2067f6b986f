#pragma once

#include <foundation/storage/provider/copy_file_options.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

namespace foundation::storage::provider::local {

/// Copies a file, or makes a link again, within the local disk: content with its holes, mode, and
/// times to the nanosecond. The destination's name holds the old content or the complete new one.
CopyStatus copyLocalFile(StorageIRI const& source, StorageIRI const& destination,
                         CopyFileOptions const& options, bool followLinks);

} // namespace foundation::storage::provider::local
