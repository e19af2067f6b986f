#include <foundation/storage/vfs/events/publish_events.hpp>

#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/events/event_publisher.hpp>

#include "watched_storage.hpp"

#include <boost/exception/errinfo_nested_exception.hpp>
#include <boost/exception/get_error_info.hpp>
#include <boost/exception/info.hpp>
#include <boost/exception_ptr.hpp>

#include <boost/weak_ptr.hpp>

#include <gtest/gtest.h>

#include <sstream>

namespace {

using namespace vfs_test;
using foundation::msg_svc::eventmgr::Connection;
using foundation::msg_svc::eventmgr::DeliverMode;
using vfs::AbsoluteIRI;
using vfs::ErrorCode;
using vfs::EventPublisher;
using vfs::FileOrFolder;
using vfs::RecursiveEventPublisher;
using vfs::WithRecursiveChangeEvents;
using vfs::detail::publishEventsFor;
using vfs::detail::stopPublishingEventsFor;
using Log = std::vector<std::string>;

constexpr auto Yes = WithRecursiveChangeEvents::Yes;
constexpr auto No = WithRecursiveChangeEvents::No;

class EventPublishing : public WatchedStorage {
  protected:
    provider::ChangeKinds const kinds{Kind::Created, Kind::Removed};
    StorageIRI const child{u"mem:/d/f"};
    StorageIRI const deep{u"mem:/d/e/g"};
};

TEST(WithRecursiveChangeEvents, PrintsEverythingButZeroAsNo) {
    std::ostringstream out;
    out << Yes << ' ' << No << ' ' << static_cast<WithRecursiveChangeEvents>(2);
    EXPECT_EQ(out.str(), "WithRecursiveChangeEvents::Yes WithRecursiveChangeEvents::No "
                         "WithRecursiveChangeEvents::No");
    static_assert(static_cast<std::uint32_t>(Yes) == 0 && static_cast<std::uint32_t>(No) == 1);
}

TEST_F(EventPublishing, AsksTheProviderOnceForTheResourceAndTheKinds) {
    EXPECT_EQ(publishEventsFor(file(), kinds, No), manager.get());
    EXPECT_EQ(publishEventsFor(folder(), kinds, No), manager.get());
    EXPECT_EQ(publishEventsFor(folder(), kinds, Yes), manager.get());
    EXPECT_EQ(mem->log(), (Log{"publishFileEvents mem:/d/f", "publishFolderEvents mem:/d 1",
                               "hasFeature mem:/d 3", "publishFolderEvents mem:/d 0"}));
    for (Publication const& publication : published) {
        EXPECT_EQ(publication.kinds, kinds);
    }
}

TEST_F(EventPublishing, EveryValueButNoIsRecursive) {
    publishEventsFor(folder(), kinds, static_cast<WithRecursiveChangeEvents>(2));
    EXPECT_EQ(published.back().recursive, provider::RecursiveFileWatching::Recursive);
}

TEST_F(EventPublishing, WithoutAnEventManagerTheProviderIsNotAsked) {
    auto const bare = std::make_shared<vfs::PluggableStorageSystem>(nullptr);
    bare->registerPhysicalProvider("mem", [this] { return mem; });
    vfs::Folder const unheard(AbsoluteIRI(u"mem:/d"),
                              vfs::StorageSystemReference(std::weak_ptr<vfs::StorageSystem>(bare)));
    try {
        publishEventsFor(unheard, kinds, No);
        FAIL() << "nothing was thrown";
    } catch (vfs::ChangeEventsNotSupportedException const& e) {
        EXPECT_EQ(e.getLocation(), AbsoluteIRI(u"mem:/d"));
        EXPECT_EQ(boost::get_error_info<boost::errinfo_nested_exception>(e), nullptr);
    }
    EXPECT_TRUE(mem->calls().empty());
}

TEST_F(EventPublishing, SystemThatIsGoneThrowsFirst) {
    vfs::Folder const orphan = folder();
    system.reset();
    EXPECT_THROW(publishEventsFor(orphan, kinds, No), std::runtime_error);
    EXPECT_TRUE(mem->calls().empty());
}

TEST_F(EventPublishing, RecursivelyForAFileIsInvalidAndTheProviderIsNotAsked) {
    auto const recursively = [&] { publishEventsFor(file(), kinds, Yes); };
    EXPECT_EQ(codeOf(recursively), ErrorCode::InvalidLocation);
    RecursiveEventPublisher const publisher(reference, manager, DeliverMode::Immediate,
                                            StorageIRI(u"mem:/d"));
    try {
        file().publishEventsRecursively(publisher, kinds);
        FAIL() << "nothing was thrown";
    } catch (vfs::Exception const& e) {
        EXPECT_EQ(e.getErrorCode(), ErrorCode::InvalidLocation);
        EXPECT_EQ(e.getLocation(), AbsoluteIRI(u"mem:/d/f"));
    }
    EXPECT_TRUE(mem->calls().empty());
}

TEST_F(EventPublishing, RecursivelyWithoutTheFeatureIsUnsupported) {
    mem->onHasFeature = nullptr;
    EXPECT_EQ(codeOf([&] { publishEventsFor(folder(), kinds, Yes); }),
              ErrorCode::UnsupportedOperation);
    EXPECT_EQ(mem->calls(), (Log{"hasFeature"}));
    mem->onHasFeature = [](provider::ExtendedFeature) -> bool { fail(9, StorageIRI(u"mem:/d")); };
    EXPECT_EQ(rawCodeOf([&] { publishEventsFor(folder(), kinds, Yes); }), 9U)
        << "the question is not translated";
}

TEST_F(EventPublishing, ProvidersRefusalsAreTranslated) {
    auto const refuseWith = [&](auto thrower) {
        mem->onPublish = [thrower](StorageIRI const& at, auto&&...) { thrower(at); };
    };
    for (WithRecursiveChangeEvents const recursive : {Yes, No}) {
        refuseWith(
            [](StorageIRI const& at) { throw provider::ChangeEventsNotSupportedException(at); });
        EXPECT_THROW(publishEventsFor(folder(), kinds, recursive),
                     vfs::ChangeEventsNotSupportedException);
        refuseWith(
            [](StorageIRI const& at) { throw provider::ChangeEventsSubscriptionException(at); });
        EXPECT_THROW(publishEventsFor(folder(), kinds, recursive),
                     vfs::ChangeEventsSubscriptionException);
        refuseWith([](StorageIRI const& at) { fail(6, at); });
        EXPECT_EQ(codeOf([&] { publishEventsFor(folder(), kinds, recursive); }),
                  ErrorCode::ResourceInUse);
    }
    refuseWith([](StorageIRI const& at) { throw provider::ChangeEventsNotSupportedException(at); });
    try {
        publishEventsFor(file(), kinds, No);
        FAIL() << "nothing was thrown";
    } catch (vfs::ChangeEventsNotSupportedException const& e) {
        EXPECT_EQ(e.getLocation(), AbsoluteIRI(u"mem:/d/f"));
        EXPECT_NE(boost::get_error_info<boost::errinfo_nested_exception>(e), nullptr);
    }
}

TEST_F(EventPublishing, ReportBecomesAnEventUnderTheWatchedLocationBeforeTheCallReturns) {
    publishEventsFor(folder(), kinds, No);
    hear(u"mem:/d");
    ptree extended;
    extended.put("k", "v");
    std::string value;
    connections.push_back(manager->subscribe<vfs::Event>([&](vfs::Event const& event) {
        value = event.getExtendedEventData().getData(u"k").data();
    }));
    published[0].report(Kind::Created, StorageIRI(u"mem:/d"), child, EntryType::File, extended);
    EXPECT_EQ(heard, (Log{"0 mem:/d/f 0"}));
    EXPECT_EQ(value, "v");
}

TEST_F(EventPublishing, TypeZeroIsAFileAndEveryOtherAFolder) {
    publishEventsFor(folder(), kinds, No);
    std::vector<int> which;
    connections.push_back(manager->subscribe<vfs::Event>([&](vfs::Event const& event) {
        which.push_back(event.getEventData().getFileOrFolder().which());
    }));
    for (std::uint32_t const type : {0U, 1U, 2U}) {
        published[0].report(Kind::Created, StorageIRI(u"mem:/d"), child, EntryType(type), {});
    }
    EXPECT_EQ(which, (std::vector<int>{0, 1, 1}));
}

TEST_F(EventPublishing, RecursiveReportFromBelowCarriesTheTagOfTheRoot) {
    publishEventsFor(folder(), kinds, Yes);
    hear(u"mem:/d");
    published[0].report(Kind::Created, StorageIRI(u"mem:/d/e"), deep, EntryType::File, {});
    published[0].report(Kind::Modified, StorageIRI(u"mem:/d"), child, EntryType::File, {});
    EXPECT_EQ(heard, (Log{"0 mem:/d/e/g 0", "1 mem:/d/f 0"}));
}

TEST_F(EventPublishing, RecursiveReportFromElsewhereKeepsItsOwn) {
    publishEventsFor(folder(), kinds, Yes);
    hear(u"mem:/other");
    published[0].report(Kind::Created, StorageIRI(u"mem:/other"), StorageIRI(u"mem:/other/x"),
                        EntryType::File, {});
    EXPECT_EQ(heard, (Log{"0 mem:/other/x 0"}));
}

TEST_F(EventPublishing, FlatReportFromBelowKeepsItsOwn) {
    publishEventsFor(folder(), kinds, No);
    hear(u"mem:/d");
    published[0].report(Kind::Created, StorageIRI(u"mem:/d/e"), deep, EntryType::File, {});
    EXPECT_TRUE(heard.empty());
}

TEST_F(EventPublishing, EachEventHasTheSystemFindTheProvider) {
    int built = 0;
    system->registerPhysicalProvider("far", [&] {
        ++built;
        return mem;
    });
    publishEventsFor(folder(), kinds, No);
    published[0].report(Kind::Created, StorageIRI(u"mem:/d"), StorageIRI(u"far:/x"),
                        EntryType::File, {});
    EXPECT_EQ(built, 1);
}

TEST_F(EventPublishing, FailuresGoBackToTheProvider) {
    publishEventsFor(folder(), kinds, No);
    auto const report = published[0].report;
    EXPECT_THROW(
        report(Kind::Created, StorageIRI(u"mem:/d"), StorageIRI(u"no:/x"), EntryType::File, {}),
        vfs::UnsupportedIRISchemeException);
    EXPECT_THROW(
        report(Kind::Created, StorageIRI(u"mem:/d"), StorageIRI(u"mem://h"), EntryType::File, {}),
        vfs::InvalidIRIException);
    EXPECT_THROW(report(Kind::Created, StorageIRI(u"mem://h"), child, EntryType::File, {}),
                 vfs::InvalidIRIException);
    system.reset();
    EXPECT_THROW(report(Kind::Created, StorageIRI(u"mem:/d"), child, EntryType::File, {}),
                 std::runtime_error);
}

TEST_F(EventPublishing, PublisherKeepsTheEventManagerAlive) {
    publishEventsFor(folder(), kinds, No);
    boost::weak_ptr<EventMgr> const watched(manager);
    manager.reset();
    system.reset();
    EXPECT_FALSE(watched.expired());
    published.clear();
    EXPECT_TRUE(watched.expired());
}

TEST_F(EventPublishing, QueuedPublisherDeliversOnAnotherThread) {
    folder().publishEvents(EventPublisher(reference, manager, DeliverMode::Queued), kinds);
    std::atomic<bool> elsewhere = false;
    auto const caller = std::this_thread::get_id();
    connections.push_back(manager->subscribe<vfs::Event>(
        [&](vfs::Event const&) { elsewhere = std::this_thread::get_id() != caller; }));
    published[0].report(Kind::Created, StorageIRI(u"mem:/d"), child, EntryType::File, {});
    published.clear();
    system.reset();
    manager.reset(); // delivers what is queued
    EXPECT_TRUE(elsewhere);
}

TEST_F(EventPublishing, StoppingIsTheResourcesOwn) {
    stopPublishingEventsFor(file());
    stopPublishingEventsFor(folder());
    EXPECT_EQ(mem->log(),
              (Log{"stopPublishingFileEvents mem:/d/f", "stopPublishingFolderEvents mem:/d"}));
}

TEST_F(EventPublishing, UnsubscribeStopsAndThenDisconnects) {
    publishEventsFor(folder(), kinds, No);
    int count = 0;
    std::unique_ptr<Connection> const connection =
        manager->subscribe<vfs::Event>([&](vfs::Event const&) { ++count; });
    auto const report = published[0].report;
    mem->onStopPublishing = [&](StorageIRI const&) {
        report(Kind::Created, StorageIRI(u"mem:/d"), child, EntryType::File, {});
    };
    unsubscribe(folder(), connection);
    EXPECT_EQ(count, 1) << "still connected while it stops";
    EXPECT_NE(connection, nullptr);
    report(Kind::Created, StorageIRI(u"mem:/d"), child, EntryType::File, {});
    EXPECT_EQ(count, 1);
}

TEST_F(EventPublishing, UnsubscribeWithoutAConnectionStopsAndDoesNothingMore) {
    unsubscribe(folder(), nullptr);
    EXPECT_EQ(mem->calls(), (Log{"stopPublishingFolderEvents"}));
}

TEST_F(EventPublishing, ConnectionGoesOnWhereStoppingFails) {
    publishEventsFor(folder(), kinds, No);
    int count = 0;
    std::unique_ptr<Connection> const connection =
        manager->subscribe<vfs::Event>([&](vfs::Event const&) { ++count; });
    mem->onStopPublishing = [](StorageIRI const& at) { fail(9, at); };
    EXPECT_EQ(codeOf([&] { unsubscribe(folder(), connection); }), ErrorCode::IOError);
    published[0].report(Kind::Created, StorageIRI(u"mem:/d"), child, EntryType::File, {});
    EXPECT_EQ(count, 1);
}

} // namespace
