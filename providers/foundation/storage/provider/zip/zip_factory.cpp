#include <foundation/storage/provider/zip/zip_factory.hpp>

#include <foundation/storage/provider/zip/zip_provider.hpp>

namespace foundation::storage::provider::zip {

std::shared_ptr<IProvider> buildZipProvider(StorageItem const& item, ZipOptions const& options) {
    return std::make_shared<ZipProvider>(item, options);
}

std::shared_ptr<IProvider> ZipProviderFactory::buildProvider(StorageItem const& item) const {
    return buildZipProvider(item, options_);
}

void ZipProviderFactory::shutdownProvider() const {}

} // namespace foundation::storage::provider::zip
