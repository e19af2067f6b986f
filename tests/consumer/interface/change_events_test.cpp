#include "storage_test.hpp"

#include <sstream>
#include <vector>

namespace {

using namespace consumer;
using foundation::msg_svc::eventmgr::Connection;
using foundation::msg_svc::eventmgr::DeliverMode;
using foundation::msg_svc::eventmgr::ScopedConnection;
using foundation::storage::events::createEventType;
using foundation::storage::events::EntryType;
using vfs::AbsoluteIRI;
using vfs::ErrorCode;
using vfs::Event;
using vfs::EventData;
using vfs::EventPublisher;
using vfs::ExtendedEventData;
using vfs::Folder;
using vfs::Kind;
using vfs::RecursiveEventPublisher;
using vfs::StorageIRI;
using vfs::WithRecursiveChangeEvents;
using vfs::detail::publishEventsFor;
using vfs::detail::stopPublishingEventsFor;
using Names = std::vector<vfs::ustring>;

constexpr auto Yes = WithRecursiveChangeEvents::Yes;
constexpr auto No = WithRecursiveChangeEvents::No;

class ChangeEvents : public StorageTest {
  protected:
    ChangeEvents() { folder(u"mem:/d/e").createFolderRecursive(); }

    /// Notes the names of what is created under a location.
    std::unique_ptr<Connection> hear(char16_t const* location) {
        return manager->subscribe<Event>(
            createEventType(Kind::Created, location), [this](Event const& event) {
                heard.push_back(getName(event.getEventData().getFileOrFolder()));
            });
    }

