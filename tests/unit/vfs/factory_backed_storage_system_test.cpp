#include <foundation/storage/vfs/storage_system/factory_backed_storage_system.hpp>

#include <foundation/msg_svc/eventmgr/event_mgr.hpp>
#include <foundation/msg_svc/eventmgr/shutdown_event.hpp>

#include "fake_provider.hpp"

#include <boost/make_shared.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace vfs_test;
using foundation::msg_svc::eventmgr::DeliverMode;
using foundation::msg_svc::eventmgr::EventMgr;
using foundation::msg_svc::eventmgr::ShutdownEvent;
using foundation::msg_svc::eventmgr::StackTrace;
using vfs::ProviderFactoryBackedStorageSystem;
using vfs::UnsupportedIRISchemeException;
using Log = std::vector<std::string>;

class PhysicalFactory : public provider::PhysicalProviderFactory {
  public:
    PhysicalFactory(std::string name, Log& log) : name_(std::move(name)), log_(log) {}
    std::shared_ptr<provider::IProvider> buildProvider(StorageIRI const& location) const override {
        log_.push_back(name_ + " builds " + fl::i18n::toDisplayString(location.toString()));
        if (onBuild) {
            onBuild();
        }
        return served;
    }
    void shutdownProvider() const override {
        log_.push_back(name_ + " shuts down");
        if (onShutdown) {
            onShutdown();
        }
    }

    std::shared_ptr<provider::IProvider> served = std::make_shared<FakeProvider>();
    std::function<void()> onBuild;
    std::function<void()> onShutdown;

  private:
    std::string name_;
    Log& log_;
};

class ContainerFactory : public provider::ContainerProviderFactory {
  public:
    ContainerFactory(std::string name, Log& log) : name_(std::move(name)), log_(log) {}
    std::shared_ptr<provider::IProvider>
    buildProvider(provider::StorageItem const& item) const override {
        log_.push_back(name_ + " builds in " +
                       fl::i18n::toDisplayString(item.getLocation().toString()));
        inner = item.getProvider();
        if (onBuild) {
            onBuild();
        }
        return served;
    }
    void shutdownProvider() const override {
        log_.push_back(name_ + " shuts down");
        if (onShutdown) {
            onShutdown();
        }
    }

    std::shared_ptr<provider::IProvider> served = std::make_shared<FakeProvider>();
    mutable std::shared_ptr<provider::IProvider> inner;
    std::function<void()> onBuild;
    std::function<void()> onShutdown;

  private:
    std::string name_;
    Log& log_;
};

class FactoryBackedStorageSystem : public testing::Test {
  protected:
    std::shared_ptr<PhysicalFactory> addPhysical(std::string const& scheme) {
        auto made = std::make_shared<PhysicalFactory>(scheme, log);
        system->registerProviderFactory(scheme, made);
        return made;
    }
    std::shared_ptr<ContainerFactory> addContainer(std::string const& scheme) {
        auto made = std::make_shared<ContainerFactory>("in " + scheme, log);
        system->registerProviderFactory(scheme, made);
        return made;
    }
    std::shared_ptr<provider::IProvider> build(char16_t const* location) const {
        return system->buildProvider(StorageIRI(location));
    }
    /// The scheme that nobody serves.
    std::string unserved(char16_t const* location) const {
        try {
            build(location);
        } catch (UnsupportedIRISchemeException const& e) {
            return fl::i18n::toDisplayString(e.getScheme());
        }
        return "served";
    }
    void shutdown() { manager->notify(ShutdownEvent(), DeliverMode::Immediate); }

    Log log;
    Log failures;
    boost::shared_ptr<EventMgr> manager =
        boost::make_shared<EventMgr>([this](std::exception_ptr const& thrown, StackTrace const&) {
            try {
                std::rethrow_exception(thrown);
            } catch (std::exception const& e) {
                failures.emplace_back(e.what());
            }
        });
    std::unique_ptr<ProviderFactoryBackedStorageSystem> system =
        std::make_unique<ProviderFactoryBackedStorageSystem>(manager);
};

TEST_F(FactoryBackedStorageSystem, AsksTheFactoryOfTheSchemeEachTime) {
    auto const a = addPhysical("aa");
    EXPECT_EQ(build(u"aa:/x"), a->served);
    EXPECT_EQ(build(u"aa:/x"), a->served);
    EXPECT_EQ(log, (Log{"aa builds aa:/x", "aa builds aa:/x"}));
}

