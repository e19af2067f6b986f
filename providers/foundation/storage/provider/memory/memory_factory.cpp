#include <foundation/storage/provider/memory/memory_factory.hpp>

#include <foundation/storage/provider/memory/memory_provider.hpp>

namespace foundation::storage::provider::memory {

std::shared_ptr<IProvider> buildMemoryProvider(MemoryOptions const& options) {
    return std::make_shared<MemoryProvider>(options);
}

MemoryProviderFactory::MemoryProviderFactory(MemoryOptions const& options)
    : provider_(std::make_shared<MemoryProvider>(options)) {}

std::shared_ptr<IProvider> MemoryProviderFactory::buildProvider(StorageIRI const&) const {
    return provider_;
}

void MemoryProviderFactory::shutdownProvider() const {
    provider_->endPublishing();
}

} // namespace foundation::storage::provider::memory
