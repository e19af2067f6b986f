#include <foundation/storage/vfs/storage_system/storage_system_decorator.hpp>

#include <utility>

namespace foundation::storage::vfs {

StorageSystemDecorator::StorageSystemDecorator(std::shared_ptr<StorageSystem> wrapped)
    : wrapped_(std::move(wrapped)) {}

StorageSystemDecorator::~StorageSystemDecorator() = default;

std::shared_ptr<provider::IProvider>
StorageSystemDecorator::buildProvider(provider::StorageIRI const& location) const {
    return wrapped_->buildProvider(location);
}

} // namespace foundation::storage::vfs
