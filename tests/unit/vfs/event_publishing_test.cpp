#include <foundation/storage/vfs/events/publish_events.hpp>

#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/events/event_publisher.hpp>
#include <foundation/storage/vfs/storage_system/storage_system_decorator.hpp>

#include <foundation/msg_svc/eventmgr/shutdown_event.hpp>

#include "watched_storage.hpp"

#include <boost/exception/errinfo_nested_exception.hpp>
#include <boost/exception/get_error_info.hpp>
#include <boost/exception/info.hpp>
#include <boost/exception_ptr.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <sstream>
#include <stdexcept>

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

class EventPublishing : public WatchedStorageOfEitherSystem {
  protected:
    provider::ChangeKinds const kinds{Kind::Created, Kind::Removed};
    StorageIRI const child{u"mem:/d/f"};
};

TEST(WithRecursiveChangeEvents, PrintsEverythingButZeroAsNo) {
    std::ostringstream out;
    out << Yes << ' ' << No << ' ' << static_cast<WithRecursiveChangeEvents>(2);
    EXPECT_EQ(out.str(), "WithRecursiveChangeEvents::Yes WithRecursiveChangeEvents::No "
                         "WithRecursiveChangeEvents::No");
    static_assert(static_cast<std::uint32_t>(Yes) == 0 && static_cast<std::uint32_t>(No) == 1);
}

TEST_P(EventPublishing, AsksTheProviderOnceForTheResourceAndTheKinds) {
    EXPECT_EQ(publishEventsFor(file(), kinds, No), manager.get());
    EXPECT_EQ(publishEventsFor(folder(), kinds, No), manager.get());
    EXPECT_EQ(publishEventsFor(folder(), kinds, Yes), manager.get());
    EXPECT_EQ(mem->log(), (Log{"publishFileEvents mem:/d/f", "publishFolderEvents mem:/d 1",
                               "hasFeature mem:/d 3", "publishFolderEvents mem:/d 0"}));
    for (Publication const& publication : published) {
        EXPECT_EQ(publication.kinds, kinds);
    }
}

TEST_P(EventPublishing, EveryValueButNoIsRecursive) {
    publishEventsFor(folder(), kinds, static_cast<WithRecursiveChangeEvents>(2));
    EXPECT_EQ(published.back().recursive, provider::RecursiveFileWatching::Recursive);
    EXPECT_EQ(
        codeOf([&] { publishEventsFor(file(), kinds, static_cast<WithRecursiveChangeEvents>(2)); }),
        ErrorCode::InvalidLocation);
}

TEST_P(EventPublishing, WithoutAnEventManagerTheProviderIsNotAsked) {
    EitherSystem const bare(GetParam(), nullptr);
    bare.serve("mem", [this] { return mem; });
    // A decorator that does nothing more has none either, whatever it wraps.
    auto const decorator = std::make_shared<vfs::StorageSystemDecorator>(system.get());
    vfs::StorageSystemReference const decorated{std::weak_ptr<vfs::StorageSystem>(decorator)};
    for (vfs::StorageSystemReference const& unheard : {bare.reference(), decorated}) {
        for (FileOrFolder const& resource :
             {FileOrFolder(vfs::File(AbsoluteIRI(u"mem:/d/f"), unheard)),
              FileOrFolder(vfs::Folder(AbsoluteIRI(u"mem:/d"), unheard))}) {
            for (WithRecursiveChangeEvents const recursive : {Yes, No}) {
                try {
                    publishEventsFor(resource, kinds, recursive);
                    FAIL() << "nothing was thrown";
                } catch (vfs::ChangeEventsNotSupportedException const& e) {
                    EXPECT_EQ(e.getLocation(), getLocation(resource));
                    EXPECT_EQ(boost::get_error_info<boost::errinfo_nested_exception>(e), nullptr);
                }
            }
        }
    }
    EXPECT_TRUE(mem->calls().empty());
}

TEST_P(EventPublishing, SystemThatIsGoneThrowsFirst) {
    vfs::Folder const orphan = folder();
    vfs::File const orphanedFile = file();
    system.reset();
    EXPECT_THROW(publishEventsFor(orphan, kinds, No), std::runtime_error);
    EXPECT_THROW(publishEventsFor(orphan, kinds, Yes), std::runtime_error);
    EXPECT_THROW(publishEventsFor(orphanedFile, kinds, Yes), std::runtime_error);
    EXPECT_TRUE(mem->calls().empty());
}

