#include <foundation/storage/provider/http/http_factory.hpp>

#include <foundation/network/iri.hpp>
#include <foundation/storage/provider/http/http_provider.hpp>

#include <utility>

namespace foundation::storage::provider::http {

std::shared_ptr<IProvider> buildHttpProvider(StorageIRI const& location,
                                             HttpOptions const& options) {
    return std::make_shared<HttpProvider>(location, options);
}

HttpProviderFactory::HttpProviderFactory(HttpOptions options) : options_(std::move(options)) {}

std::shared_ptr<IProvider> HttpProviderFactory::buildProvider(StorageIRI const& location) const {
    network::IRIArgs args(location.toIRI());
    args.path = L"/";
    args.hasPath = true;
    args.query.clear();
    args.fragment.clear();
    args.hasQuery = args.hasFragment = false;
    StorageIRI const root{network::IRI(std::move(args))};
    std::lock_guard const lock(mutex_);
    std::shared_ptr<IProvider>& provider = providers_[root];
    if (!provider) {
        provider = buildHttpProvider(root, options_);
    }
    return provider;
}

void HttpProviderFactory::shutdownProvider() const {
    std::lock_guard const lock(mutex_);
    providers_.clear();
}

} // namespace foundation::storage::provider::http
