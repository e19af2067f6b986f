#include <foundation/storage/vfs/events/change_watcher.hpp>

#include "watched_storage.hpp"

#include <gtest/gtest.h>

namespace {

using namespace vfs_test;
using foundation::msg_svc::eventmgr::ScopedConnection;
using vfs::ChangeWatcher;
using vfs::ErrorCode;
using vfs::Event;
using vfs::WithRecursiveChangeEvents;
using Log = std::vector<std::string>;
using Watching = provider::RecursiveFileWatching;

constexpr auto Yes = WithRecursiveChangeEvents::Yes;
constexpr auto No = WithRecursiveChangeEvents::No;

class ChangeWatcherTest : public WatchedStorageOfEitherSystem {
  protected:
    ScopedConnection watch(vfs::FileOrFolder const& resource, WithRecursiveChangeEvents recursive,
                           Log& notes,
                           std::vector<Kind> const& kinds = {Kind::Created, Kind::Removed}) {
        return watcher.watch(resource, kinds, recursive,
                             [&notes](Event const& event) { notes.push_back(text(event)); });
    }
    void report(Kind kind, char16_t const* watched, char16_t const* entry) {
        auto const all = published; // handlers may change it
        for (Publication const& publication : all) {
            publication.report(kind, StorageIRI(watched), StorageIRI(entry), EntryType::File, {});
        }
    }
    std::vector<std::optional<Watching>> publications() const {
        std::vector<std::optional<Watching>> found;
        for (Publication const& publication : published) {
            found.push_back(publication.recursive);
        }
        return found;
    }

