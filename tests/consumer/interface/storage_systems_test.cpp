#include "storage_test.hpp"

#include <foundation/msg_svc/eventmgr/shutdown_event.hpp>

#include <stdexcept>

namespace {

using namespace consumer;
using foundation::msg_svc::eventmgr::DeliverMode;
using foundation::msg_svc::eventmgr::ShutdownEvent;
using provider::ExistsResult;
using provider::ExtendedExistsResult;
using provider::StorageIRI;
using provider::StorageItem;
using vfs::AbsoluteIRI;
using vfs::StorageSystemReference;
using vfs::UnsupportedIRISchemeException;

/// A system of the host's own.
class OwnSystem : public vfs::StorageSystem {
  public:
    explicit OwnSystem(std::shared_ptr<provider::IProvider> served) : served_(std::move(served)) {}
    std::shared_ptr<provider::IProvider> buildProvider(StorageIRI const&) const override {
        return served_;
    }

  private:
    std::shared_ptr<provider::IProvider> served_;
};

/// A decorator of the host's own.
class ForwardingDecorator : public vfs::StorageSystemDecorator {
  public:
    using StorageSystemDecorator::StorageSystemDecorator;
    boost::shared_ptr<EventMgr> getEventMgr() const override { return wrapped().getEventMgr(); }
};

class StorageSystems : public StorageTest {
  protected:
    /// The scheme that a system does not serve.
    static vfs::ustring unservedBy(vfs::StorageSystem const& asked, char16_t const* location) {
        try {
            asked.buildProvider(StorageIRI(location));
        } catch (UnsupportedIRISchemeException const& failure) {
            return failure.getScheme();
        }
        return u"";
    }
};

TEST_F(StorageSystems, SystemOfAHostHasNoEventManagerUnlessItSaysSo) {
    OwnSystem const own(mem);
    EXPECT_EQ(own.buildProvider(StorageIRI(u"any:/")), mem);
    EXPECT_EQ(own.getEventMgr(), nullptr);
}

TEST_F(StorageSystems, DecoratorForwardsProvidersAndNotTheEventManager) {
    vfs::StorageSystemDecorator const plain(system);
    EXPECT_EQ(plain.buildProvider(StorageIRI(u"mem:/")), mem);
    EXPECT_EQ(plain.getEventMgr(), nullptr);
    EXPECT_EQ(ForwardingDecorator(system).getEventMgr(), manager);
}

TEST_F(StorageSystems, ReferenceResolvesAndKeepsNothingAlive) {
    StorageSystemReference const byFunction(
        StorageSystemReference::Resolver([this] { return system; }));
    EXPECT_EQ(byFunction.buildProvider(StorageIRI(u"mem:/")), mem);
    EXPECT_EQ(reference.getEventMgr(), manager);
    EXPECT_TRUE(byFunction == reference);
    auto const other = std::make_shared<OwnSystem>(mem);
    EXPECT_TRUE(reference != StorageSystemReference(std::weak_ptr<vfs::StorageSystem>(other)));
    system.reset();
    try {
        reference.buildProvider(StorageIRI(u"mem:/"));
        FAIL() << "nothing was thrown";
    } catch (std::runtime_error const& failure) {
        EXPECT_STREQ(failure.what(), "StorageSystem has been destroyed");
    }
}

TEST_F(StorageSystems, ExistsAsksWithoutAHandle) {
    file(u"mem:/f").createFile();
    EXPECT_EQ(vfs::exists(AbsoluteIRI(u"mem:/f"), reference), ExistsResult::File);
    EXPECT_EQ(vfs::exists(AbsoluteIRI(u"mem:/"), reference), ExistsResult::Folder);
    EXPECT_EQ(vfs::exists(AbsoluteIRI(u"mem:/g"), reference), ExistsResult::Nothing);
    EXPECT_EQ(vfs::existsExtended(AbsoluteIRI(u"mem:/f"), reference), ExtendedExistsResult::File);
    EXPECT_EQ(vfs::existsExtended(AbsoluteIRI(u"mem:/g"), reference),
              ExtendedExistsResult::Nothing);
}

TEST_F(StorageSystems, PluggableOneServesWhatIsRegistered) {
    auto const inside = provider::memory::buildMemoryProvider();
    auto const remote = provider::memory::buildMemoryProvider();
    StorageIRI asked(u"none:/");
    system->registerContainerProvider("box", [&](StorageItem const& item) {
        EXPECT_EQ(item.getProvider(), mem);
        asked = item.getLocation();
        return inside;
    });
    system->registerAliasProvider("far", [&](StorageIRI const&) { return remote; });
    EXPECT_EQ(system->buildProvider(StorageIRI(u"mem:/x")), mem);
    EXPECT_EQ(system->buildProvider(StorageIRI(u"box:mem:/x!/y")), inside);
    EXPECT_EQ(asked, StorageIRI(u"mem:/x"));
    EXPECT_EQ(system->buildProvider(StorageIRI(u"far://host/x")), remote);
    EXPECT_EQ(system->getEventMgr(), manager);

    EXPECT_EQ(unservedBy(*system, u"mem:/x"), u"");
    system->unregisterProvider("mem");
    EXPECT_EQ(unservedBy(*system, u"mem:/x"), u"mem");
}

TEST_F(StorageSystems, UnsupportedSchemeIsNamedAndCaughtInItsWrappedForm) {
    using Wrapped =
        foundation::core::except::detail::AnonymousInternalException<UnsupportedIRISchemeException>;
    try {
        system->buildProvider(StorageIRI(u"none:/"));
        FAIL() << "nothing was thrown";
    } catch (Wrapped const& failure) {
        EXPECT_EQ(failure.getScheme(), u"none");
        EXPECT_STREQ(failure.what(), "foundation::storage::vfs::UnsupportedIRISchemeException");
    }
    EXPECT_EQ(UnsupportedIRISchemeException(u"x").getScheme(), u"x");
}

class BoxFactory : public provider::ContainerProviderFactory {
  public:
    explicit BoxFactory(bool& isShutDown) : isShutDown_(isShutDown) {}
    std::shared_ptr<provider::IProvider> buildProvider(StorageItem const& item) const override {
        return item.getProvider();
    }
    void shutdownProvider() const override { isShutDown_ = true; }