TEST_F(FactoryBackedStorageSystem, BuildsForAnItemInsideOfItsProvider) {
    auto const a = addPhysical("aa");
    auto const z = addContainer("zz");
    EXPECT_EQ(build(u"zz:aa:/x!/y"), z->served);
    EXPECT_EQ(z->inner, a->served);
    EXPECT_EQ(log, (Log{"aa builds aa:/x", "in zz builds in aa:/x"}));
}

TEST_F(FactoryBackedStorageSystem, NestsAsDeepAsTheLocation) {
    addPhysical("aa");
    auto const z = addContainer("zz");
    EXPECT_EQ(build(u"zz:zz:aa:/x!/y!/z"), z->served);
    EXPECT_EQ(log,
              (Log{"aa builds aa:/x", "in zz builds in aa:/x", "in zz builds in zz:aa:/x!/y"}));
}

TEST_F(FactoryBackedStorageSystem, InnerLocationChoosesTheTable) {
    auto const physical = addPhysical("aa");
    auto const container = addContainer("aa");
    EXPECT_EQ(build(u"aa:/x"), physical->served);
    EXPECT_EQ(build(u"aa:aa:/x!/y"), container->served);
    system->unregisterFactory("aa");
    EXPECT_EQ(unserved(u"aa:/x"), "aa") << "the physical one goes first";
    addPhysical("bb");
    EXPECT_EQ(build(u"aa:bb:/x!/y"), container->served);
    system->unregisterFactory("aa");
    EXPECT_EQ(unserved(u"aa:bb:/x!/y"), "aa");
    EXPECT_NO_THROW(system->unregisterFactory("aa"));
}

TEST_F(FactoryBackedStorageSystem, TableOfTheOtherKindServesNothing) {
    addPhysical("aa");
    addContainer("zz");
    EXPECT_EQ(unserved(u"zz:/x"), "zz");
    EXPECT_EQ(unserved(u"aa:aa:/x!/y"), "aa");
    EXPECT_EQ(unserved(u"no:/x"), "no");
    EXPECT_EQ(unserved(u"AA:/x"), "AA") << "case counts";
    EXPECT_TRUE(log.empty());
}

TEST_F(FactoryBackedStorageSystem, InnerSchemeThatNobodyServesIsNamedAndTheOuterFactoryNotAsked) {
    addContainer("zz");
    EXPECT_EQ(unserved(u"zz:no:/x!/y"), "no");
    EXPECT_TRUE(log.empty());
}

TEST_F(FactoryBackedStorageSystem, UnsupportedSchemeIsThrownWrapped) {
    EXPECT_THROW(build(u"no:/x"), foundation::core::except::IException);
}

TEST_F(FactoryBackedStorageSystem, RegisteringAgainReplaces) {
    addPhysical("aa");
    auto const second = addPhysical("aa");
    EXPECT_EQ(build(u"aa:/x"), second->served);
}

TEST_F(FactoryBackedStorageSystem, FailureOfAFactoryReachesTheCallerAndIsForgotten) {
    auto const a = addPhysical("aa");
    a->onBuild = [] { throw std::runtime_error("no"); };
    EXPECT_THROW(build(u"aa:/x"), std::runtime_error);
    a->onBuild = nullptr;
    std::thread([&] { EXPECT_EQ(build(u"aa:/x"), a->served) << "no mutex is held"; }).join();
    auto const z = addContainer("zz");
    z->onBuild = [] { throw std::runtime_error("no"); };
    EXPECT_THROW(build(u"zz:aa:/x!/y"), std::runtime_error);
    z->onBuild = nullptr;
    std::thread([&] { EXPECT_EQ(build(u"zz:aa:/x!/y"), z->served); }).join();
}

