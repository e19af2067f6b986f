// Systems that are shut down, and that go, while real storages report changes.

#include "watched_place.hpp"

#include <foundation/msg_svc/eventmgr/shutdown_event.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>

#include <atomic>
#include <vector>

namespace {

using namespace event_test;
using foundation::msg_svc::eventmgr::ShutdownEvent;
using vfs::ChangeEventsSubscriptionException;
using vfs::Event;
using vfs::File;
using vfs::Folder;
using vfs::WithRecursiveChangeEvents;

constexpr auto No = WithRecursiveChangeEvents::No;

class Shutdown : public WatchedPlace {
  protected:
    /// A pluggable system tells its providers nothing.
    bool reachesStorages() const { return std::get<1>(GetParam()) == SystemKind::FactoryBacked; }
    bool isShutDown(Folder const& folder) {
        try {
            ScopedConnection const connection =
                watcher.watch(folder, {Kind::Created}, No, [](Event const&) {});
            return false;
        } catch (ChangeEventsSubscriptionException const&) {
            return true;
        }
    }
    /// Watches a folder with a handler that asks for the shutdown, and lets it run once.
    void shutDownFromAHandler(DeliverMode mode) {
        Folder const folder = newFolder(u"a");
        std::atomic<int> heard = 0;
        ScopedConnection connection =
            watcher.watch(folder, {Kind::Created}, No, [&](Event const& event) {
                if (getName(event.getEventData().getFileOrFolder()) == u"first") {
                    manager->notify(ShutdownEvent(), mode);
                }
                ++heard;
            });
        File(folder, u"first").createFile();
        ASSERT_TRUE(comesTrue([&] { return heard > 0; }));
        if (reachesStorages()) {
            ASSERT_TRUE(comesTrue([&] { return isShutDown(root()); }));
        }

        File const second(folder, u"second");
        second.createFile();
        EXPECT_TRUE(second.fileExists()) << "everything else goes on";
        if (!reachesStorages()) {
            EXPECT_TRUE(comesTrue([&] { return heard == 2; }));
            EXPECT_FALSE(isShutDown(folder));
        }
        EXPECT_NO_THROW(connection.disconnect());
        EXPECT_EQ(heard, reachesStorages() ? 1 : 2);
        EXPECT_TRUE(comesTrue([] { return watchThreads() == 0; }));
    }
};

TEST_P(Shutdown, MayComeAtOnceFromAHandlerOfAChange) {
    shutDownFromAHandler(DeliverMode::Immediate);
}

TEST_P(Shutdown, MayBeQueuedByAHandlerOfAChange) {
    shutDownFromAHandler(DeliverMode::Queued);
}

TEST_P(Shutdown, EndsWatchesThatComeAndGoOnOtherThreads) {
    constexpr int threadCount = 4;
    std::atomic<bool> ending = false;
    std::atomic<int> rounds = 0;
    std::atomic<int> refused = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&, i] {
            Folder const folder = newFolder(fl::i18n::to_ustring(std::to_string(i)));
            File const file(folder, u"f");
            while (!ending) {
                try {
                    ScopedConnection const connection =
                        watcher.watch(folder, {Kind::Created}, No, [](Event const&) {});
                    file.createFile();
                } catch (ChangeEventsSubscriptionException const&) {
                    ++refused;
                    return;
                }
                file.removeFile();
                ++rounds;
            }
        });
    }
    EXPECT_TRUE(comesTrue([&] { return rounds > 100; }));
    manager->notify(ShutdownEvent(), DeliverMode::Immediate);
    EXPECT_EQ(isShutDown(root()), reachesStorages());
    ending = !reachesStorages();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(refused, reachesStorages() ? threadCount : 0);
    EXPECT_TRUE(comesTrue([] { return watchThreads() == 0; }));
}

TEST_P(Shutdown, HandlerOfAChangeMayLetGoOfTheSystem) {
    std::atomic<bool> gone = false;
    ScopedConnection connection;
    {
        Folder const folder = newFolder(u"a");
        connection = watcher.watch(folder, {Kind::Created}, No, [&](Event const&) {
            system.reset();
            gone = true;
        });
        File(folder, u"f").createFile();
    }
    EXPECT_TRUE(comesTrue([&] { return gone.load(); }));
    EXPECT_THROW(root(), std::runtime_error);
    EXPECT_NO_THROW(connection.disconnect());
    EXPECT_TRUE(comesTrue([] { return watchThreads() == 0; }));
}

INSTANTIATE_TEST_SUITE_P(RealStorages, Shutdown, realStorages, nameOf);

} // namespace
