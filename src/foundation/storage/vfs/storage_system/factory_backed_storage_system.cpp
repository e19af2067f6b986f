#include <foundation/storage/vfs/storage_system/factory_backed_storage_system.hpp>

#include <fl/i18n/conversion.hpp>
#include <foundation/core/except/exception.hpp>
#include <foundation/msg_svc/eventmgr/event_mgr.hpp>
#include <foundation/msg_svc/eventmgr/shutdown_event.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <boost/make_shared.hpp>

#include <map>
#include <mutex>

namespace foundation::storage::vfs {

using foundation::msg_svc::eventmgr::ScopedConnection;
using foundation::msg_svc::eventmgr::ShutdownEvent;
using provider::ContainerProviderFactory;
using provider::IProvider;
using provider::PhysicalProviderFactory;
using provider::StorageIRI;
using provider::StorageItem;

namespace {

using Lock = std::lock_guard<std::recursive_mutex>;

template<class Factory>
using Factories = std::map<ustring, std::shared_ptr<Factory>>;

/// A factory may change the table, itself in it too: what has gone when its turn comes is left out,
/// and what has come is not.
template<class Factory>
void shutDownAll(Factories<Factory> const& factories) {
    for (auto at = factories.begin(); at != factories.end();) {
        auto const [scheme, factory] = *at;
        factory->shutdownProvider();
        at = factories.upper_bound(scheme);
    }
}

} // namespace

/// Where both mutexes are held, that of the containers came first. They are recursive, since
/// building for a nested location comes back here, and factories may register.
class ProviderFactoryBackedStorageSystem::FactoryImpl {
  public:
    explicit FactoryImpl(boost::shared_ptr<EventMgr> const& eventMgr);

    std::shared_ptr<IProvider> doBuildProvider(StorageIRI const& location);
    void add(std::string const& scheme, std::shared_ptr<PhysicalProviderFactory> const& factory);
    void add(std::string const& scheme, std::shared_ptr<ContainerProviderFactory> const& factory);
    void remove(std::string const& scheme);

  private:
    void shutdown() const;

    Factories<PhysicalProviderFactory> physical_;
    Factories<ContainerProviderFactory> containers_;
    mutable std::recursive_mutex physicalMutex_;
    mutable std::recursive_mutex containerMutex_;
    ScopedConnection shutdownConnection_; // ends before the tables that its handler reads
};

ProviderFactoryBackedStorageSystem::FactoryImpl::FactoryImpl(
    boost::shared_ptr<EventMgr> const& eventMgr) {
    if (eventMgr) {
        shutdownConnection_.assign(
            eventMgr->subscribe<ShutdownEvent>([this](ShutdownEvent const&) { shutdown(); }));
    }
}

std::shared_ptr<IProvider>
ProviderFactoryBackedStorageSystem::FactoryImpl::doBuildProvider(StorageIRI const& location) {
    ustring const scheme = location.getScheme();
    bool const nested = location.hasInnerIRI();
    if (!nested) {
        Lock const lock(physicalMutex_);
        if (auto const found = physical_.find(scheme); found != physical_.end()) {
            // The factory may drop itself from the table.
            auto const factory = found->second;
            return factory->buildProvider(location);
        }
    } else {
        Lock const lock(containerMutex_);
        if (auto const found = containers_.find(scheme); found != containers_.end()) {
            auto const factory = found->second;
            StorageIRI const inner = location.getInnerIRI();
            return factory->buildProvider(StorageItem(doBuildProvider(inner), inner));
        }
    }
    throw foundation::core::except::detail::AnonymousInternalException<
        UnsupportedIRISchemeException>(UnsupportedIRISchemeException(scheme));
}

void ProviderFactoryBackedStorageSystem::FactoryImpl::add(
    std::string const& scheme, std::shared_ptr<PhysicalProviderFactory> const& factory) {
    Lock const lock(physicalMutex_);
    physical_.insert_or_assign(fl::i18n::to_ustring(scheme), factory);
}

void ProviderFactoryBackedStorageSystem::FactoryImpl::add(
    std::string const& scheme, std::shared_ptr<ContainerProviderFactory> const& factory) {
    Lock const lock(containerMutex_);
    containers_.insert_or_assign(fl::i18n::to_ustring(scheme), factory);
}

void ProviderFactoryBackedStorageSystem::FactoryImpl::remove(std::string const& scheme) {
    ustring const key = fl::i18n::to_ustring(scheme);
    {
        Lock const lock(physicalMutex_);
        if (physical_.erase(key) > 0) {
            return;
        }
    }
    Lock const lock(containerMutex_);
    containers_.erase(key);
}

void ProviderFactoryBackedStorageSystem::FactoryImpl::shutdown() const {
    {
        Lock const lock(physicalMutex_);
        shutDownAll(physical_);
    }
    Lock const lock(containerMutex_);
    shutDownAll(containers_);
}

ProviderFactoryBackedStorageSystem::ProviderFactoryBackedStorageSystem(
    boost::shared_ptr<EventMgr> const& eventMgr)
    : eventMgr_(eventMgr),
      impl_(boost::make_shared<FactoryImpl>(eventMgr)) {}

ProviderFactoryBackedStorageSystem::~ProviderFactoryBackedStorageSystem() = default;

std::shared_ptr<IProvider>
ProviderFactoryBackedStorageSystem::buildProvider(StorageIRI const& location) const {
    return impl_->doBuildProvider(location);
}

boost::shared_ptr<EventMgr> ProviderFactoryBackedStorageSystem::getEventMgr() const {
    return eventMgr_;
}

void ProviderFactoryBackedStorageSystem::registerProviderFactory(
    std::string const& scheme, std::shared_ptr<PhysicalProviderFactory> const& factory) const {
    impl_->add(scheme, factory);
}

void ProviderFactoryBackedStorageSystem::registerProviderFactory(
    std::string const& scheme, std::shared_ptr<ContainerProviderFactory> const& factory) const {
    impl_->add(scheme, factory);
}

void ProviderFactoryBackedStorageSystem::unregisterFactory(std::string const& scheme) const {
    impl_->remove(scheme);
}

} // namespace foundation::storage::vfs
