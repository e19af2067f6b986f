#pragma once

#include <foundation/storage/events/kind.hpp>
#include <foundation/storage/provider/fwd.hpp>

#include <boost/property_tree/ptree_fwd.hpp>

#include <cstdint>
#include <functional>
#include <vector>

namespace foundation::storage::provider {

/// Whether watching a folder covers what lies deeper.
enum class RecursiveFileWatching : std::uint32_t { Recursive = 0, NonRecursive = 1 };

/// Receives change reports: what happened, the watched location, the item that changed, whether it
/// is a file, and data of the provider's own. Called on any thread of the provider, without a lock
/// held.
using ChangeCallback = std::function<void(
    foundation::storage::events::Kind const&, StorageIRI const&, StorageIRI const&,
    foundation::storage::events::EntryType const&, boost::property_tree::ptree)>;

using ChangeKinds = std::vector<foundation::storage::events::Kind>;

} // namespace foundation::storage::provider
