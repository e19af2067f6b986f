#pragma once

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/storage_iri.hpp>
#include <foundation/storage/provider/tar/detail/archive_source.hpp>
#include <foundation/storage/provider/tar/detail/member_readers.hpp>
#include <foundation/storage/provider/tar/detail/tar_index.hpp>

#include <memory>

namespace foundation::storage::provider::tar {

/// Opens a file for reading, through bytes of the archive of its own. Content in one piece is read
/// where it lies, any other by the format's reader: there, seeking forward reads what is between,
/// seeking back begins the member again, over the same bytes.
///
/// Throws provider::Exception naming `location`: UnsupportedOperation for what is encrypted or no
/// file, FileTooLarge for what has more holes than is allowed, IOError for a hard link that leads
/// to nothing and a member that is not where it was, ResourceInUse for an item that has changed
/// since its headers were read.
std::unique_ptr<ByteStream> openMember(detail::ArchiveSource& source,
                                       std::shared_ptr<detail::MemberReaders> const& readers,
                                       detail::Member const& member, StorageIRI const& location);

} // namespace foundation::storage::provider::tar
