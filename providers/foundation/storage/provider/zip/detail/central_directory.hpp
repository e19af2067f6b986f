#pragma once

#include <foundation/storage/provider/container/item_streams.hpp>
#include <foundation/storage/provider/zip/detail/archive_index.hpp>
#include <foundation/storage/provider/zip/zip_options.hpp>

#include <memory>

namespace foundation::storage::provider::zip::detail {

/// Reads the central directory of an archive (APPNOTE 4.3.12 to 4.3.16), with two reads where it
/// is small, else one for each MiB of it. An empty item is an archive without members. What stands
/// before the archive, as in one that extracts itself, is passed over.
///
/// Throws provider::Exception naming the item: IOError for what is no archive, is cut short or
/// contradicts itself, UnsupportedOperation for one of several volumes or with an encrypted
/// directory, FileTooLarge beyond a bound, and what the item's provider throws.
std::shared_ptr<ArchiveIndex const> readCentralDirectory(container::ItemStreams& streams,
                                                         ZipOptions const& options);

} // namespace foundation::storage::provider::zip::detail
