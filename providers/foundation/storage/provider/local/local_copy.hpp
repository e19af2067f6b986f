#pragma once

#include <foundation/storage/provider/copy_file_options.hpp>
#include <foundation/storage/provider/extensions/i_small_file_copies.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

namespace foundation::storage::provider::local {

/// Copies a file, or makes a link again, within the local disk: content with its holes, mode, and
/// times to the nanosecond. The destination's name holds the old content or the complete new one.
CopyStatus copyLocalFile(StorageIRI const& source, StorageIRI const& destination,
                         CopyFileOptions const& options, bool followLinks);

/// Copies files from one folder into another as extensions::ISmallFileCopies has it; links are
/// left. Each folder is opened once, so that a file costs no way to it.
void copySmallLocalFiles(StorageIRI const& from, StorageIRI const& to,
                         std::span<extensions::SmallFileCopy> files);

} // namespace foundation::storage::provider::local
