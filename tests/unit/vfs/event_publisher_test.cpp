#include <foundation/storage/vfs/events/event_publisher.hpp>

#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/events/publish_events.hpp>
#include <foundation/storage/vfs/resources/file_or_folder.hpp>
#include <foundation/storage/vfs/storage_system/unsupported_iri_scheme_exception.hpp>

#include "watched_storage.hpp"

#include <boost/weak_ptr.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <stdexcept>
#include <thread>

namespace {

using namespace vfs_test;
using foundation::msg_svc::eventmgr::DeliverMode;
using vfs::EventPublisher;
using vfs::WithRecursiveChangeEvents;
using vfs::detail::publishEventsFor;
using Log = std::vector<std::string>;

constexpr auto Yes = WithRecursiveChangeEvents::Yes;
constexpr auto No = WithRecursiveChangeEvents::No;

class EventPublisherTest : public WatchedStorageOfEitherSystem {
  protected:
    provider::ChangeKinds const kinds{Kind::Created, Kind::Removed};
    StorageIRI const child{u"mem:/d/f"};
    StorageIRI const deep{u"mem:/d/e/g"};
};

TEST_P(EventPublisherTest, ReportBecomesAnEventUnderTheWatchedLocationBeforeTheCallReturns) {
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

TEST_P(EventPublisherTest, TypeZeroIsAFileAndEveryOtherAFolder) {
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

TEST_P(EventPublisherTest, RecursiveReportFromBelowCarriesTheTagOfTheRoot) {
    publishEventsFor(folder(), kinds, Yes);
    hear(u"mem:/d");
    published[0].report(Kind::Created, StorageIRI(u"mem:/d/e"), deep, EntryType::File, {});
    published[0].report(Kind::Modified, StorageIRI(u"mem:/d"), child, EntryType::File, {});
    EXPECT_EQ(heard, (Log{"0 mem:/d/e/g 0", "1 mem:/d/f 0"}));
}

TEST_P(EventPublisherTest, RecursiveReportFromElsewhereKeepsItsOwn) {
    publishEventsFor(folder(), kinds, Yes);
    hear(u"mem:/other");
    published[0].report(Kind::Created, StorageIRI(u"mem:/other"), StorageIRI(u"mem:/other/x"),
                        EntryType::File, {});
    EXPECT_EQ(heard, (Log{"0 mem:/other/x 0"}));
}

TEST_P(EventPublisherTest, FlatReportFromBelowKeepsItsOwn) {
    publishEventsFor(folder(), kinds, No);
    hear(u"mem:/d");
    published[0].report(Kind::Created, StorageIRI(u"mem:/d/e"), deep, EntryType::File, {});
    EXPECT_TRUE(heard.empty());
}

TEST_P(EventPublisherTest, EachEventHasTheSystemFindTheProvider) {
    int built = 0;
    system.serve("far", [&] {
        ++built;
        return mem;
    });
    publishEventsFor(folder(), kinds, No);
    for (int i = 0; i < 3; ++i) {
        published[0].report(Kind::Created, StorageIRI(u"mem:/d"), StorageIRI(u"far:/x"),
                            EntryType::File, {});
    }
    EXPECT_EQ(built, GetParam() == SystemKind::Pluggable ? 1 : 3) << "one system keeps providers";
    system.stopServing("far");
    EXPECT_THROW(published[0].report(Kind::Created, StorageIRI(u"mem:/d"), StorageIRI(u"far:/x"),
                                     EntryType::File, {}),
                 vfs::UnsupportedIRISchemeException);
}

TEST_P(EventPublisherTest, ReportFromInsideAnItemHasTheProviderOfTheInside) {
    auto const inside = std::make_shared<FakeProvider>();
    inside->onFileExists = [](StorageIRI const&) { return true; };
    system.serveInside("box", [&](provider::StorageItem const& item) {
        EXPECT_EQ(item.getLocation(), StorageIRI(u"mem:/b"));
        EXPECT_EQ(item.getProvider(), mem);
        return inside;
    });
    publishEventsFor(folder(), kinds, No);
    bool isThere = false;
    connections.push_back(manager->subscribe<vfs::Event>([&](vfs::Event const& event) {
        isThere = exists(event.getEventData().getFileOrFolder());
    }));
    published[0].report(Kind::Created, StorageIRI(u"mem:/d"), StorageIRI(u"box:mem:/b!/x"),
                        EntryType::File, {});
    EXPECT_TRUE(isThere);
    EXPECT_EQ(inside->calls(), (Log{"fileExists"}));
}

TEST_P(EventPublisherTest, ProviderThatCannotBeBuiltIsAnExceptionOfTheSystemAndTheEventIsLost) {
    system.serve("bad",
                 []() -> std::shared_ptr<provider::IProvider> { fail(7, StorageIRI(u"bad:/")); });
    publishEventsFor(folder(), kinds, No);
    hear(u"mem:/d");
    EXPECT_EQ(codeOf([&] {
                  published[0].report(Kind::Created, StorageIRI(u"mem:/d"), StorageIRI(u"bad:/x"),
                                      EntryType::File, {});
              }),
              vfs::ErrorCode::ReadOnlyProvider);
    EXPECT_TRUE(heard.empty());
    published[0].report(Kind::Created, StorageIRI(u"mem:/d"), child, EntryType::File, {});
    EXPECT_EQ(heard, (Log{"0 mem:/d/f 0"})) << "the next is not";
}

TEST_P(EventPublisherTest, FailuresGoBackToTheProvider) {
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

TEST_P(EventPublisherTest, PublisherKeepsTheEventManagerAlive) {
    publishEventsFor(folder(), kinds, No);
    boost::weak_ptr<EventMgr> const watched(manager);
    manager.reset();
    system.reset();
    EXPECT_FALSE(watched.expired());
    published.clear();
    EXPECT_TRUE(watched.expired());
}

TEST_P(EventPublisherTest, QueuedPublisherDeliversOnAnotherThread) {
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

TEST_P(EventPublisherTest, HandlersRunOnTheThreadThatReports) {
    publishEventsFor(folder(), kinds, Yes);
    std::thread::id ran;
    connections.push_back(manager->subscribe<vfs::Event>(
        [&](vfs::Event const&) { ran = std::this_thread::get_id(); }));
    std::thread::id reported;
    std::thread([&] {
        reported = std::this_thread::get_id();
        published[0].report(Kind::Created, StorageIRI(u"mem:/d"), child, EntryType::File, {});
        EXPECT_EQ(ran, reported) << "before the report returns";
    }).join();
    EXPECT_EQ(ran, reported);
}

TEST_P(EventPublisherTest, ReportsOfOneThreadStayInOrder) {
    publishEventsFor(folder(), kinds, No);
    hear(u"mem:/d");
    Log expected;
    for (int i = 0; i < 50; ++i) {
        auto const name = "g" + std::to_string(i);
        expected.push_back((i % 2 == 0 ? "0 mem:/d/" : "3 mem:/d/") + name + " 0");
        published[0].report(i % 2 == 0 ? Kind::Created : Kind::Removed, StorageIRI(u"mem:/d"),
                            StorageIRI(StorageIRI(u"mem:/d"), fl::i18n::to_ustring(name)),
                            EntryType::File, {});
    }
    EXPECT_EQ(heard, expected);
}

TEST_P(EventPublisherTest, OneCallbackMayBeCalledByManyThreadsAtOnce) {
    constexpr int threadCount = 4;
    constexpr int reportCount = 200;
    publishEventsFor(folder(), kinds, Yes);
    std::atomic<int> count = 0;
    connections.push_back(manager->subscribe<vfs::Event>([&](vfs::Event const& event) {
        count += event.getSimpleEventData().getLocation() == u"mem:/d/e/g" ? 1 : 0;
    }));
    std::latch start(threadCount);
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&] {
            start.arrive_and_wait();
            for (int n = 0; n < reportCount; ++n) {
                published[0].report(Kind::Created, StorageIRI(u"mem:/d/e"), deep, EntryType::File,
                                    {});
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, threadCount * reportCount);
}

TEST_P(EventPublisherTest, HandlerThatThrowsDoesNotReachTheProvider) {
    publishEventsFor(folder(), kinds, No);
    connections.push_back(
        manager->subscribe<vfs::Event>([](vfs::Event const&) { throw std::runtime_error("no"); }));
    hear(u"mem:/d");
    EXPECT_NO_THROW(
        published[0].report(Kind::Created, StorageIRI(u"mem:/d"), child, EntryType::File, {}));
    EXPECT_EQ(heard, (Log{"0 mem:/d/f 0"}));
    EXPECT_EQ(thrown.exchange(0), 1);
}

INSTANTIATE_TEST_SUITE_P(EitherSystem, EventPublisherTest, eitherSystem, nameOf);

} // namespace