TEST_P(EventPublishing, EmptyResolverThrowsFirst) {
    vfs::StorageSystemReference const empty{vfs::StorageSystemReference::Resolver()};
    vfs::Folder const lost(provider::StorageItem(mem, StorageIRI(u"mem:/d")), empty);
    EXPECT_THROW(publishEventsFor(lost, kinds, No), std::bad_function_call);
    EXPECT_TRUE(mem->calls().empty());
}

TEST_P(EventPublishing, HandlePublishesAndStopsWithoutItsSystem) {
    vfs::Folder const orphan = folder();
    vfs::File const orphanedFile = file();
    EventPublisher const publisher(reference, manager, DeliverMode::Immediate);
    publishEventsFor(orphan, kinds, No);
    std::unique_ptr<Connection> const none;
    system.reset();
    EXPECT_NO_THROW(stopPublishingEventsFor(orphan));
    orphanedFile.publishEvents(publisher, kinds);
    EXPECT_EQ(published.size(), 1U);
    EXPECT_NO_THROW(unsubscribe(orphanedFile, none));
    EXPECT_TRUE(published.empty());
}

TEST_P(EventPublishing, SwappedHandlesPublishThroughTheSystemThatEachHas) {
    auto const otherManager = boost::make_shared<EventMgr>();
    EitherSystem const other(GetParam(), otherManager);
    other.serve("mem", [this] { return mem; });
    vfs::Folder here = folder();
    vfs::Folder there(AbsoluteIRI(u"mem:/o"), other.reference());
    here.swap(there);
    EXPECT_EQ(publishEventsFor(here, kinds, No), manager.get());
    EXPECT_EQ(publishEventsFor(there, kinds, No), otherManager.get());
    EXPECT_EQ(mem->log(), (Log{"publishFolderEvents mem:/o 1", "publishFolderEvents mem:/d 1"}));
}

TEST_P(EventPublishing, PublishingTwiceIsTwoPublications) {
    publishEventsFor(folder(), kinds, No);
    publishEventsFor(folder(), kinds, No);
    hear(u"mem:/d");
    for (Publication const& publication : published) {
        publication.report(Kind::Created, StorageIRI(u"mem:/d"), child, EntryType::File, {});
    }
    EXPECT_EQ(heard, (Log{"0 mem:/d/f 0", "0 mem:/d/f 0"}));
    stopPublishingEventsFor(folder());
    EXPECT_EQ(mem->calls(),
              (Log{"publishFolderEvents", "publishFolderEvents", "stopPublishingFolderEvents"}));
}

TEST_P(EventPublishing, NothingIsPublishedOrHeardBeforeItIsAskedFor) {
    manager->notify(foundation::msg_svc::eventmgr::ShutdownEvent(), DeliverMode::Immediate);
    EXPECT_TRUE(mem->calls().empty());
    EXPECT_EQ(system.get()->getEventMgr(), manager);
    EXPECT_EQ(reference.getEventMgr(), manager);
}

