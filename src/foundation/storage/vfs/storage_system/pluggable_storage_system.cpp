#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>

#include <foundation/storage/vfs/storage_system/detail/future_cache_impl.hpp>

#include <utility>

namespace foundation::storage::vfs {

PluggableStorageSystem::PluggableStorageSystem(boost::shared_ptr<EventMgr> const& eventMgr)
    : eventMgr_(eventMgr),
      cache_(std::make_shared<FutureCacheImpl>()) {}

PluggableStorageSystem::~PluggableStorageSystem() = default;

std::shared_ptr<provider::IProvider>
PluggableStorageSystem::buildProvider(provider::StorageIRI const& location) const {
    return cache_->doBuildProvider(location);
}

boost::shared_ptr<EventMgr> PluggableStorageSystem::getEventMgr() const {
    return eventMgr_;
}

void PluggableStorageSystem::registerPhysicalProvider(std::string const& scheme,
                                                      PhysicalBuilder builder) const {
    cache_->registerPhysicalProvider(scheme, std::move(builder));
}

void PluggableStorageSystem::registerContainerProvider(std::string const& scheme,
                                                       ContainerBuilder builder) const {
    cache_->registerContainerProvider(scheme, std::move(builder));
}

void PluggableStorageSystem::registerAliasProvider(std::string const& scheme,
                                                   AliasBuilder builder) const {
    cache_->registerAliasProvider(scheme, std::move(builder));
}

void PluggableStorageSystem::unregisterProvider(std::string const& scheme) const {
    cache_->unregisterProvider(scheme);
}

} // namespace foundation::storage::vfs