    std::vector<Kind> const kinds{Kind::Created};
    Folder const d = folder(u"mem:/d");
    Names heard;
};

TEST_F(ChangeEvents, EventTellsWhatHappenedToWhat) {
    boost::property_tree::ptree extended;
    extended.put("a.b", "value");
    Event const event(Kind::Removed, AbsoluteIRI(u"mem:/d"), file(u"mem:/d/f"), extended);
    EXPECT_EQ(Event::EventType(), "foundation::storage::vfs::Event");
    EXPECT_EQ(event.getSimpleEventData().getKind(), Kind::Removed);
    EXPECT_EQ(event.getSimpleEventData().getLocation(), u"mem:/d/f");
    EXPECT_EQ(event.getSimpleEventData().getEntryType(), EntryType::File);
    EXPECT_EQ(event.getEventData().getKind(), Kind::Removed);
    EXPECT_TRUE(event.hasExtendedEventData());
    EXPECT_EQ(event.getExtendedEventData().getData(u"a.b").data(), "value");
    EXPECT_TRUE(event.isKindOf("foundation::storage::events::Event"));

    std::unique_ptr<Event> const clone(event.clone());
    EXPECT_EQ(getName(clone->getEventData().getFileOrFolder()), u"f");
    EXPECT_EQ(clone->getExtendedEventData().getData(), extended);
}

TEST_F(ChangeEvents, PayloadsAreMadeByThemselves) {
    EventData const data(Kind::Modified, d);
    EXPECT_EQ(data.getKind(), Kind::Modified);
    EXPECT_EQ(getLocation(data.getFileOrFolder()), d.getLocation());
    EXPECT_TRUE(ExtendedEventData().empty());
    boost::property_tree::ptree tree;
    tree.put("k", "v");
    ExtendedEventData const extended(tree);
    EXPECT_FALSE(extended.empty());
    EXPECT_EQ(extended.getData(), tree);
    EXPECT_EQ(extended.getData(u"k").data(), "v");
    EXPECT_THROW(extended.getData(u"none"), std::runtime_error);
}

TEST_F(ChangeEvents, EnumerationPrints) {
    std::ostringstream out;
    out << Yes << ' ' << No;
    EXPECT_EQ(out.str(), "WithRecursiveChangeEvents::Yes WithRecursiveChangeEvents::No");
}

TEST_F(ChangeEvents, PublisherMakesAnEventOfAReport) {
    auto const connection = hear(u"mem:/d");
    EventPublisher const publisher(reference, manager, DeliverMode::Immediate);
    publisher(Kind::Created, StorageIRI(u"mem:/d"), StorageIRI(u"mem:/d/f"), EntryType::File, {});
    RecursiveEventPublisher const ofTree(reference, manager, DeliverMode::Immediate,
                                         StorageIRI(u"mem:/d"));
    ofTree(Kind::Created, StorageIRI(u"mem:/d/e"), StorageIRI(u"mem:/d/e/g"), EntryType::File, {});
    EXPECT_EQ(heard, (Names{u"f", u"g"}));
    connection->disconnect();
}

TEST_F(ChangeEvents, HandlesPublishAndStop) {
    auto const connection = hear(u"mem:/d");
    EventPublisher const publisher(reference, manager, DeliverMode::Immediate);
    d.publishEvents(publisher, kinds);
    file(u"mem:/d/f").createFile();
    d.stopPublishingEvents();
    file(u"mem:/d/g").createFile();
    EXPECT_EQ(heard, (Names{u"f"}));

    RecursiveEventPublisher const ofTree(reference, manager, DeliverMode::Immediate,
                                         d.getLocation().toStorageIRI());
    d.publishEventsRecursively(ofTree, kinds);
    file(u"mem:/d/e/h").createFile();
    d.stopPublishingEvents();
    EXPECT_EQ(heard, (Names{u"f", u"h"}));
    EXPECT_EQ(codeOf([&] { file(u"mem:/d/f").publishEventsRecursively(ofTree, kinds); }),
              ErrorCode::InvalidLocation);

    auto const ofFile = manager->subscribe<Event>(createEventType(Kind::Removed, u"mem:/d/f"),
                                                  [this](Event const&) { heard.clear(); });
    file(u"mem:/d/f").publishEvents(publisher, {Kind::Removed});
    file(u"mem:/d/f").removeFile();
    file(u"mem:/d/f").stopPublishingEvents();
    EXPECT_EQ(heard, Names());
    ofFile->disconnect();
    connection->disconnect();
}

TEST_F(ChangeEvents, WhatIsPublishedIsHeardUntilItIsUnsubscribed) {
    EXPECT_EQ(publishEventsFor(d, kinds, Yes), manager.get());
    std::unique_ptr<Connection> const connection = hear(u"mem:/d");
    file(u"mem:/d/e/f").createFile();
    vfs::unsubscribe(d, connection);
    file(u"mem:/d/e/g").createFile();
    EXPECT_EQ(heard, (Names{u"f"}));

    std::unique_ptr<Connection> const later = hear(u"mem:/d");
    publishEventsFor(d, kinds, No);
    file(u"mem:/d/h").createFile();
    stopPublishingEventsFor(d);
    file(u"mem:/d/i").createFile();
    EXPECT_EQ(heard, (Names{u"f", u"h"}));
    later->disconnect();
}

TEST_F(ChangeEvents, SystemWithoutAnEventManagerPublishesNothing) {
    auto const silent = std::make_shared<vfs::StorageSystemDecorator>(system);
    vfs::StorageSystemReference const silently{std::weak_ptr<vfs::StorageSystem>(silent)};
    EXPECT_THROW(publishEventsFor(Folder(AbsoluteIRI(u"mem:/d"), silently), kinds, No),
                 vfs::ChangeEventsNotSupportedException);
}

TEST_F(ChangeEvents, WatcherPublishesAndSubscribesInOne) {
    vfs::ChangeWatcher watcher;
    ScopedConnection watching = watcher.watch(d, kinds, No, [this](Event const& event) {
        heard.push_back(getName(event.getEventData().getFileOrFolder()));
    });
    file(u"mem:/d/f").createFile();
    watching.disconnect();
    file(u"mem:/d/g").createFile();
    EXPECT_EQ(heard, (Names{u"f"}));
}

} // namespace
