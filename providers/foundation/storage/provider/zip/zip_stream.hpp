#pragma once

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/container/item_streams.hpp>
#include <foundation/storage/provider/zip/detail/member.hpp>
#include <foundation/storage/provider/zip/zip_options.hpp>

#include <memory>

namespace foundation::storage::provider::zip {

/// Opens a member for reading, through a stream of its own on the archive's item. The check sum is
/// compared where reading comes to the end of the member without having left anything out.
///
/// A stored member is read where it lies. A deflated one of moderate size is decoded at the first
/// read; a larger one, and those of other methods, as reading goes on: seeking forward decodes what
/// is between, seeking back begins again, for deflated members at the last of some marks.
///
/// Throws provider::Exception naming `location`: UnsupportedOperation for an encrypted member and
/// for an unknown method, FileTooLarge beyond a bound, IOError where the header before the content
/// is not the one that the directory tells of.
std::unique_ptr<ByteStream> openMember(container::ItemStreams& streams,
                                       detail::Member const& member, StorageIRI const& location,
                                       ZipOptions const& options);

} // namespace foundation::storage::provider::zip