    ChangeWatcher watcher;
    Log first;
    Log second;
};

TEST_P(ChangeWatcherTest, OneCallPublishesAndSubscribesAndOneObjectEndsBoth) {
    {
        ScopedConnection const connection = watch(folder(), No, first);
        EXPECT_EQ(published.size(), 1U);
        report(Kind::Created, u"mem:/d", u"mem:/d/f");
        EXPECT_EQ(first, (Log{"0 mem:/d/f 0"}));
    }
    EXPECT_TRUE(published.empty());
}

TEST_P(ChangeWatcherTest, EverythingIsPublishedAndEachHearsTheKindsThatItAskedFor) {
    ScopedConnection const connection = watch(folder(), No, first, {Kind::Removed});
    EXPECT_EQ(published[0].kinds.size(), 5U);
    report(Kind::Created, u"mem:/d", u"mem:/d/f");
    report(Kind::Removed, u"mem:/d", u"mem:/d/f");
    report(Kind::Overflow, u"mem:/d", u"mem:/d");
    EXPECT_EQ(first, (Log{"3 mem:/d/f 0", "4 mem:/d 0"})) << "an overflow always";
}

TEST_P(ChangeWatcherTest, SeveralShareOnePublicationUntilTheLastLeaves) {
    ScopedConnection one = watch(folder(), No, first);
    ScopedConnection two = watch(folder(), No, second);
    EXPECT_EQ(published.size(), 1U);
    report(Kind::Created, u"mem:/d", u"mem:/d/f");
    one.disconnect();
    EXPECT_EQ(published.size(), 1U);
    report(Kind::Created, u"mem:/d", u"mem:/d/g");
    two.disconnect();
    EXPECT_TRUE(published.empty());
    EXPECT_EQ(first, (Log{"0 mem:/d/f 0"}));
    EXPECT_EQ(second, (Log{"0 mem:/d/f 0", "0 mem:/d/g 0"}));
}

TEST_P(ChangeWatcherTest, RecursiveTakesThePlaceOfFlatAndStaysUntilTheLastLeaves) {
    ScopedConnection one = watch(folder(), No, first);
    EXPECT_EQ(publications(), (std::vector<std::optional<Watching>>{Watching::NonRecursive}));
    ScopedConnection deep = watch(folder(), Yes, second);
    EXPECT_EQ(publications(), (std::vector<std::optional<Watching>>{Watching::Recursive}));
    EXPECT_EQ(first, (Log{"4 mem:/d 1"})) << "what waited may have gone with the flat one";
    EXPECT_TRUE(second.empty());
    deep.disconnect();
    EXPECT_EQ(publications(), (std::vector<std::optional<Watching>>{Watching::Recursive}));
    one.disconnect();
    EXPECT_TRUE(published.empty());
}

TEST_P(ChangeWatcherTest, SpellingsOfOneLocationShareAPublicationAndItsText) {
    ScopedConnection one = watch(folder(), No, first);
    ScopedConnection two = watch(folder(u"mem:/d/"), No, second);
    EXPECT_EQ(published.size(), 1U);
    two.disconnect();
    report(Kind::Created, u"mem:/d", u"mem:/d/f");
    EXPECT_EQ(first, (Log{"0 mem:/d/f 0"}));
    two = watch(folder(u"mem:/d/"), No, second);
    report(Kind::Created, u"mem:/d", u"mem:/d/g");
    EXPECT_EQ(second, (Log{"0 mem:/d/g 0"}));
}

TEST_P(ChangeWatcherTest, FileAndFolderOfOneLocationAreWatchedApart) {
    ScopedConnection const asFolder = watch(folder(), No, first);
    {
        ScopedConnection const asFile = watch(file(u"mem:/d"), No, second);
        EXPECT_EQ(publications(),
                  (std::vector<std::optional<Watching>>{Watching::NonRecursive, std::nullopt}));
    }
    Log const calls = mem->calls();
    EXPECT_EQ(calls.back(), "stopPublishingFileEvents");
}

TEST_P(ChangeWatcherTest, StorageSystemsAreWatchedApart) {
    auto const manager2 = boost::make_shared<EventMgr>();
    EitherSystem const system2(GetParam(), manager2);
    auto const mem2 = std::make_shared<FakeProvider>();
    int published2 = 0;
    mem2->onPublish = [&](auto&&...) { ++published2; };
    mem2->onStopPublishing = [&](StorageIRI const&) { --published2; };
    system2.serve("mem", [&] { return mem2; });
    vfs::Folder const other(vfs::AbsoluteIRI(u"mem:/d"), system2.reference());
    ScopedConnection const one = watch(folder(), No, first);
    {
        ScopedConnection const two = watch(other, No, second);
        EXPECT_EQ(published2, 1);
    }
    EXPECT_EQ(published2, 0);
    EXPECT_EQ(published.size(), 1U);
}

TEST_P(ChangeWatcherTest, PublicationIsStoppedWhereItWasStarted) {
    auto const later = std::make_shared<FakeProvider>();
    int stopped = 0;
    later->onStopPublishing = [&](StorageIRI const&) { ++stopped; };
    vfs::Folder const elsewhere(provider::StorageItem(later, StorageIRI(u"mem:/d")), reference);
    ScopedConnection one = watch(folder(), No, first);
    ScopedConnection two = watch(elsewhere, No, second);
    one.disconnect();
    two.disconnect();
    EXPECT_EQ(stopped, 0);
    EXPECT_TRUE(published.empty());
}

TEST_P(ChangeWatcherTest, StorageMayReportFromInside) {
    ScopedConnection one;
    one = watcher.watch(folder(), {Kind::Created}, No, [&](Event const& event) {
        first.push_back(text(event));
        one.disconnect();
    });
    auto const publish = mem->onPublish;
    mem->onPublish = [&](StorageIRI const& location, provider::ChangeCallback callback,
                         provider::ChangeKinds const& kinds, auto recursive) {
        publish(location, callback, kinds, recursive);
        callback(Kind::Created, location, StorageIRI(u"mem:/d/f"), EntryType::File, {});
    };
    ScopedConnection const two = watch(folder(), Yes, second);
    EXPECT_EQ(first, (Log{"0 mem:/d/f 0"}));
    EXPECT_EQ(publications(), (std::vector<std::optional<Watching>>{Watching::Recursive}));
    report(Kind::Created, u"mem:/d/e", u"mem:/d/e/g");
    EXPECT_EQ(second, (Log{"0 mem:/d/e/g 0"}));
}

TEST_P(ChangeWatcherTest, PublicationThatCannotBeStoppedIsUsedAgain) {
    auto const stop = mem->onStopPublishing;
    mem->onStopPublishing = [](StorageIRI const& at) { fail(9, at); };
    watch(folder(), No, first).disconnect();
    ScopedConnection one = watch(folder(), No, first);
    EXPECT_EQ(published.size(), 1U);
    report(Kind::Created, u"mem:/d", u"mem:/d/f");
    EXPECT_EQ(first, (Log{"0 mem:/d/f 0"}));
    EXPECT_NO_THROW({ ScopedConnection const deep = watch(folder(), Yes, second); });
    mem->onStopPublishing = stop;
    one.disconnect();
    EXPECT_TRUE(published.empty());
}

TEST_P(ChangeWatcherTest, HandlerKeepsOneStateForAllKinds) {
    int last = 0;
    ScopedConnection const connection =
        watcher.watch(folder(), {Kind::Created, Kind::Removed, Kind::Removed}, No,
                      [&last, count = 0](Event const&) mutable { last = ++count; });
    report(Kind::Created, u"mem:/d", u"mem:/d/f");
    report(Kind::Removed, u"mem:/d", u"mem:/d/f");
    EXPECT_EQ(last, 2);
}

TEST_P(ChangeWatcherTest, FlatWatcherOfAPublishedTreeHearsOfTheFolderAndItsChildrenAlone) {
    ScopedConnection const deep = watch(folder(), Yes, second);
    ScopedConnection const flat = watch(folder(), No, first);
    report(Kind::Created, u"mem:/d", u"mem:/d/f");
    report(Kind::Created, u"mem:/d/e", u"mem:/d/e/g");
    report(Kind::Removed, u"mem:/d", u"mem:/d");
    EXPECT_EQ(first, (Log{"0 mem:/d/f 0", "3 mem:/d 0"}));
    EXPECT_EQ(second, (Log{"0 mem:/d/f 0", "0 mem:/d/e/g 0", "3 mem:/d 0"}));
}

TEST_P(ChangeWatcherTest, NothingIsLeftBehindWhereWatchingFails) {
    mem->onHasFeature = nullptr;
    EXPECT_EQ(codeOf([&] { auto const c = watch(folder(), Yes, first); }),
              ErrorCode::UnsupportedOperation);
    ScopedConnection const flat = watch(folder(), No, first);
    EXPECT_EQ(codeOf([&] { auto const c = watch(folder(), Yes, second); }),
              ErrorCode::UnsupportedOperation);
    EXPECT_EQ(publications(), (std::vector<std::optional<Watching>>{Watching::NonRecursive}));
    report(Kind::Created, u"mem:/d", u"mem:/d/f");
    EXPECT_EQ(first, (Log{"0 mem:/d/f 0"}));
    EXPECT_TRUE(second.empty());
}

TEST_P(ChangeWatcherTest, FilesAreWatchedToo) {
    ScopedConnection const connection = watch(file(), No, first);
    report(Kind::Removed, u"mem:/d/f", u"mem:/d/f");
    EXPECT_EQ(first, (Log{"3 mem:/d/f 0"}));
    EXPECT_EQ(codeOf([&] { auto const c = watch(file(), Yes, second); }),
              ErrorCode::InvalidLocation);
}

TEST_P(ChangeWatcherTest, HandlerMayEndItselfAndWatchAnother) {
    ScopedConnection connection;
    ScopedConnection other;
    connection = watcher.watch(folder(), {Kind::Created}, No, [&](Event const& event) {
        first.push_back(text(event));
        connection.disconnect();
        other = watch(folder(u"mem:/o"), No, second);
    });
    report(Kind::Created, u"mem:/d", u"mem:/d/f");
    report(Kind::Created, u"mem:/d", u"mem:/d/f");
    report(Kind::Created, u"mem:/o", u"mem:/o/x");
    EXPECT_EQ(first, (Log{"0 mem:/d/f 0"}));
    EXPECT_EQ(second, (Log{"0 mem:/o/x 0"}));
    EXPECT_EQ(published.size(), 1U);
}

TEST_P(ChangeWatcherTest, ConnectionsGoOnWithoutTheWatcher) {
    ScopedConnection connection;
    {
        ChangeWatcher mortal;
        connection = mortal.watch(folder(), {Kind::Created}, No,
                                  [&](Event const& event) { first.push_back(text(event)); });
    }
    report(Kind::Created, u"mem:/d", u"mem:/d/f");
    connection.disconnect();
    EXPECT_EQ(first, (Log{"0 mem:/d/f 0"}));
    EXPECT_TRUE(published.empty());
}

TEST_P(ChangeWatcherTest, FailureToStopReachesNobody) {
    ScopedConnection connection = watch(folder(), No, first);
    mem->onStopPublishing = [](StorageIRI const& at) { fail(9, at); };
    EXPECT_NO_THROW(connection.disconnect());
    report(Kind::Created, u"mem:/d", u"mem:/d/f");
    EXPECT_TRUE(first.empty());
}

INSTANTIATE_TEST_SUITE_P(EitherSystem, ChangeWatcherTest, eitherSystem, nameOf);

} // namespace
