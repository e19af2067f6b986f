#pragma once

#include <foundation/storage/provider/copy_file_options.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

namespace foundation::storage::provider::local {

enum class MovedKind { File, Folder };

/// Moves an item by renaming it. Nothing is copied: between file systems, and to a location that is
/// not of the local disk, code UnsupportedOperation.
void moveLocalItem(StorageIRI const& source, StorageIRI const& destination,
                   ReplacementPolicy policy, MovedKind kind);

} // namespace foundation::storage::provider::local
