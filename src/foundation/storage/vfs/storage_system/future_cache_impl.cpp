#include <foundation/storage/vfs/storage_system/detail/future_cache_impl.hpp>

#include <fl/i18n/conversion.hpp>
#include <foundation/core/except/exception.hpp>
#include <foundation/network/iri.hpp>
#include <foundation/storage/provider/malformed_iri_exception.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <boost/regex/pending/unicode_iterator.hpp>

#include <utility>
#include <vector>

namespace foundation::storage::vfs {

namespace {

std::wstring decode(ustring const& text) {
    using Decoder = boost::u16_to_u32_iterator<ustring::const_iterator>;
    Decoder const end(text.end(), text.begin(), text.end());
    std::wstring decoded;
    for (Decoder unit(text.begin(), text.begin(), text.end()); unit != end; ++unit) {
        decoded.push_back(static_cast<wchar_t>(*unit));
    }
    return decoded;
}

template<class Table>
typename Table::mapped_type builderOf(Table const& table, ustring const& scheme) {
    auto const found = table.find(scheme);
    if (found == table.end()) {
        throw foundation::core::except::detail::AnonymousInternalException<
            UnsupportedIRISchemeException>(UnsupportedIRISchemeException(scheme));
    }
    return found->second;
}

} // namespace

using FutureCacheImpl = PluggableStorageSystem::FutureCacheImpl;

struct FutureCacheImpl::Claim {
    std::shared_ptr<UniqueFutureProvider> entry;
    bool builds;
};

FutureCacheImpl::UniqueFutureProvider::UniqueFutureProvider(
    std::shared_future<std::shared_ptr<IProvider>> future)
    : future_(std::move(future)) {}

void FutureCacheImpl::UniqueFutureProvider::fulfillOnce() {
    std::call_once(once_, [this] {
        try {
            provider_ = future_.get();
        } catch (...) {
            error_ = std::current_exception();
        }
    });
}

FutureCacheImpl::~FutureCacheImpl() {
    // A dying provider may come back into this cache, which by then is empty and not half
    // destroyed.
    auto const dying = std::move(cache_);
    cache_.clear();
}

std::shared_ptr<provider::IProvider> FutureCacheImpl::doBuildProvider(StorageIRI const& iri) const {
    ustring const scheme = iri.getScheme();
    if (iri.hasInnerIRI()) {
        std::shared_ptr<UniqueFutureProvider> const entry = doBuildContainerProvider(iri);
        return awaitProvider(*entry, iri, &FutureCacheImpl::cacheKeyForContainer);
    }
    // A builder is looked up again and copied when its turn comes, so that it survives being
    // unregistered during the call.
    if (physical_.find(scheme) != physical_.end()) {
        // Every scheme that a location can have got its key when it was registered.
        auto const key = [&]() -> StorageIRI const& { return physicalKeys_.find(scheme)->second; };
        auto const entry =
            claimAndBuild(key, [&] { return builderOf(physical_, iri.getScheme())(); });
        return awaitProvider(*entry, iri, &FutureCacheImpl::cacheKeyForPhysical);
    }
    auto const entry = claimAndBuild([&] { return cacheKeyForAlias(iri); },
                                     [&] { return builderOf(alias_, iri.getScheme())(iri); });
    return awaitProvider(*entry, iri, &FutureCacheImpl::cacheKeyForAlias);
}

std::shared_ptr<FutureCacheImpl::UniqueFutureProvider>
FutureCacheImpl::doBuildContainerProvider(StorageIRI const& iri) const {
    auto const key = [&] { return cacheKeyForContainer(iri); };
    return claimAndBuild(key, [&] {
        // The outer scheme is tested before any work on the inner location.
        ContainerBuilder const builder = builderOf(container_, iri.getScheme());
        StorageIRI const inner = iri.getInnerIRI();
        return builder(provider::StorageItem(doBuildProvider(inner), inner));
    });
}

template<class Key, class Build>
std::shared_ptr<FutureCacheImpl::UniqueFutureProvider>
FutureCacheImpl::claimAndBuild(Key key, Build build) const {
    ProviderPromise promise;
    Claim claimed = claim(key, promise);
    if (claimed.builds) {
        try {
            promise.set_value(build());
        } catch (...) {
            promise.set_exception(std::current_exception());
        }
    }
    return std::move(claimed.entry);
}

template<class Key>
FutureCacheImpl::Claim FutureCacheImpl::claim(Key key, ProviderPromise& promise) const {
    std::lock_guard const lock(mutex_);
    StorageIRI const& cacheKey = key();
    auto const found = cache_.find(cacheKey);
    if (found != cache_.end() && found->second) {
        return {found->second, false};
    }
    return {setAndGetFutureProvider(cacheKey, promise), true};
}

std::shared_ptr<FutureCacheImpl::UniqueFutureProvider>
FutureCacheImpl::setAndGetFutureProvider(StorageIRI const& key, ProviderPromise& promise) const {
    auto entry = std::make_shared<UniqueFutureProvider>(promise.get_future().share());
    cache_.insert({key, entry});
    return entry;
}

std::shared_ptr<provider::IProvider> FutureCacheImpl::awaitProvider(UniqueFutureProvider& entry,
                                                                    StorageIRI const& iri,
                                                                    CacheKey key) const {
    try {
        entry.fulfillOnce();
        if (entry.error()) {
            std::rethrow_exception(entry.error());
        }
    } catch (...) {
        // Every failing thread removes the key, perhaps one that a later attempt has claimed since;
        // that attempt's callers hold its entry and lose nothing but the caching.
        removeProviderFromCache((this->*key)(iri));
        throw;
    }
    return entry.provider();
}

void FutureCacheImpl::removeProviderFromCache(StorageIRI const& key) const {
    std::lock_guard const lock(mutex_);
    // Out of the map first: the provider that dies with its entry may come back into this cache.
    auto const removed = cache_.extract(key);
}

provider::StorageIRI FutureCacheImpl::cacheKeyForScheme(ustring const& scheme) {
    foundation::network::IRIArgs args;
    args.scheme = decode(scheme);
    args.hasScheme = !args.scheme.empty();
    args.path = L"/";
    args.hasPath = true;
    return StorageIRI(foundation::network::IRI(args));
}

provider::StorageIRI FutureCacheImpl::cacheKeyForPhysical(StorageIRI const& iri) const {
    return cacheKeyForScheme(iri.getScheme());
}

provider::StorageIRI FutureCacheImpl::cacheKeyForContainer(StorageIRI const& iri) const {
    // Another path for the same scheme and inner location, which need not be put together again.
    return StorageIRI(iri, u"/");
}

provider::StorageIRI FutureCacheImpl::cacheKeyForAlias(StorageIRI const& iri) const {
    // An absolute path replaces the path, and drops query and fragment.
    return StorageIRI(iri, u"/");
}

std::size_t FutureCacheImpl::cachedProviders() const {
    std::lock_guard const lock(mutex_);
    return cache_.size();
}

void FutureCacheImpl::registerPhysicalProvider(std::string const& scheme, PhysicalBuilder builder) {
    ustring const name = fl::i18n::to_ustring(scheme);
    try {
        physicalKeys_.try_emplace(name, cacheKeyForScheme(name));
    } catch (provider::MalformedIRIException const&) {
        // Not a scheme, so no location will ask for its key.
    }
    physical_[name] = std::move(builder);
}

void FutureCacheImpl::registerContainerProvider(std::string const& scheme,
                                                ContainerBuilder builder) {
    container_[fl::i18n::to_ustring(scheme)] = std::move(builder);
}

void FutureCacheImpl::registerAliasProvider(std::string const& scheme, AliasBuilder builder) {
    alias_[fl::i18n::to_ustring(scheme)] = std::move(builder);
}

void FutureCacheImpl::unregisterProvider(std::string const& scheme) {
    std::lock_guard const lock(mutex_);
    ustring const wanted = fl::i18n::to_ustring(scheme);
    if (physical_.erase(wanted) == 0 && container_.erase(wanted) == 0) {
        alias_.erase(wanted);
    }
    // Declared behind the lock, so that the providers die under it, and out of the map by then:
    // their destructors may come back into this cache.
    std::vector<std::shared_ptr<UniqueFutureProvider>> removed;
    for (auto entry = cache_.begin(); entry != cache_.end();) {
        if (entry->first.getSchemeView() == wanted) {
            removed.push_back(std::move(entry->second));
            entry = cache_.erase(entry);
        } else {
            ++entry;
        }
    }
}

} // namespace foundation::storage::vfs
