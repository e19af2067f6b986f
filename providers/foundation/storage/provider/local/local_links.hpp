#pragma once

#include <foundation/storage/provider/local/detail/kernel_path.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <string>

namespace foundation::storage::provider::local {

/// The target of a link as its bytes. Throws provider::Exception naming `location`, with code
/// InvalidLocation where the item is no link.
std::string linkTarget(detail::KernelPath const& path, StorageIRI const& location);

/// See extensions::ILinks.
ustring readLocalLink(StorageIRI const& location);
void createLocalLink(StorageIRI const& location, ustring const& target);

} // namespace foundation::storage::provider::local
