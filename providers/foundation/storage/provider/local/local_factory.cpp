#include <foundation/storage/provider/local/local_factory.hpp>

#include <foundation/storage/provider/local/local_provider.hpp>

namespace foundation::storage::provider::local {

std::shared_ptr<IProvider> buildLocalProvider(LocalOptions const& options) {
    return std::make_shared<LocalProvider>(options);
}

LocalProviderFactory::LocalProviderFactory(LocalOptions const& options)
    : provider_(buildLocalProvider(options)) {}

std::shared_ptr<IProvider> LocalProviderFactory::buildProvider(StorageIRI const&) const {
    return provider_;
}

// The provider starts nothing that would have to end, and items in use keep it alive.
void LocalProviderFactory::shutdownProvider() const {}

} // namespace foundation::storage::provider::local
