#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/factories.hpp>
#include <foundation/storage/provider/local/local_options.hpp>

#include <memory>

namespace foundation::storage::provider::local {

/// A provider for the local disk, for the scheme `file`. It keeps no state between calls and may be
/// used from any number of threads; any number of them may exist side by side.
FOUNDATION_EXPORT std::shared_ptr<IProvider> buildLocalProvider(LocalOptions const& options = {});

/// Gives one shared provider for every location. Safe on any thread.
class FOUNDATION_EXPORT LocalProviderFactory final : public PhysicalProviderFactory {
  public:
    explicit LocalProviderFactory(LocalOptions const& options = {});
    std::shared_ptr<IProvider> buildProvider(StorageIRI const& location) const override;
    void shutdownProvider() const override;

  private:
    std::shared_ptr<IProvider> provider_;
};

} // namespace foundation::storage::provider::local
