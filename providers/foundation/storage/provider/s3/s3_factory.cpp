#include <foundation/storage/provider/s3/s3_factory.hpp>

#include <foundation/storage/provider/s3/s3_provider.hpp>

#include <utility>

namespace foundation::storage::provider::s3 {

std::shared_ptr<IProvider> buildS3Provider(StorageIRI const& location, S3Options const& options) {
    return std::make_shared<S3Provider>(location, options);
}

S3ProviderFactory::S3ProviderFactory(S3Options options) : options_(std::move(options)) {}

std::shared_ptr<IProvider> S3ProviderFactory::buildProvider(StorageIRI const& location) const {
    std::lock_guard const lock(mutex_);
    ustring const authority(location.getAuthorityView());
    if (auto const found = providers_.find(authority); found != providers_.end()) {
        return found->second;
    }
    return providers_.emplace(authority, buildS3Provider(location, options_)).first->second;
}

void S3ProviderFactory::shutdownProvider() const {
    std::lock_guard const lock(mutex_);
    providers_.clear();
}

} // namespace foundation::storage::provider::s3
