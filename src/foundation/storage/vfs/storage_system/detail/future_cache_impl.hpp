#pragma once

#include <fl/i18n/ustring.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/storage_iri.hpp>
#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>

#include <cstddef>
#include <exception>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace foundation::storage::vfs {

/// The tables and the cache of a PluggableStorageSystem: one provider for one key, however many
/// threads ask. A future is published under the lock, and the provider built outside of it; whoever
/// finds the future waits for it, holding nothing.
///
/// The tables are read without the lock. Only the cache is guarded by it, and it is never held
/// during a build or a wait, so nesting cannot deadlock.
class FOUNDATION_HIDDEN PluggableStorageSystem::FutureCacheImpl {
  public:
    using IProvider = provider::IProvider;
    using StorageIRI = provider::StorageIRI;
    using ProviderPromise = std::promise<std::shared_ptr<IProvider>>;

    class FOUNDATION_HIDDEN UniqueFutureProvider;

    FutureCacheImpl() = default;
    FutureCacheImpl(FutureCacheImpl const&) = delete;
    FutureCacheImpl& operator=(FutureCacheImpl const&) = delete;
    ~FutureCacheImpl();

    std::shared_ptr<IProvider> doBuildProvider(StorageIRI const& iri) const;
    /// The entry of a location's inner item; its build is finished if this thread did it, and a
    /// thread that joins another's build does not wait here.
    std::shared_ptr<UniqueFutureProvider> doBuildContainerProvider(StorageIRI const& iri) const;

    void registerPhysicalProvider(std::string const& scheme, PhysicalBuilder builder);
    void registerContainerProvider(std::string const& scheme, ContainerBuilder builder);
    void registerAliasProvider(std::string const& scheme, AliasBuilder builder);
    void unregisterProvider(std::string const& scheme);

    /// The cache keys: how widely one provider is shared.
    StorageIRI cacheKeyForPhysical(StorageIRI const& iri) const;
    StorageIRI cacheKeyForContainer(StorageIRI const& iri) const;
    StorageIRI cacheKeyForAlias(StorageIRI const& iri) const;
    /// The key of a whole scheme. Throws std::out_of_range for a scheme that is not UTF-16.
    static StorageIRI cacheKeyForScheme(ustring const& scheme);

    std::size_t cachedProviders() const;

  private:
    using CacheKey = StorageIRI (FutureCacheImpl::*)(StorageIRI const&) const;
    struct Claim;

    /// The entry for the key, which is asked for under the mutex, and whether the caller is the one
    /// to build it.
    template<class Key>
    Claim claim(Key key, ProviderPromise& promise) const;
    template<class Key, class Build>
    std::shared_ptr<UniqueFutureProvider> claimAndBuild(Key key, Build build) const;
    std::shared_ptr<IProvider> awaitProvider(UniqueFutureProvider& entry, StorageIRI const& iri,
                                             CacheKey key) const;
    /// REQUIRES: the mutex is held.
    std::shared_ptr<UniqueFutureProvider> setAndGetFutureProvider(StorageIRI const& key,
                                                                  ProviderPromise& promise) const;
    void removeProviderFromCache(StorageIRI const& key) const;

    std::map<ustring, PhysicalBuilder> physical_;
    std::map<ustring, ContainerBuilder> container_;
    std::map<ustring, AliasBuilder> alias_;
    mutable std::map<StorageIRI, std::shared_ptr<UniqueFutureProvider>> cache_;
    // Recursive, because dropping an entry may destroy a provider, whose destructor may come back.
    mutable std::recursive_mutex mutex_;
    /// The keys of the physical schemes, made once: of all keys they are asked for most. Written
    /// where the physical table is, and kept when a scheme goes, since its key stays what it is.
    std::map<ustring, StorageIRI, std::less<>> physicalKeys_;
};

/// One cache entry: a build on its way, or its outcome. Once fulfillOnce() has returned, either the
/// error is set or the provider is what the builder returned, and neither changes again.
class FOUNDATION_HIDDEN PluggableStorageSystem::FutureCacheImpl::UniqueFutureProvider {
  public:
    explicit UniqueFutureProvider(std::shared_future<std::shared_ptr<IProvider>> future);

    /// Waits for the build and records its outcome; never throws the build's failure.
    void fulfillOnce();
    std::exception_ptr const& error() const { return error_; }
    std::shared_ptr<IProvider> const& provider() const { return provider_; }

  private:
    std::exception_ptr error_;
    std::shared_ptr<IProvider> provider_;
    std::shared_future<std::shared_ptr<IProvider>> future_;
    std::once_flag once_;
};

} // namespace foundation::storage::vfs
