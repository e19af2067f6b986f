#include <foundation/storage/vfs/storage_system/storage_system.hpp>

namespace foundation::storage::vfs {

StorageSystem::~StorageSystem() = default;

boost::shared_ptr<EventMgr> StorageSystem::getEventMgr() const {
    return {};
}

} // namespace foundation::storage::vfs
