#pragma once

#include <foundation/storage/provider/storage_iri.hpp>

namespace foundation::storage::provider::local {

/// Makes a folder and every missing one above it. An existing folder, or a link to one, is fine;
/// anything else under the name gives ResourceAlreadyExists. A failure leaves what was made.
void createLocalFolders(StorageIRI const& location);

/// Removes an empty folder; with `followLinks` also a link to a folder, and then only the link.
void removeEmptyLocalFolder(StorageIRI const& location, bool followLinks);

} // namespace foundation::storage::provider::local
