#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>

#include "fake_provider.hpp"

#include <foundation/core/except/exception.hpp>
#include <foundation/storage/provider/malformed_iri_exception.hpp>
#include <foundation/storage/vfs/resources/file.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <latch>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using namespace vfs_test;
using provider::IProvider;
using provider::StorageItem;
using vfs::PluggableStorageSystem;
using vfs::UnsupportedIRISchemeException;

StorageIRI iri(char16_t const* text) {
    return StorageIRI(text);
}

std::shared_ptr<IProvider> newProvider() {
    return std::make_shared<FakeProvider>();
}

TEST(UnsupportedIRISchemeException, CarriesTheSchemeAndIsThrownWrapped) {
    PluggableStorageSystem const system(nullptr);
    try {
        system.buildProvider(iri(u"none:/x"));
        FAIL();
    } catch (foundation::core::except::detail::AnonymousInternalException<
             UnsupportedIRISchemeException> const& e) {
        EXPECT_EQ(e.getScheme(), u"none");
        EXPECT_STREQ(e.what(), "foundation::storage::vfs::UnsupportedIRISchemeException");
        std::unique_ptr<boost::exception_detail::clone_base const> const clone(e.clone());
        EXPECT_THROW(clone->rethrow(), UnsupportedIRISchemeException);
    }
}

TEST(PluggableStorageSystem, BuildsNothingBeforeTheFirstRequest) {
    PluggableStorageSystem const system(nullptr);
    int built = 0;
    system.registerPhysicalProvider("mem", [&] {
        ++built;
        return newProvider();
    });
    EXPECT_EQ(built, 0);
    system.buildProvider(iri(u"mem:/x"));
    EXPECT_EQ(built, 1);
}

TEST(PluggableStorageSystem, PhysicalProviderIsSharedByTheWholeScheme) {
    PluggableStorageSystem const system(nullptr);
    system.registerPhysicalProvider("mem", newProvider);
    auto const served = system.buildProvider(iri(u"mem:/x"));
    EXPECT_NE(served, nullptr);
    for (char16_t const* text :
         {u"mem:/y", u"mem://host/x", u"mem://user@host:80/x?query#fragment", u"mem:/"}) {
        EXPECT_EQ(system.buildProvider(iri(text)), served);
    }
}

TEST(PluggableStorageSystem, AliasProviderIsSharedByAnAuthority) {
    PluggableStorageSystem const system(nullptr);
    std::vector<vfs::ustring> given;
    system.registerAliasProvider("web", [&](StorageIRI const& location) {
        given.push_back(location.toString());
        return newProvider();
    });
    auto const one = system.buildProvider(iri(u"web://one/x?q#f"));
    EXPECT_EQ(system.buildProvider(iri(u"web://one/y")), one);
    EXPECT_EQ(system.buildProvider(iri(u"web://one")), one);
    EXPECT_NE(system.buildProvider(iri(u"web://two/x")), one);
    EXPECT_NE(system.buildProvider(iri(u"web://one:81/x")), one);
    EXPECT_NE(system.buildProvider(iri(u"web://me@one/x")), one);
    ASSERT_EQ(given.size(), 4U);
    EXPECT_EQ(given.front(), u"web://one/x?q#f") << "the builder gets the whole first location";
}

TEST(PluggableStorageSystem, ContainerProviderIsSharedByAnItem) {
    PluggableStorageSystem const system(nullptr);
    auto const outer = newProvider();
    int outerBuilds = 0;
    system.registerPhysicalProvider("mem", [&] {
        ++outerBuilds;
        return outer;
    });
    std::vector<StorageItem> given;
    system.registerContainerProvider("zip", [&](StorageItem const& item) {
        given.push_back(item);
        return newProvider();
    });
    auto const inside = system.buildProvider(iri(u"zip:mem:/a.zip!/x"));
    EXPECT_EQ(system.buildProvider(iri(u"zip:mem:/a.zip!/y")), inside);
    EXPECT_EQ(system.buildProvider(iri(u"zip:mem:/%61.zip!/y")), inside);
    EXPECT_EQ(system.buildProvider(iri(u"zip:mem:/a.zip")), inside);
    EXPECT_NE(system.buildProvider(iri(u"zip:mem:/b.zip!/x")), inside);
    ASSERT_EQ(given.size(), 2U);
    EXPECT_EQ(given.front().getProvider(), outer);
    EXPECT_EQ(outerBuilds, 1);
    EXPECT_EQ(given.front().getLocation(), iri(u"mem:/a.zip"));
}

TEST(PluggableStorageSystem, SchemesAreCaseSensitive) {
    PluggableStorageSystem const system(nullptr);
    system.registerPhysicalProvider("mem", newProvider);
    EXPECT_THROW(system.buildProvider(iri(u"MEM:/x")), UnsupportedIRISchemeException);
}

