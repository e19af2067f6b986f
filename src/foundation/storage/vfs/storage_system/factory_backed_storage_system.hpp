#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/factories.hpp>
#include <foundation/storage/vfs/storage_system/storage_system.hpp>
#include <foundation/storage/vfs/storage_system/unsupported_iri_scheme_exception.hpp>

#include <boost/shared_ptr.hpp>

#include <memory>
#include <string>

namespace foundation::storage::vfs {

/// The storage system that asks factories for its providers, each time that it needs one, and keeps
/// none. When the event manager brings a ShutdownEvent it shuts every factory down: those of whole
/// schemes first, in the order of their schemes.
///
/// Schemes compare exactly, case included. Everything is safe on any number of threads; a factory
/// runs with its table locked, so a slow one holds up the others. From inside, while it builds or
/// shuts down, it may register and drop factories, itself too.
///
/// REQUIRES of factories: from inside, those of whole schemes leave container factories alone, as a
/// thread that builds inside an item locks the two tables in the opposite order; and none destroys
/// the system.
class FOUNDATION_EXPORT ProviderFactoryBackedStorageSystem : public StorageSystem {
  public:
    /// Without an event manager no shutdown reaches the factories.
    explicit ProviderFactoryBackedStorageSystem(boost::shared_ptr<EventMgr> const& eventMgr);
    ProviderFactoryBackedStorageSystem(ProviderFactoryBackedStorageSystem const&) = delete;
    ProviderFactoryBackedStorageSystem&
    operator=(ProviderFactoryBackedStorageSystem const&) = delete;
    ~ProviderFactoryBackedStorageSystem() override;

    /// A location inside an item needs a container factory for its scheme, any other a physical
    /// one. Throws UnsupportedIRISchemeException where there is none, and what a factory throws.
    std::shared_ptr<provider::IProvider>
    buildProvider(provider::StorageIRI const& location) const override;
    boost::shared_ptr<EventMgr> getEventMgr() const override;

    /// Each sets or replaces the factory of a scheme.
    void registerProviderFactory(
        std::string const& scheme,
        std::shared_ptr<provider::PhysicalProviderFactory> const& factory) const;
    void registerProviderFactory(
        std::string const& scheme,
        std::shared_ptr<provider::ContainerProviderFactory> const& factory) const;
    /// Drops the physical factory of the scheme; where there is none, the container factory. It is
    /// not shut down.
    void unregisterFactory(std::string const& scheme) const;

  private:
    class FactoryImpl;

    boost::shared_ptr<EventMgr> eventMgr_;
    boost::shared_ptr<FactoryImpl> impl_; // goes first: no shutdown runs on what is gone
};

} // namespace foundation::storage::vfs
