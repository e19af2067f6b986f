#pragma once

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/copy_file_options.hpp>
#include <foundation/storage/provider/local/detail/kernel_path.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <memory>

namespace foundation::storage::provider::local {

/// Whether an item is protected from being replaced: the owner's write bit is missing. Links have
/// no such bit.
bool isReadOnly(struct stat const& item) noexcept;

/// Throws provider::Exception naming `location` where a file may not take the place of `existing`:
/// under a policy that does not replace ResourceAlreadyExists, for a folder InvalidLocation, for a
/// FIFO, socket or device UnsupportedOperation, for what is read-only PermissionDenied.
void checkReplaceable(struct stat const& existing, ReplacementPolicy policy,
                      StorageIRI const& location);

/// Where a file of this name is put: with `followLinks` the place that a link leads to.
detail::FolderSlot slotFor(StorageIRI const& location, bool followLinks,
                           detail::FolderSlot::Folder folder = detail::FolderSlot::Folder::Held);

/// See extensions::IReplacingStreams.
std::unique_ptr<ByteStream> openReplacementStream(StorageIRI const& location,
                                                  ReplacementPolicy policy, bool followLinks);

} // namespace foundation::storage::provider::local
