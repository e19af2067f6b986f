#pragma once

#include <foundation/storage/provider/storage_iri.hpp>

namespace foundation::storage::provider::local {

/// Removes a folder with everything in it; links are removed and not followed. A failure leaves
/// what was not removed before, and is thrown as provider::Exception naming the item that it is
/// about. With `followLinks` a link to a folder is removed too, and then only the link.
void removeLocalTree(StorageIRI const& location, bool followLinks);

} // namespace foundation::storage::provider::local
