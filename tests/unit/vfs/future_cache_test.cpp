#include <foundation/storage/vfs/storage_system/detail/future_cache_impl.hpp>

#include <foundation/storage/provider/storage_item.hpp>

#include <gtest/gtest.h>

#include <exception>
#include <future>
#include <stdexcept>

namespace {

namespace vfs = foundation::storage::vfs;
namespace provider = foundation::storage::provider;
using Cache = vfs::PluggableStorageSystem::FutureCacheImpl;
using provider::StorageIRI;

class NothingProvider : public provider::IProvider {
  public:
    provider::ExistsResult exists(StorageIRI const&) const override {
        return provider::ExistsResult::Nothing;
    }
};

std::shared_ptr<provider::IProvider> newProvider() {
    return std::make_shared<NothingProvider>();
}

TEST(FutureCache, KeysSayHowWidelyAProviderIsShared) {
    Cache const cache;
    StorageIRI const iri(u"web://me@host:81/a/b?q#f");
    EXPECT_EQ(cache.cacheKeyForPhysical(iri), StorageIRI(u"web:/"));
    EXPECT_EQ(cache.cacheKeyForAlias(iri), StorageIRI(u"web://me@host:81/"));
    EXPECT_EQ(cache.cacheKeyForAlias(StorageIRI(u"web:/a?q")), StorageIRI(u"web:/"));
    EXPECT_EQ(cache.cacheKeyForContainer(StorageIRI(u"zip:web://h/a.zip!/x/y")),
              StorageIRI(u"zip", StorageIRI(u"web://h/a.zip"), u"/"));
}

TEST(FutureCache, KeysAreTheSameWhetherOrNotTheSchemeIsRegistered) {
    Cache cache;
    StorageIRI const iri(u"web://me@host:81/a/b?q#f");
    cache.registerPhysicalProvider("web", newProvider);
    EXPECT_EQ(cache.cacheKeyForPhysical(iri), StorageIRI(u"web:/"));
    cache.doBuildProvider(iri);
    cache.unregisterProvider("web");
    EXPECT_EQ(cache.cachedProviders(), 0U);
    EXPECT_EQ(cache.cacheKeyForPhysical(iri), StorageIRI(u"web:/"));
}

TEST(FutureCache, SchemeThatNoLocationCanHaveMayBeRegistered) {
    Cache cache;
    cache.registerPhysicalProvider("x", newProvider);
    cache.registerPhysicalProvider("", newProvider);
    cache.registerPhysicalProvider("mem", newProvider);
    EXPECT_NE(cache.doBuildProvider(StorageIRI(u"mem:/a")), nullptr);
}

TEST(FutureCache, BuilderThatUnregistersItselfAndFailsLeavesNothingBehind) {
    Cache cache;
    cache.registerPhysicalProvider("mem", [&]() -> std::shared_ptr<provider::IProvider> {
        cache.unregisterProvider("mem");
        throw std::runtime_error("no memory here");
    });
    EXPECT_THROW(cache.doBuildProvider(StorageIRI(u"mem:/a")), std::runtime_error);
    EXPECT_EQ(cache.cachedProviders(), 0U);
    EXPECT_THROW(cache.doBuildProvider(StorageIRI(u"mem:/a")), vfs::UnsupportedIRISchemeException);
}

TEST(FutureCache, SchemeThatIsNotUTF16CannotMakeAKey) {
    EXPECT_THROW(Cache::cacheKeyForScheme(vfs::ustring{u'a', char16_t(0xD800)}), std::out_of_range);
    EXPECT_THROW(Cache::cacheKeyForScheme(vfs::ustring{char16_t(0xDC00), u'a'}), std::out_of_range);
    EXPECT_THROW(Cache::cacheKeyForScheme(vfs::ustring{u'a', char16_t(0xD800), u'b'}),
                 std::out_of_range);
}

TEST(FutureCache, NestedLocationOfTwoLevelsCachesThreeKeys) {
    Cache cache;
    std::string order;
    cache.registerPhysicalProvider("mem", [&] {
        order += 'm';
        return newProvider();
    });
    cache.registerContainerProvider("zip", [&](provider::StorageItem const& item) {
        order += item.getScheme() == u"mem" ? 'i' : 'o';
        return newProvider();
    });
    cache.doBuildProvider(StorageIRI(u"zip:zip:mem:/o.zip!/i.zip!/x"));
    EXPECT_EQ(order, "mio") << "innermost first";
    EXPECT_EQ(cache.cachedProviders(), 3U);
}

TEST(FutureCache, FailedKeysAreGoneAgain) {
    Cache cache;
    EXPECT_THROW(cache.doBuildProvider(StorageIRI(u"web://h/")),
                 vfs::UnsupportedIRISchemeException);
    EXPECT_EQ(cache.cachedProviders(), 0U);

    cache.registerContainerProvider("zip",
                                    [](provider::StorageItem const&) { return newProvider(); });
    EXPECT_THROW(cache.doBuildProvider(StorageIRI(u"zip:none:/a!/x")),
                 vfs::UnsupportedIRISchemeException);
    EXPECT_EQ(cache.cachedProviders(), 0U) << "both keys are removed";
}

TEST(FutureCache, MissingInnerItemLeavesTheInnerProviderCached) {
    Cache cache;
    cache.registerPhysicalProvider("mem", newProvider);
    cache.registerContainerProvider(
        "zip", [](provider::StorageItem const&) -> std::shared_ptr<provider::IProvider> {
            throw std::runtime_error("no such item");
        });
    EXPECT_THROW(cache.doBuildProvider(StorageIRI(u"zip:mem:/a!/x")), std::runtime_error);
    EXPECT_EQ(cache.cachedProviders(), 1U);
}

TEST(FutureCache, JoinerReturnsAtOnceAndIsThrownTheSameFailure) {
    Cache cache;
    std::promise<void> entered;
    std::promise<void> release;
    int builds = 0;
    cache.registerPhysicalProvider("mem", newProvider);
    cache.registerContainerProvider(
        "zip", [&](provider::StorageItem const&) -> std::shared_ptr<provider::IProvider> {
            ++builds;
            entered.set_value();
            release.get_future().wait();
            throw std::runtime_error("down");
        });
    StorageIRI const iri(u"zip:mem:/a!/x");
    std::runtime_error const* first = nullptr;
    auto builder = std::async(std::launch::async, [&] {
        try {
            cache.doBuildProvider(iri);
        } catch (std::runtime_error const& e) {
            first = &e;
            return std::current_exception();
        }
        return std::exception_ptr();
    });
    entered.get_future().wait();
    auto const joined = cache.doBuildContainerProvider(iri); // does not wait
    release.set_value();

    joined->fulfillOnce();
    std::exception_ptr const kept = builder.get();
    ASSERT_TRUE(joined->error());
    try {
        std::rethrow_exception(joined->error());
    } catch (std::runtime_error const& e) {
        EXPECT_EQ(&e, first) << "the stored exception itself";
    }
    EXPECT_EQ(builds, 1);
    EXPECT_EQ(joined->provider(), nullptr);
    EXPECT_EQ(cache.cachedProviders(), 1U) << "the inner provider";
}

TEST(FutureCache, UnregisteringEmptiesTheCacheOfTheScheme) {
    Cache cache;
    cache.registerPhysicalProvider("mem", newProvider);
    cache.registerAliasProvider("web", [](StorageIRI const&) { return newProvider(); });
    cache.doBuildProvider(StorageIRI(u"mem:/"));
    cache.doBuildProvider(StorageIRI(u"web://a/"));
    cache.doBuildProvider(StorageIRI(u"web://b/"));
    cache.unregisterProvider("web");
    EXPECT_EQ(cache.cachedProviders(), 1U);
}

} // namespace
