#pragma once

#include <foundation/storage/provider/storage_iri.hpp>

#include <string>

namespace foundation::storage::provider::zip::detail {

/// The path in the archive, as its names are spelled there. Throws provider::Exception with code
/// InvalidLocation for what is in no archive, a name that none can hold among it.
std::string pathInArchive(StorageIRI const& location);

} // namespace foundation::storage::provider::zip::detail
