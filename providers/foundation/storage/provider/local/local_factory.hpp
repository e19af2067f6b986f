#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/factories.hpp>
#include <foundation/storage/provider/local/local_options.hpp>

#include <memory>

namespace foundation::storage::provider::local {

class LocalProvider;

/// A provider for the local disk, for the scheme `file`. It keeps no state between calls, change
/// events aside, and may be used from any number of threads; any number of them may exist side by
/// side.
FOUNDATION_EXPORT std::shared_ptr<IProvider> buildLocalProvider(LocalOptions const& options = {});

/// Gives one shared provider for every location. Safe on any thread.
class FOUNDATION_EXPORT LocalProviderFactory final : public PhysicalProviderFactory {
  public:
    explicit LocalProviderFactory(LocalOptions const& options = {});
    std::shared_ptr<IProvider> buildProvider(StorageIRI const& location) const override;
    /// Ends the change events of the provider; everything else goes on working.
    void shutdownProvider() const override;

  private:
    std::shared_ptr<LocalProvider> provider_;
};

} // namespace foundation::storage::provider::local
