#include <foundation/storage/provider/tar/tar_factory.hpp>

#include <foundation/storage/provider/tar/tar_provider.hpp>

namespace foundation::storage::provider::tar {

std::shared_ptr<IProvider> buildTarProvider(StorageItem const& item, TarOptions const& options) {
    return std::make_shared<TarProvider>(item, options);
}

std::shared_ptr<IProvider> TarProviderFactory::buildProvider(StorageItem const& item) const {
    return buildTarProvider(item, options_);
}

void TarProviderFactory::shutdownProvider() const {}

} // namespace foundation::storage::provider::tar
