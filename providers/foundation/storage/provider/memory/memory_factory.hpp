#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/factories.hpp>
#include <foundation/storage/provider/memory/memory_options.hpp>

#include <memory>

namespace foundation::storage::provider::memory {

class MemoryProvider;

/// A new, empty store, for the scheme `mem`. Every call makes another one: a host that wants its
/// files to stay keeps the provider. Safe on any thread.
FOUNDATION_EXPORT std::shared_ptr<IProvider> buildMemoryProvider(MemoryOptions const& options = {});

/// Gives one store, made with the factory, for every location. Safe on any thread.
class FOUNDATION_EXPORT MemoryProviderFactory final : public PhysicalProviderFactory {
  public:
    explicit MemoryProviderFactory(MemoryOptions const& options = {});
    std::shared_ptr<IProvider> buildProvider(StorageIRI const& location) const override;
    /// Drops what was published of the store's changes, and refuses to publish more. Everything
    /// else goes on: the store goes with the factory and the last item that uses it.
    void shutdownProvider() const override;

  private:
    std::shared_ptr<MemoryProvider> const provider_;
};

} // namespace foundation::storage::provider::memory
