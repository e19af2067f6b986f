#include <foundation/storage/vfs/storage_system/exists.hpp>
#include <foundation/storage/vfs/storage_system/storage_system_decorator.hpp>
#include <foundation/storage/vfs/storage_system/storage_system_reference.hpp>

#include "fake_provider.hpp"
#include "fake_stream.hpp"

#include <foundation/core/except/exception.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <stdexcept>

namespace {

using namespace vfs_test;
using vfs::AbsoluteIRI;
using vfs::EventMgr;
using vfs::StorageSystem;
using vfs::StorageSystemReference;

AbsoluteIRI const location(u"mem:/a");

/// A pointer that stands for an event manager; nothing here looks into one.
boost::shared_ptr<EventMgr> someEventMgr() {
    auto const owner = boost::make_shared<int>(0);
    return boost::shared_ptr<EventMgr>(owner, reinterpret_cast<EventMgr*>(owner.get()));
}

class FailingSystem : public StorageSystem {
  public:
    explicit FailingSystem(std::function<void()> fails) : fails_(std::move(fails)) {}
    std::shared_ptr<provider::IProvider> buildProvider(StorageIRI const&) const override {
        fails_();
        return nullptr;
    }

  private:
    std::function<void()> fails_;
};

template<class Operation>
void expectDestroyed(Operation operation) {
    try {
        operation();
        FAIL();
    } catch (foundation::core::except::detail::AnonymousInternalException<std::runtime_error>& e) {
        EXPECT_STREQ(static_cast<std::runtime_error&>(e).what(),
                     "StorageSystem has been destroyed");
    }
}

TEST(StorageSystem, HasNoEventManagerUnlessOneIsGiven) {
    EXPECT_EQ(OneProviderSystem(nullptr).getEventMgr(), nullptr);
    auto const mgr = someEventMgr();
    EXPECT_EQ(vfs::PluggableStorageSystem(mgr).getEventMgr(), mgr);
    EXPECT_EQ(vfs::PluggableStorageSystem(nullptr).getEventMgr(), nullptr);
}

TEST(StorageSystemReference, ThrowsOnceTheSystemIsGone) {
    FakeStorage storage;
    StorageSystemReference const reference = storage.reference;
    EXPECT_EQ(reference.buildProvider(location.toStorageIRI()), storage.fake);
    storage.system.reset();
    expectDestroyed([&] { reference.buildProvider(location.toStorageIRI()); });
    expectDestroyed([&] { reference.getEventMgr(); });
    EXPECT_THROW(reference.getEventMgr(), std::runtime_error);
}

TEST(StorageSystemReference, DoesNotKeepTheSystemAlive) {
    FakeStorage storage;
    std::weak_ptr<OneProviderSystem> const system = storage.system;
    vfs::File const file(location, storage.reference);
    storage.system.reset();
    EXPECT_TRUE(system.expired());
}

TEST(StorageSystemReference, KeepsTheSystemForTheTimeOfOneCall) {
    auto system = std::make_shared<vfs::PluggableStorageSystem>(nullptr);
    std::weak_ptr<vfs::PluggableStorageSystem> const watched = system;
    StorageSystemReference const reference(system);
    bool aliveInside = false;
    system->registerPhysicalProvider("mem", [&] {
        system.reset();
        aliveInside = !watched.expired();
        return std::make_shared<FakeProvider>();
    });
    EXPECT_NE(reference.buildProvider(location.toStorageIRI()), nullptr);
    EXPECT_TRUE(aliveInside);
    EXPECT_TRUE(watched.expired());
}

TEST(StorageSystemReference, HandlesOutliveTheSystem) {
    FakeStorage storage;
    auto script = std::make_shared<StreamScript>();
    script->content = "bytes";
    storage.fake->onOpenReadOnlyStream = [&](StorageIRI const&) {
        return std::make_unique<FakeStream>(script);
    };
    storage.fake->onOpenStream = [&](StorageIRI const&, provider::ByteStreamOpenOptions const&) {
        return std::make_unique<FakeStream>(script);
    };
    vfs::File const file(location, storage.reference);
    storage.system.reset();

    char buffer[5];
    EXPECT_EQ(file.openReadOnly().read(buffer, 5), 5);
    EXPECT_EQ(file.open({}).write("more", 4), 4);
    expectDestroyed([&] { vfs::File(file.getLocation(), file.getStorageSystem()); });
}

TEST(StorageSystemReference, CallsItsResolverOnEveryOperation) {
    FakeStorage storage;
    int resolved = 0;
    StorageSystemReference const reference(StorageSystemReference::Resolver([&] {
        ++resolved;
        return storage.system;
    }));
    reference.getEventMgr();
    reference.buildProvider(location.toStorageIRI());
    EXPECT_EQ(resolved, 2);
}

TEST(StorageSystemReference, WithAnEmptyResolverThrowsBadFunctionCall) {
    StorageSystemReference const reference{StorageSystemReference::Resolver()};
    EXPECT_THROW(reference.getEventMgr(), std::bad_function_call);
    EXPECT_THROW(reference.buildProvider(location.toStorageIRI()), std::bad_function_call);
    EXPECT_THROW((void)(reference == reference), std::bad_function_call);
    EXPECT_THROW((void)(reference != reference), std::bad_function_call);
}

TEST(StorageSystemReference, ComparesTheSystemsBehindIt) {
    FakeStorage storage;
    FakeStorage other;
    std::weak_ptr<StorageSystem> const one = storage.system;
    std::weak_ptr<StorageSystem> const two = storage.system;
    EXPECT_TRUE(StorageSystemReference(one) == StorageSystemReference(one));
    EXPECT_TRUE(StorageSystemReference(one) == StorageSystemReference(two));
    EXPECT_TRUE(StorageSystemReference(one) != other.reference);

    FakeStorage dying;
    FakeStorage dyingToo;
    dying.system.reset();
    dyingToo.system.reset();
    EXPECT_TRUE(dying.reference == dyingToo.reference);
    EXPECT_TRUE(dying.reference != storage.reference);
}

TEST(StorageSystemReference, ResolvesTheArgumentOfAComparisonFirst) {
    std::string order;
    StorageSystemReference const left(StorageSystemReference::Resolver([&] {
        order += 'l';
        return nullptr;
    }));
    StorageSystemReference const right(StorageSystemReference::Resolver([&] {
        order += 'r';
        return nullptr;
    }));
    EXPECT_TRUE(left == right);
    EXPECT_EQ(order, "rl");
}

TEST(PluggableStorageSystem, LetsGoOfItsProvidersBeforeTheEventManager) {
    struct Dying : FakeProvider {
        explicit Dying(std::string& log) : log_(log) {}
        ~Dying() override { log_ += "provider "; }
        std::string& log_;
    };
    std::string order;
    {
        int manager = 0;
        boost::shared_ptr<int> owner(&manager, [&](int*) { order += "event manager "; });
        boost::shared_ptr<EventMgr> carried(owner, reinterpret_cast<EventMgr*>(owner.get()));
        auto system = std::make_unique<vfs::PluggableStorageSystem>(carried);
        carried.reset();
        system->registerPhysicalProvider("mem", [&] { return std::make_shared<Dying>(order); });
        system->buildProvider(location.toStorageIRI());
        owner.reset();
        system.reset();
    }
    EXPECT_EQ(order, "provider event manager ");
}

TEST(StorageSystemDecorator, ForwardsProvidersAndNotTheEventManager) {
    auto const inner = std::make_shared<vfs::PluggableStorageSystem>(someEventMgr());
    auto const served = std::make_shared<FakeProvider>();
    inner->registerPhysicalProvider("mem", [served] { return served; });
    auto const decorator = std::make_shared<vfs::StorageSystemDecorator>(inner);
    StorageSystemReference const reference{std::weak_ptr<StorageSystem>(decorator)};

    EXPECT_EQ(decorator->buildProvider(location.toStorageIRI()), served);
    EXPECT_EQ(decorator->getEventMgr(), nullptr);
    EXPECT_EQ(reference.getEventMgr(), nullptr);
}

TEST(BuildProviderTranslated, TranslatesProviderExceptionsAndNothingElse) {
    auto const codeFrom = [](std::function<void()> fails) {
        auto const system = std::make_shared<FailingSystem>(std::move(fails));
        StorageSystemReference const reference{std::weak_ptr<StorageSystem>(system)};
        vfs::File(location, reference);
    };
    EXPECT_EQ(codeOf([&] { codeFrom([] { fail(7, location.toStorageIRI()); }); }),
              vfs::ErrorCode::ReadOnlyProvider);
    EXPECT_THROW(codeFrom([] { throw vfs::UnsupportedIRISchemeException(u"x"); }),
                 vfs::UnsupportedIRISchemeException);
    EXPECT_THROW(codeFrom([] { throw vfs::InvalidIRIException(u"x"); }), vfs::InvalidIRIException);
    EXPECT_THROW(codeFrom([] { throw std::bad_alloc(); }), std::bad_alloc);
    EXPECT_THROW(codeFrom([] {
                     throw provider::ChangeEventsNotSupportedException(location.toStorageIRI());
                 }),
                 provider::ChangeEventsNotSupportedException);
}

TEST(Exists, AnswersWhatTheProviderAnswers) {
    FakeStorage storage;
    for (auto const result : {provider::ExistsResult::File, provider::ExistsResult::Folder,
                              provider::ExistsResult::Nothing}) {
        storage.fake->onExists = [result](StorageIRI const&) { return result; };
        EXPECT_EQ(vfs::exists(location, storage.reference), result);
    }
    storage.fake->onExistsExtended = [](StorageIRI const&) {
        return provider::ExtendedExistsResult::LinkToFolder;
    };
    EXPECT_EQ(vfs::existsExtended(location, storage.reference),
              provider::ExtendedExistsResult::LinkToFolder);
}

TEST(Exists, AnswersNothingWhereTheProviderItselfFindsNothing) {
    FakeStorage storage;
    storage.fake->onExists = [](StorageIRI const& asked) -> provider::ExistsResult {
        fail(4, asked);
    };
    storage.fake->onExistsExtended = [](StorageIRI const& asked) -> provider::ExtendedExistsResult {
        fail(4, asked);
    };
    EXPECT_EQ(vfs::exists(location, storage.reference), provider::ExistsResult::Nothing);
    EXPECT_EQ(vfs::existsExtended(location, storage.reference),
              provider::ExtendedExistsResult::Nothing);
}

TEST(Exists, TranslatesEveryOtherProviderException) {
    FakeStorage storage;
    storage.fake->onExists = [](StorageIRI const& asked) -> provider::ExistsResult {
        fail(2, asked);
    };
    EXPECT_EQ(codeOf([&] { vfs::exists(location, storage.reference); }),
              vfs::ErrorCode::PermissionDenied);
    storage.fake->onExistsExtended = [](StorageIRI const& asked) -> provider::ExtendedExistsResult {
        fail(9, asked);
    };
    EXPECT_EQ(codeOf([&] { vfs::existsExtended(location, storage.reference); }),
              vfs::ErrorCode::IOError);
    storage.fake->onExists = [](StorageIRI const&) -> provider::ExistsResult {
        throw std::bad_alloc();
    };
    EXPECT_THROW(vfs::exists(location, storage.reference), std::bad_alloc);
}

TEST(Exists, ThrowsWhereNoProviderCanBeHad) {
    auto const system = std::make_shared<vfs::PluggableStorageSystem>(nullptr);
    StorageSystemReference const reference{std::weak_ptr<StorageSystem>(system)};
    EXPECT_THROW(vfs::exists(location, reference), vfs::UnsupportedIRISchemeException);
    EXPECT_THROW(vfs::existsExtended(location, reference), vfs::UnsupportedIRISchemeException);

    system->registerPhysicalProvider("mem", [] { return std::make_shared<FakeProvider>(); });
    system->registerContainerProvider(
        "zip", [](provider::StorageItem const& item) -> std::shared_ptr<provider::IProvider> {
            fail(4, item.getLocation());
        });
    EXPECT_EQ(codeOf([&] { vfs::exists(AbsoluteIRI(u"zip:mem:/no.zip!/x"), reference); }),
              vfs::ErrorCode::ResourceNotFound);
}

} // namespace