TEST_P(EventPublishing, RecursivelyForAFileIsInvalidAndTheProviderIsNotAsked) {
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

TEST_P(EventPublishing, RecursivelyWithoutTheFeatureIsUnsupported) {
    mem->onHasFeature = nullptr;
    EXPECT_EQ(codeOf([&] { publishEventsFor(folder(), kinds, Yes); }),
              ErrorCode::UnsupportedOperation);
    EXPECT_EQ(mem->calls(), (Log{"hasFeature"}));
    mem->onHasFeature = [](provider::ExtendedFeature) -> bool { fail(9, StorageIRI(u"mem:/d")); };
    EXPECT_EQ(rawCodeOf([&] { publishEventsFor(folder(), kinds, Yes); }), 9U)
        << "the question is not translated";
}

TEST_P(EventPublishing, ProvidersRefusalsAreTranslated) {
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
}

/// The provider's exception that an exception of the system nests, thrown again.
template<class Failure>
void throwNested(Failure const& failure) {
    boost::exception_ptr const* const nested =
        boost::get_error_info<boost::errinfo_nested_exception>(failure);
    ASSERT_NE(nested, nullptr);
    boost::rethrow_exception(*nested);
}

TEST_P(EventPublishing, RefusalNamesWhatTheProviderNamedAndNestsItsException) {
    StorageIRI const elsewhere(u"mem:/elsewhere");
    mem->onPublish = [&](auto&&...) {
        throw provider::ChangeEventsNotSupportedException(elsewhere);
    };
    for (FileOrFolder const& resource : {FileOrFolder(file()), FileOrFolder(folder())}) {
        try {
            publishEventsFor(resource, kinds, No);
            FAIL() << "nothing was thrown";
        } catch (vfs::ChangeEventsNotSupportedException const& e) {
            EXPECT_EQ(e.getLocation().toStorageIRI(), elsewhere);
            EXPECT_THROW(throwNested(e), provider::ChangeEventsNotSupportedException);
        }
    }
    mem->onPublish = [&](auto&&...) {
        throw provider::ChangeEventsSubscriptionException(elsewhere);
    };
    for (FileOrFolder const& resource : {FileOrFolder(file()), FileOrFolder(folder())}) {
        try {
            publishEventsFor(resource, kinds, No);
            FAIL() << "nothing was thrown";
        } catch (vfs::ChangeEventsSubscriptionException const& e) {
            EXPECT_EQ(e.getLocation().toStorageIRI(), elsewhere);
            EXPECT_THROW(throwNested(e), provider::ChangeEventsSubscriptionException);
        }
    }
}

TEST_P(EventPublishing, ExceptionThatIsNoProvidersPassesUnchanged) {
    mem->onPublish = [](auto&&...) { throw std::bad_alloc(); };
    mem->onStopPublishing = [](StorageIRI const&) { throw std::bad_alloc(); };
    for (FileOrFolder const& resource : {FileOrFolder(file()), FileOrFolder(folder())}) {
        EXPECT_THROW(publishEventsFor(resource, kinds, No), std::bad_alloc);
        EXPECT_THROW(stopPublishingEventsFor(resource), std::bad_alloc);
    }
}

TEST_P(EventPublishing, EveryCodeOfTheProviderIsTranslated) {
    for (std::uint32_t code = 0; code <= 12; ++code) {
        mem->onPublish = [code](StorageIRI const& at, auto&&...) { fail(code, at); };
        mem->onStopPublishing = [code](StorageIRI const& at) { fail(code, at); };
        for (FileOrFolder const& resource : {FileOrFolder(file()), FileOrFolder(folder())}) {
            EXPECT_EQ(codeOf([&] { publishEventsFor(resource, kinds, No); }), translatedCode(code));
            EXPECT_EQ(codeOf([&] { stopPublishingEventsFor(resource); }), translatedCode(code));
        }
        EXPECT_EQ(codeOf([&] { publishEventsFor(folder(), kinds, Yes); }), translatedCode(code));
    }
}

TEST_P(EventPublishing, StoppingIsTheResourcesOwn) {
    stopPublishingEventsFor(file());
    stopPublishingEventsFor(folder());
    EXPECT_EQ(mem->log(),
              (Log{"stopPublishingFileEvents mem:/d/f", "stopPublishingFolderEvents mem:/d"}));
}

TEST_P(EventPublishing, UnsubscribeStopsAndThenDisconnects) {
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

TEST_P(EventPublishing, UnsubscribeWithoutAConnectionStopsAndDoesNothingMore) {
    unsubscribe(folder(), nullptr);
    EXPECT_EQ(mem->calls(), (Log{"stopPublishingFolderEvents"}));
}

TEST_P(EventPublishing, ConnectionGoesOnWhereStoppingFails) {
    publishEventsFor(folder(), kinds, No);
    int count = 0;
    std::unique_ptr<Connection> const connection =
        manager->subscribe<vfs::Event>([&](vfs::Event const&) { ++count; });
    mem->onStopPublishing = [](StorageIRI const& at) { fail(9, at); };
    EXPECT_EQ(codeOf([&] { unsubscribe(folder(), connection); }), ErrorCode::IOError);
    published[0].report(Kind::Created, StorageIRI(u"mem:/d"), child, EntryType::File, {});
    EXPECT_EQ(count, 1);
}

INSTANTIATE_TEST_SUITE_P(EitherSystem, EventPublishing, eitherSystem, nameOf);

} // namespace
