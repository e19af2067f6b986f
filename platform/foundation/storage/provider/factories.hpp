#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/fwd.hpp>

#include <memory>

namespace foundation::storage::provider {

/// Makes providers for whole schemes. It decides itself whether it returns the same provider again.
class FOUNDATION_EXPORT PhysicalProviderFactory {
  public:
    virtual ~PhysicalProviderFactory();
    virtual std::shared_ptr<IProvider> buildProvider(StorageIRI const& location) const = 0;
    /// Ends whatever the factory started.
    virtual void shutdownProvider() const = 0;
};

/// Makes providers for the inside of items.
class FOUNDATION_EXPORT ContainerProviderFactory {
  public:
    virtual ~ContainerProviderFactory();
    virtual std::shared_ptr<IProvider> buildProvider(StorageItem const& item) const = 0;
    /// Ends whatever the factory started.
    virtual void shutdownProvider() const = 0;
};

} // namespace foundation::storage::provider