TEST(PluggableStorageSystem, LaterRegistrationWinsForWhatIsNotYetBuilt) {
    PluggableStorageSystem const system(nullptr);
    auto const first = newProvider();
    auto const second = newProvider();
    system.registerPhysicalProvider("mem", [first] { return first; });
    EXPECT_EQ(system.buildProvider(iri(u"mem:/")), first);
    system.registerPhysicalProvider("mem", [second] { return second; });
    EXPECT_EQ(system.buildProvider(iri(u"mem:/")), first) << "the cache is left alone";
    system.unregisterProvider("mem");
    system.registerPhysicalProvider("mem", [second] { return second; });
    EXPECT_EQ(system.buildProvider(iri(u"mem:/")), second);
}

TEST(PluggableStorageSystem, UnregisteredSchemeIsUnsupportedWhileHandlesWorkOn) {
    auto const system = std::make_shared<PluggableStorageSystem>(nullptr);
    auto const fake = std::make_shared<FakeProvider>();
    fake->onFileExists = [](StorageIRI const&) { return true; };
    system->registerPhysicalProvider("mem", [fake] { return fake; });
    vfs::StorageSystemReference const reference{std::weak_ptr<vfs::StorageSystem>(system)};
    vfs::File const file(vfs::AbsoluteIRI(u"mem:/x"), reference);

    system->unregisterProvider("mem");

    EXPECT_THROW(system->buildProvider(iri(u"mem:/x")), UnsupportedIRISchemeException);
    EXPECT_TRUE(file.fileExists());
    system->unregisterProvider("mem");
    system->unregisterProvider("never registered");
}

TEST(PluggableStorageSystem, UnregisteringDropsTheFirstTableThatHoldsTheScheme) {
    PluggableStorageSystem const system(nullptr);
    system.registerPhysicalProvider("mem", newProvider);
    system.registerPhysicalProvider("both", newProvider);
    system.registerContainerProvider("both", [](StorageItem const&) { return newProvider(); });
    std::weak_ptr<IProvider> const physical = system.buildProvider(iri(u"both:/x"));
    std::weak_ptr<IProvider> const inside = system.buildProvider(iri(u"both:mem:/a!/x"));

    system.unregisterProvider("both");
    EXPECT_TRUE(physical.expired());
    EXPECT_TRUE(inside.expired()) << "every cached provider of the scheme is let go";
    EXPECT_THROW(system.buildProvider(iri(u"both:/x")), UnsupportedIRISchemeException);
    EXPECT_NE(system.buildProvider(iri(u"both:mem:/a!/x")), nullptr);

    system.unregisterProvider("both");
    EXPECT_THROW(system.buildProvider(iri(u"both:mem:/a!/x")), UnsupportedIRISchemeException);
}

TEST(PluggableStorageSystem, UnregisteringAnInnerSchemeKeepsWhatStandsOnIt) {
    PluggableStorageSystem const system(nullptr);
    system.registerPhysicalProvider("mem", newProvider);
    system.registerContainerProvider("zip", [](StorageItem const&) { return newProvider(); });
    auto const inside = system.buildProvider(iri(u"zip:mem:/a.zip!/x"));
    system.unregisterProvider("mem");
    EXPECT_EQ(system.buildProvider(iri(u"zip:mem:/a.zip!/y")), inside);
    EXPECT_THROW(system.buildProvider(iri(u"zip:mem:/b.zip!/y")), UnsupportedIRISchemeException);
}

TEST(PluggableStorageSystem, FailureToMakeAKeyReleasesTheLockAndChangesNothing) {
    PluggableStorageSystem const system(nullptr);
    system.registerPhysicalProvider("mem", newProvider);
    // A path inside an item that has none itself is no location, so there is no key for it.
    EXPECT_THROW(system.buildProvider(iri(u"zip:zip:mem:/a")), provider::MalformedIRIException);
    auto const other =
        std::async(std::launch::async, [&] { return system.buildProvider(iri(u"mem:/")); });
    EXPECT_EQ(other.wait_for(std::chrono::seconds(60)), std::future_status::ready);
}

/// Comes back into the system when it dies.
class ReturningProvider : public FakeProvider {
  public:
    explicit ReturningProvider(PluggableStorageSystem const& system) : system_(system) {}
    ~ReturningProvider() override {
        system_.buildProvider(StorageIRI(u"other:/"));
        system_.unregisterProvider("third");
    }

  private:
    PluggableStorageSystem const& system_;
};

