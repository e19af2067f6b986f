#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <string>
#include <string_view>

namespace foundation::storage::provider {

/// The path that the kernel takes for a location of the local disk: decoded, dot segments kept,
/// bytes that are not UTF-8 restored, without a trailing slash. Throws provider::Exception with
/// code InvalidLocation, naming the location, where there is none: another scheme or a nested
/// location, a host other than `localhost`, a query or a fragment, no path.
FOUNDATION_EXPORT std::string toLocalPath(StorageIRI const& location);

/// The location of the local disk for an absolute path. Throws MalformedIRIException for another.
FOUNDATION_EXPORT StorageIRI fromLocalPath(std::string_view absolutePath);

/// The canonical form of a location of the local disk, as realpath(3) gives it; of a missing last
/// segment the folder is resolved. Throws provider::Exception naming `location`: missing parent
/// ResourceNotFound, denied PermissionDenied, loop InvalidLocation.
FOUNDATION_EXPORT StorageIRI canonicalLocalLocation(StorageIRI const& location);

} // namespace foundation::storage::provider
