#include <foundation/storage/provider/local/local_factory.hpp>

#include <foundation/storage/provider/local/local_provider.hpp>

namespace foundation::storage::provider::local {

std::shared_ptr<IProvider> buildLocalProvider(LocalOptions const& options) {
    return std::make_shared<LocalProvider>(options);
}

LocalProviderFactory::LocalProviderFactory(LocalOptions const& options)
    : provider_(std::make_shared<LocalProvider>(options)) {}

std::shared_ptr<IProvider> LocalProviderFactory::buildProvider(StorageIRI const&) const {
    return provider_;
}

void LocalProviderFactory::shutdownProvider() const {
    provider_->endChangeEvents();
}

} // namespace foundation::storage::provider::local