  private:
    bool& isShutDown_;
};

class DiskFactory : public provider::PhysicalProviderFactory {
  public:
    DiskFactory(std::shared_ptr<provider::IProvider> served, bool& isShutDown)
        : served_(std::move(served)),
          isShutDown_(isShutDown) {}
    std::shared_ptr<provider::IProvider> buildProvider(StorageIRI const&) const override {
        return served_;
    }
    void shutdownProvider() const override { isShutDown_ = true; }

  private:
    std::shared_ptr<provider::IProvider> served_;
    bool& isShutDown_;
};

TEST_F(StorageSystems, FactoryBackedOneAsksItsFactoriesAndShutsThemDown) {
    bool isDiskDown = false;
    bool isBoxDown = false;
    vfs::ProviderFactoryBackedStorageSystem const backed(manager);
    backed.registerProviderFactory("disk", std::make_shared<DiskFactory>(mem, isDiskDown));
    backed.registerProviderFactory("box", std::make_shared<BoxFactory>(isBoxDown));
    EXPECT_EQ(backed.buildProvider(StorageIRI(u"disk:/x")), mem);
    EXPECT_EQ(backed.buildProvider(StorageIRI(u"box:disk:/x!/y")), mem);
    EXPECT_EQ(backed.getEventMgr(), manager);

    manager->notify(ShutdownEvent(), DeliverMode::Immediate);
    EXPECT_TRUE(isDiskDown && isBoxDown);
    backed.unregisterFactory("box");
    EXPECT_EQ(unservedBy(backed, u"box:disk:/x!/y"), u"box");
}

} // namespace
