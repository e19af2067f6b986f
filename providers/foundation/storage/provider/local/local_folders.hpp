#pragma once

#include <foundation/storage/provider/extensions/i_folder_attributes.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

namespace foundation::storage::provider::local {

/// Makes a folder and every missing one above it. An existing folder, or a link to one, is fine;
/// anything else under the name gives ResourceAlreadyExists. A failure leaves what was made.
void createLocalFolders(StorageIRI const& location);

/// Removes an empty folder; with `followLinks` also a link to a folder, and then only the link.
void removeEmptyLocalFolder(StorageIRI const& location, bool followLinks);

/// Gives a folder mode and times, and never follows a link in its place: InvalidLocation for what
/// is no folder. Set-id bits stay as they are.
void setLocalFolderAttributes(StorageIRI const& location,
                              extensions::FolderAttributeChange const& change);

} // namespace foundation::storage::provider::local