TEST_F(FactoryBackedStorageSystem, FactoryMayRegisterAndDropItselfFromInside) {
    auto const a = addPhysical("aa");
    a->onBuild = [&] {
        addPhysical("bb");
        system->unregisterFactory("aa");
    };
    EXPECT_EQ(build(u"aa:/x"), a->served);
    EXPECT_EQ(unserved(u"aa:/x"), "aa");

    auto const z = addContainer("zz");
    z->onBuild = [&] {
        addContainer("yy");
        addPhysical("cc");
        system->unregisterFactory("zz");
    };
    EXPECT_EQ(build(u"zz:bb:/x!/y"), z->served);
    EXPECT_NE(build(u"yy:cc:/x!/y"), nullptr);
    EXPECT_EQ(unserved(u"zz:bb:/x!/y"), "zz");
}

TEST_F(FactoryBackedStorageSystem, WithoutAnEventManagerNoShutdownArrives) {
    ProviderFactoryBackedStorageSystem const silent(nullptr);
    EXPECT_EQ(silent.getEventMgr(), nullptr);
    EXPECT_EQ(system->getEventMgr(), manager);
    silent.registerProviderFactory("aa", std::make_shared<PhysicalFactory>("aa", log));
    shutdown();
    EXPECT_TRUE(log.empty());
}

TEST_F(FactoryBackedStorageSystem, ShutdownReachesPhysicalFactoriesFirstAndEachTableInOrder) {
    addContainer("yy");
    addContainer("xx");
    addPhysical("cc");
    addPhysical("aa");
    addPhysical("bb");
    shutdown();
    EXPECT_EQ(log, (Log{"aa shuts down", "bb shuts down", "cc shuts down", "in xx shuts down",
                        "in yy shuts down"}));
}

TEST_F(FactoryBackedStorageSystem, FactoriesStayBehindAShutdown) {
    auto const a = addPhysical("aa");
    shutdown();
    EXPECT_EQ(build(u"aa:/x"), a->served);
}

TEST_F(FactoryBackedStorageSystem, FailureToShutDownEndsItAndGoesToTheEventManager) {
    addPhysical("aa");
    addPhysical("bb")->onShutdown = [] { throw std::runtime_error("bb will not"); };
    addPhysical("cc");
    addContainer("xx");
    shutdown();
    EXPECT_EQ(log, (Log{"aa shuts down", "bb shuts down"}));
    EXPECT_EQ(failures, (Log{"bb will not"}));
    std::thread([&] { EXPECT_NE(build(u"aa:/x"), nullptr) << "no mutex is held"; }).join();
}

TEST_F(FactoryBackedStorageSystem, FailureOfAContainerFactoryLeavesTheLaterOnes) {
    addPhysical("aa");
    addContainer("xx")->onShutdown = [] { throw std::runtime_error("xx will not"); };
    addContainer("yy");
    shutdown();
    EXPECT_EQ(log, (Log{"aa shuts down", "in xx shuts down"}));
    EXPECT_EQ(failures, (Log{"xx will not"}));
}

TEST_F(FactoryBackedStorageSystem, FactoryMayDropItselfWhileItShutsDown) {
    addPhysical("aa")->onShutdown = [&] { system->unregisterFactory("aa"); };
    addPhysical("bb");
    shutdown();
    EXPECT_EQ(log, (Log{"aa shuts down", "bb shuts down"}));
}

TEST_F(FactoryBackedStorageSystem, FactoryThatIsDroppedMeanwhileIsNotShutDown) {
    addPhysical("aa")->onShutdown = [&] { system->unregisterFactory("bb"); };
    addPhysical("bb");
    addPhysical("cc");
    addContainer("xx")->onShutdown = [&] { system->unregisterFactory("yy"); };
    addContainer("yy");
    addContainer("zz");
    shutdown();
    EXPECT_EQ(log, (Log{"aa shuts down", "cc shuts down", "in xx shuts down", "in zz shuts down"}));
}

TEST_F(FactoryBackedStorageSystem, FactoryThatIsAddedMeanwhileIsShutDownIfItsTurnIsToCome) {
    addPhysical("bb")->onShutdown = [&] {
        addPhysical("aa");
        addPhysical("cc");
    };
    addContainer("yy")->onShutdown = [&] {
        addContainer("xx");
        addContainer("zz");
    };
    shutdown();
    EXPECT_EQ(log, (Log{"bb shuts down", "cc shuts down", "in yy shuts down", "in zz shuts down"}));
}

