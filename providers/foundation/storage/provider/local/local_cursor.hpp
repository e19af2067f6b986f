#pragma once

#include <foundation/storage/provider/i_folder_entry_iterator.hpp>
#include <foundation/storage/provider/local/detail/folder_chunk.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <memory>

namespace foundation::storage::provider::local {

/// Lists one folder; a link to it is followed. Opens it and reads its first entries at once, so
/// that a folder that cannot be listed fails here. Throws provider::Exception naming `location`.
///
/// A cursor holds one run of entries, and at most one descriptor that it shares with its clones: a
/// folder that was read to its end, as a small one is at once, has none. A clone makes no system
/// call. hasNext() reads ahead; what fails there is thrown by the next advance(), once, and ends
/// the listing. advance() at the end, and currentEntry() before the first advance(), throw
/// std::logic_error.
std::unique_ptr<IFolderEntryIterator> listLocalFolder(StorageIRI const& location,
                                                      detail::ListingQuery query);

} // namespace foundation::storage::provider::local
