#pragma once

#include <foundation/storage/provider/i_folder_entry_iterator.hpp>
#include <foundation/storage/provider/local/detail/folder_chunk.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <memory>

namespace foundation::storage::provider::local {

/// Lists a folder with everything below it, depth first, a folder before its contents; names are
/// paths relative to the folder, with `/`. A pattern is matched against the last component, and
/// every folder is entered all the same. Opens the folder and reads its first entries at once, so
/// that a folder that cannot be listed fails here. Throws provider::Exception naming `location`.
///
/// Folders below that refuse access, or are gone, are passed over. Links are not entered; where
/// they are followed, one that leads to a folder above it is not.
///
/// A cursor has at most 16 folders open, those that it is in and still needs. A clone starts with
/// none, costs the same at every depth, and makes no system call. hasNext() may enter folders; what
/// fails there is thrown by the next advance(), once, and the listing goes on behind that folder. A
/// clone, and a walk deeper than that, may have to open the listed folder again; where it is gone,
/// moved or denied by now, that is thrown too, and ends the listing.
/// advance() at the end, and currentEntry() before the first advance(), throw std::logic_error.
std::unique_ptr<IFolderEntryIterator> listLocalTree(StorageIRI const& location,
                                                    detail::ListingQuery query);

} // namespace foundation::storage::provider::local