TEST(PluggableStorageSystem, DyingProviderMayComeBack) {
    PluggableStorageSystem const system(nullptr);
    system.registerPhysicalProvider("mem",
                                    [&] { return std::make_shared<ReturningProvider>(system); });
    system.registerPhysicalProvider("other", newProvider);
    system.registerPhysicalProvider("third", newProvider);
    system.buildProvider(iri(u"mem:/"));
    system.buildProvider(iri(u"third:/"));
    system.unregisterProvider("mem");
    EXPECT_THROW(system.buildProvider(iri(u"third:/")), UnsupportedIRISchemeException);
}

TEST(PluggableStorageSystem, ProviderMayComeBackIntoADyingSystem) {
    auto system = std::make_unique<PluggableStorageSystem>(nullptr);
    system->registerPhysicalProvider("mem",
                                     [&] { return std::make_shared<ReturningProvider>(*system); });
    system->registerPhysicalProvider("other", newProvider);
    std::weak_ptr<IProvider> const dying = system->buildProvider(iri(u"mem:/"));
    PluggableStorageSystem* const raw = system.release();
    delete raw;
    EXPECT_TRUE(dying.expired());
}

TEST(PluggableStorageSystem, FailedBuildIsNotRemembered) {
    PluggableStorageSystem const system(nullptr);
    int calls = 0;
    system.registerPhysicalProvider("mem", [&]() -> std::shared_ptr<IProvider> {
        if (++calls == 1) {
            throw std::runtime_error("not yet");
        }
        return newProvider();
    });
    EXPECT_THROW(system.buildProvider(iri(u"mem:/")), std::runtime_error);
    EXPECT_NE(system.buildProvider(iri(u"mem:/")), nullptr);
    EXPECT_EQ(calls, 2);
}

TEST(PluggableStorageSystem, ProviderExceptionOfABuilderLeavesUntranslated) {
    PluggableStorageSystem const system(nullptr);
    system.registerPhysicalProvider(
        "mem", []() -> std::shared_ptr<IProvider> { fail(9, StorageIRI(u"mem:/")); });
    EXPECT_THROW(system.buildProvider(iri(u"mem:/")), provider::Exception);
}

TEST(PluggableStorageSystem, EmptyBuildersFailWhenCalled) {
    PluggableStorageSystem const system(nullptr);
    system.registerPhysicalProvider("mem", {});
    system.registerAliasProvider("web", {});
    int inner = 0;
    system.registerPhysicalProvider("real", [&] {
        ++inner;
        return newProvider();
    });
    system.registerContainerProvider("zip", {});
    for (char16_t const* text : {u"mem:/", u"web://h/", u"zip:real:/a!/"}) {
        try {
            system.buildProvider(iri(text));
            FAIL();
        } catch (boost::bad_function_call const& e) {
            EXPECT_STREQ(e.what(), "call to empty boost::function");
        }
    }
    EXPECT_EQ(inner, 1)
        << "an empty container builder is noticed after the inner provider is built";
}

TEST(PluggableStorageSystem, NullProviderIsAResultLikeAnyOther) {
    PluggableStorageSystem const system(nullptr);
    int calls = 0;
    system.registerPhysicalProvider("mem", [&]() -> std::shared_ptr<IProvider> {
        ++calls;
        return nullptr;
    });
    EXPECT_EQ(system.buildProvider(iri(u"mem:/")), nullptr);
    EXPECT_EQ(system.buildProvider(iri(u"mem:/")), nullptr);
    EXPECT_EQ(calls, 1);
}

TEST(PluggableStorageSystem, LocationWithAnInnerOneIsNeverServedPhysically) {
    PluggableStorageSystem const system(nullptr);
    system.registerPhysicalProvider("mem", newProvider);
    auto const physical = newProvider();
    system.registerPhysicalProvider("zip", [physical] { return physical; });
    EXPECT_THROW(system.buildProvider(iri(u"zip:mem:/a!/x")), UnsupportedIRISchemeException);
    system.registerContainerProvider("zip", [](StorageItem const&) { return newProvider(); });
    EXPECT_NE(system.buildProvider(iri(u"zip:mem:/a!/x")), physical);
    EXPECT_EQ(system.buildProvider(iri(u"zip:/a")), physical);
}

TEST(PluggableStorageSystem, UnknownSchemesOfANestedLocation) {
    PluggableStorageSystem const system(nullptr);
    auto const schemeFrom = [&](char16_t const* text) -> vfs::ustring {
        try {
            system.buildProvider(iri(text));
        } catch (UnsupportedIRISchemeException const& e) {
            return e.getScheme();
        }
        return u"nothing was thrown";
    };
    EXPECT_EQ(schemeFrom(u"zip:mem:/a!/x"), u"zip") << "the outer scheme is tested first";
    int built = 0;
    system.registerContainerProvider("zip", [&](StorageItem const&) {
        ++built;
        return newProvider();
    });
    EXPECT_EQ(schemeFrom(u"zip:mem:/a!/x"), u"mem");
    EXPECT_EQ(built, 0) << "the outer builder is not called";
    system.registerPhysicalProvider("mem", newProvider);
    EXPECT_NE(system.buildProvider(iri(u"zip:mem:/a!/x")), nullptr) << "nothing was remembered";
}

