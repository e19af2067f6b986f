#include <foundation/storage/vfs/storage_system/storage_system_reference.hpp>

#include <foundation/core/except/exception.hpp>
#include <foundation/storage/vfs/storage_system/detail/build_provider_translated.hpp>

#include <stdexcept>
#include <utility>

namespace foundation::storage::vfs {

StorageSystemReference::StorageSystemReference(std::weak_ptr<StorageSystem> system)
    : resolver_([system = std::move(system)] { return system.lock(); }) {}

StorageSystemReference::StorageSystemReference(Resolver resolver)
    : resolver_(std::move(resolver)) {}

StorageSystemReference::~StorageSystemReference() = default;

std::shared_ptr<StorageSystem> StorageSystemReference::resolve() const {
    std::shared_ptr<StorageSystem> system = resolver_();
    if (!system) {
        throw foundation::core::except::detail::AnonymousInternalException<std::runtime_error>(
            std::runtime_error("StorageSystem has been destroyed"));
    }
    return system;
}

std::shared_ptr<provider::IProvider>
StorageSystemReference::buildProvider(provider::StorageIRI const& location) const {
    return buildProviderTranslated(*resolve(), location);
}

boost::shared_ptr<EventMgr> StorageSystemReference::getEventMgr() const {
    return resolve()->getEventMgr();
}

bool StorageSystemReference::operator==(StorageSystemReference const& other) const {
    std::shared_ptr<StorageSystem> const theirs = other.resolver_();
    std::shared_ptr<StorageSystem> const ours = resolver_();
    return ours.get() == theirs.get();
}

} // namespace foundation::storage::vfs
