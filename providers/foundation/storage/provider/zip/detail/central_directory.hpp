#pragma once

#include <foundation/storage/provider/container/item_streams.hpp>
#include <foundation/storage/provider/zip/detail/archive_index.hpp>
#include <foundation/storage/provider/zip/zip_options.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

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

/// What is told of the whole archive.
struct DirectoryFacts {
    /// Where in the item the first member begins that any header tells of, and the directory where
    /// there is none: what stands before is not of the archive.
    std::uint64_t firstMember = 0;
    std::string comment;
};

/// Is called with each central header as it stands there, and where in the item its member begins.
using HeaderVisitor =
    std::function<void(std::span<unsigned char const> header, std::uint64_t member)>;

/// Reads the directory once more, for what an index does not keep. Throws as above.
DirectoryFacts visitCentralDirectory(container::ItemStreams& streams, ZipOptions const& options,
                                     HeaderVisitor const& visitor);

} // namespace foundation::storage::provider::zip::detail
