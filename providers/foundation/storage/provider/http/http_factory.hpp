#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/factories.hpp>
#include <foundation/storage/provider/http/http_options.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <map>
#include <memory>
#include <mutex>

namespace foundation::storage::provider::http {

/// The files of a server of the web, for the alias schemes `http` and `https`: those of the scheme
/// and authority of `location`. Nothing is sent yet. Safe on any thread.
///
/// Throws provider::Exception, code InvalidLocation, where the location names no server, and
/// std::invalid_argument for an option that would break a request apart (a line break in a field).
FOUNDATION_EXPORT std::shared_ptr<IProvider> buildHttpProvider(StorageIRI const& location,
                                                               HttpOptions const& options = {});

/// Gives one provider for each scheme and authority. Safe on any thread.
class FOUNDATION_EXPORT HttpProviderFactory final : public PhysicalProviderFactory {
  public:
    explicit HttpProviderFactory(HttpOptions options = {});
    std::shared_ptr<IProvider> buildProvider(StorageIRI const& location) const override;
    /// Forgets the providers; whoever has one goes on with it.
    void shutdownProvider() const override;

  private:
    HttpOptions const options_;
    mutable std::mutex mutex_;
    mutable std::map<StorageIRI, std::shared_ptr<IProvider>> providers_; ///< guarded by the mutex
};

} // namespace foundation::storage::provider::http
