#pragma once

#include <foundation/storage/provider/container/listing_cursor.hpp>
#include <foundation/storage/provider/zip/detail/archive_index.hpp>

namespace foundation::storage::provider::zip {

using ZipSelection = container::Selection;
/// Over an archive that is read; one that is changed has a cursor of its own.
using ZipCursor = container::ListingCursor<detail::ArchiveIndex>;

} // namespace foundation::storage::provider::zip