TEST(PluggableStorageSystem, InnerProviderStaysWhenTheOuterBuildFails) {
    PluggableStorageSystem const system(nullptr);
    int inner = 0;
    system.registerPhysicalProvider("mem", [&] {
        ++inner;
        return newProvider();
    });
    int outer = 0;
    system.registerContainerProvider("zip",
                                     [&](StorageItem const& item) -> std::shared_ptr<IProvider> {
                                         ++outer;
                                         fail(4, item.getLocation());
                                     });
    EXPECT_THROW(system.buildProvider(iri(u"zip:mem:/missing!/x")), provider::Exception);
    EXPECT_THROW(system.buildProvider(iri(u"zip:mem:/missing!/x")), provider::Exception);
    EXPECT_EQ(inner, 1);
    EXPECT_EQ(outer, 2);
}

class ManyThreads : public testing::TestWithParam<char16_t const*> {};

TEST_P(ManyThreads, AskingAtOnceGetOneProviderFromOneBuild) {
    constexpr int threadCount = 64;
    PluggableStorageSystem const system(nullptr);
    std::atomic<int> physicalBuilds = 0;
    std::atomic<int> containerBuilds = 0;
    auto const slowly = [](std::atomic<int>& builds) {
        ++builds;
        // A slow builder is the point: the others must find the build under way.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        return newProvider();
    };
    system.registerPhysicalProvider("slow", [&] { return slowly(physicalBuilds); });
    system.registerContainerProvider("zip",
                                     [&](StorageItem const&) { return slowly(containerBuilds); });
    StorageIRI const location(GetParam());
    std::latch start(threadCount);
    std::vector<std::shared_ptr<IProvider>> results(threadCount);
    std::vector<std::thread> threads;
    for (auto& result : results) {
        threads.emplace_back([&] {
            start.arrive_and_wait();
            result = system.buildProvider(location);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(physicalBuilds, 1);
    EXPECT_EQ(containerBuilds, location.hasInnerIRI() ? 1 : 0);
    ASSERT_NE(results.front(), nullptr);
    for (auto const& result : results) {
        EXPECT_EQ(result, results.front());
    }
}

INSTANTIATE_TEST_SUITE_P(Routes, ManyThreads, testing::Values(u"slow:/x", u"zip:slow:/a.zip!/x"));

TEST(PluggableStorageSystem, ServesOtherKeysWhileABuilderRuns) {
    PluggableStorageSystem const system(nullptr);
    std::promise<void> entered;
    std::promise<void> release;
    system.registerPhysicalProvider("held", [&] {
        entered.set_value();
        release.get_future().wait();
        return newProvider();
    });
    system.registerPhysicalProvider("mem", newProvider);
    system.registerContainerProvider("zip", [](StorageItem const&) { return newProvider(); });

    // The thread holds the builder of the inner provider, and so the build of the outer one.
    auto held = std::async(std::launch::async,
                           [&] { return system.buildProvider(iri(u"zip:held:/a!/x")); });
    entered.get_future().wait();
    EXPECT_NE(system.buildProvider(iri(u"mem:/")), nullptr);
    EXPECT_NE(system.buildProvider(iri(u"zip:mem:/a!/x")), nullptr);
    // A thread that waits for the held build is in nobody's way either.
    auto waiting =
        std::async(std::launch::async, [&] { return system.buildProvider(iri(u"held:/")); });
    EXPECT_NE(system.buildProvider(iri(u"zip:mem:/b!/x")), nullptr);
    system.unregisterProvider("never registered");

    release.set_value();
    EXPECT_NE(held.get(), nullptr);
    EXPECT_NE(waiting.get(), nullptr);
}

TEST(PluggableStorageSystem, BuilderSurvivesBeingUnregisteredDuringItsCall) {
    PluggableStorageSystem const system(nullptr);
    auto const token = std::make_shared<int>(7);
    system.registerPhysicalProvider("mem", [&system, token] {
        system.unregisterProvider("mem");
        EXPECT_EQ(*token, 7);
        return newProvider();
    });
    EXPECT_NE(system.buildProvider(iri(u"mem:/")), nullptr)
        << "the thread that waits on an entry keeps it";
}

} // namespace