TEST_F(FactoryBackedStorageSystem, FactoryThatIsReplacedMeanwhileIsNotShutDownButTheNewOneIs) {
    auto const later = std::make_shared<PhysicalFactory>("new bb", log);
    addPhysical("aa")->onShutdown = [&] { system->registerProviderFactory("bb", later); };
    addPhysical("bb");
    shutdown();
    EXPECT_EQ(log, (Log{"aa shuts down", "new bb shuts down"}));
}

TEST_F(FactoryBackedStorageSystem, FactoriesMayBeRegisteredAndDroppedWhileOtherThreadsBuild) {
    class Quiet : public provider::PhysicalProviderFactory,
                  public provider::ContainerProviderFactory {
      public:
        std::shared_ptr<provider::IProvider> buildProvider(StorageIRI const&) const override {
            return served_;
        }
        std::shared_ptr<provider::IProvider>
        buildProvider(provider::StorageItem const&) const override {
            return served_;
        }
        void shutdownProvider() const override {}

      private:
        std::shared_ptr<provider::IProvider> served_ = std::make_shared<FakeProvider>();
    };
    using Physical = std::shared_ptr<provider::PhysicalProviderFactory>;
    using Container = std::shared_ptr<provider::ContainerProviderFactory>;
    system->registerProviderFactory("aa", Physical(std::make_shared<Quiet>()));
    std::atomic<bool> ending = false;
    std::atomic<int> served = 0;
    std::atomic<int> refused = 0;
    std::vector<std::thread> builders;
    for (int i = 0; i < 3; ++i) {
        builders.emplace_back([&] {
            while (!ending) {
                EXPECT_NE(build(u"aa:/x"), nullptr) << "what nobody touches is always served";
                try {
                    ++(build(u"zz:bb:/x!/y") ? served : refused);
                } catch (UnsupportedIRISchemeException const&) {
                    ++refused;
                }
            }
        });
    }
    // Until both outcomes were seen, and some more.
    for (int round = 0; round < 500 || served == 0 || refused == 0; ++round) {
        system->registerProviderFactory("bb", Physical(std::make_shared<Quiet>()));
        system->registerProviderFactory("zz", Container(std::make_shared<Quiet>()));
        std::this_thread::yield();
        shutdown();
        system->unregisterFactory("bb");
        system->unregisterFactory("zz");
        std::this_thread::yield();
    }
    ending = true;
    for (std::thread& builder : builders) {
        builder.join();
    }
}

TEST_F(FactoryBackedStorageSystem, DroppedFactoryIsNotShutDown) {
    addPhysical("aa");
    system->unregisterFactory("aa");
    shutdown();
    EXPECT_TRUE(log.empty());
}

TEST_F(FactoryBackedStorageSystem, SystemThatIsGoneHearsNoShutdown) {
    auto const a = addPhysical("aa");
    system.reset();
    shutdown();
    EXPECT_TRUE(log.empty());
    EXPECT_EQ(a.use_count(), 1);
}

TEST_F(FactoryBackedStorageSystem, LetsGoOfItsFactoriesBeforeTheEventManager) {
    class Mortal : public PhysicalFactory {
      public:
        Mortal(Log& events, Log& order) : PhysicalFactory("aa", events), order_(order) {}
        ~Mortal() override { order_.push_back("factory"); }

      private:
        Log& order_;
    };
    Log order;
    auto* const only = new EventMgr();
    boost::shared_ptr<EventMgr> owner(only, [&](EventMgr* last) {
        order.push_back("event manager");
        delete last;
    });
    auto dying = std::make_unique<ProviderFactoryBackedStorageSystem>(owner);
    dying->registerProviderFactory("aa", std::make_shared<Mortal>(log, order));
    owner.reset();
    dying.reset();
    EXPECT_EQ(order, (Log{"factory", "event manager"}));
}

TEST_F(FactoryBackedStorageSystem, ShutdownWaitsForABuildInProgress) {
    auto const a = addPhysical("aa");
    std::atomic<bool> building = false;
    std::atomic<bool> notifying = false;
    a->onBuild = [&] {
        building = true;
        while (!notifying) {
            std::this_thread::yield();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        log.push_back("built");
    };
    std::thread builder([&] { build(u"aa:/x"); });
    while (!building) {
        std::this_thread::yield();
    }
    notifying = true;
    shutdown();
    builder.join();
    EXPECT_EQ(log, (Log{"aa builds aa:/x", "built", "aa shuts down"}));
}

} // namespace
