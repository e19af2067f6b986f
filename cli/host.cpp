#include "host.hpp"

#include <foundation/storage/provider/standard/standard_storage_system.hpp>
#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>

#include <utility>

namespace cli {

using foundation::storage::vfs::StorageSystem;

Host::Host() : Host(foundation::storage::provider::standard::makeStandardStorageSystem()) {}

Host::Host(std::shared_ptr<StorageSystem> system)
    : system_(std::move(system)),
      reference_(std::weak_ptr<StorageSystem>(system_)) {}

} // namespace cli
