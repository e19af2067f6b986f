#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/exists_result.hpp>
#include <foundation/storage/vfs/fwd.hpp>

namespace foundation::storage::vfs {

/// What is at a location, without making a handle. Nothing means that a working provider found
/// nothing; a provider that cannot be had is an exception, as are all other failures
/// (vfs::Exception, UnsupportedIRISchemeException).
FOUNDATION_EXPORT provider::ExistsResult exists(AbsoluteIRI const& iri,
                                                StorageSystemReference const& system);

/// The same in detail.
FOUNDATION_EXPORT provider::ExtendedExistsResult
existsExtended(AbsoluteIRI const& iri, StorageSystemReference const& system);

} // namespace foundation::storage::vfs
