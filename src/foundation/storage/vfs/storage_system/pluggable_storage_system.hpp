#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/vfs/storage_system/storage_system.hpp>
#include <foundation/storage/vfs/storage_system/unsupported_iri_scheme_exception.hpp>

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>

#include <memory>
#include <string>

namespace foundation::storage::vfs {

/// The storage system that a host fills by hand, with builders of providers by scheme. A provider
/// is built on the first request that needs it, once however many threads ask, and kept until its
/// scheme is unregistered or the system dies. A failed build is not kept.
///
/// Schemes compare exactly, case included. Register before the system is shared: registration takes
/// no lock and must not run beside buildProvider. All state is behind a pointer, so registration is
/// const on handles shared as const.
class FOUNDATION_EXPORT PluggableStorageSystem : public StorageSystem {
  public:
    /// Builds the one provider of a whole scheme.
    using PhysicalBuilder = boost::function<std::shared_ptr<provider::IProvider>()>;
    /// Builds the provider for the inside of an item; one for each item.
    using ContainerBuilder =
        boost::function<std::shared_ptr<provider::IProvider>(provider::StorageItem const&)>;
    /// Builds the provider of one authority of a scheme, given the first location that needs it.
    using AliasBuilder =
        boost::function<std::shared_ptr<provider::IProvider>(provider::StorageIRI const&)>;

    /// The event manager may be null; it is only carried, for those who use change events.
    explicit PluggableStorageSystem(boost::shared_ptr<EventMgr> const& eventMgr);
    PluggableStorageSystem(PluggableStorageSystem const&) = delete;
    PluggableStorageSystem& operator=(PluggableStorageSystem const&) = delete;
    ~PluggableStorageSystem() override;

    /// Throws UnsupportedIRISchemeException where no table serves the location, and whatever a
    /// builder throws, provider exceptions untranslated. Every thread that waited for one build is
    /// thrown the same exception object, so asking it for boost::diagnostic_information needs a
    /// copy. A null pointer from a builder is given out as it is, and is no provider that a handle
    /// can use.
    std::shared_ptr<provider::IProvider>
    buildProvider(provider::StorageIRI const& location) const override;
    boost::shared_ptr<EventMgr> getEventMgr() const override;

    /// Each sets or replaces the builder of a scheme; providers already built stay.
    void registerPhysicalProvider(std::string const& scheme, PhysicalBuilder builder) const;
    void registerContainerProvider(std::string const& scheme, ContainerBuilder builder) const;
    void registerAliasProvider(std::string const& scheme, AliasBuilder builder) const;
    /// Drops the scheme from the first of the tables physical, container and alias that holds it,
    /// and lets go of every provider built under the scheme. Handles that hold one keep it.
    void unregisterProvider(std::string const& scheme) const;

    class FOUNDATION_HIDDEN FutureCacheImpl; // the library's own

  private:
    boost::shared_ptr<EventMgr> eventMgr_;
    std::shared_ptr<FutureCacheImpl> cache_;
};

} // namespace foundation::storage::vfs
