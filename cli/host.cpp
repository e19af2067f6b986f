#include "host.hpp"

#include <foundation/storage/provider/standard/standard_storage_system.hpp>
#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>

namespace cli {

Host::Host()
    : system_(foundation::storage::provider::standard::makeStandardStorageSystem()),
      reference_(std::weak_ptr<foundation::storage::vfs::StorageSystem>(system_)) {}

} // namespace cli
