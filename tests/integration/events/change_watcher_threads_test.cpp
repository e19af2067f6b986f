// Many threads watch, change and stop watching at once.

#include "watched_place.hpp"

#include <foundation/storage/vfs/storage_system/storage_system_reference.hpp>

#include <atomic>
#include <cstdlib>
#include <latch>
#include <vector>

namespace {

using namespace event_test;
using vfs::Event;
using vfs::File;
using vfs::Folder;
using vfs::WithRecursiveChangeEvents;

constexpr int threadCount = 4;

class ManyWatchers : public WatchedPlace {
  protected:
    /// Each of the threads does `round` until the time is over, VFS_LONG_TESTS in seconds.
    template<class Round>
    static void onManyThreads(Round round) {
        char const* const asked = std::getenv("VFS_LONG_TESTS");
        auto const length = std::chrono::milliseconds(asked ? 1000 * std::atoi(asked) : 300);
        auto const end = std::chrono::steady_clock::now() + length;
        std::latch start(threadCount);
        std::vector<std::thread> threads;
        for (int thread = 0; thread < threadCount; ++thread) {
            threads.emplace_back([&, thread] {
                start.arrive_and_wait();
                for (int n = 0; n < 10 || std::chrono::steady_clock::now() < end; ++n) {
                    round(thread, n);
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    static vfs::ustring nameOfRound(int thread, int n) {
        return fl::i18n::to_ustring("f" + std::to_string(thread) + '.' + std::to_string(n));
    }
};

TEST_P(ManyWatchers, EachHearsItsChangeOrOfALossAndNothingBehindItsEnd) {
    Folder const folders[] = {newFolder(u"a"), newFolder(u"b")};
    std::atomic<long> late = 0;
    onManyThreads([&](int thread, int n) {
        Folder const& folder = folders[(thread + n) % 2];
        bool const isDeep = (thread + n / 2) % 2 == 0;
        vfs::ustring const name = nameOfRound(thread, n);
        std::atomic<bool> told = false;
        // What the handler reads is poisoned as soon as disconnect() has returned.
        auto ended = std::make_unique<bool>(false);
        ScopedConnection connection =
            watcher.watch(folder, {Kind::Created},
                          isDeep ? WithRecursiveChangeEvents::Yes : WithRecursiveChangeEvents::No,
                          [&, flag = ended.get()](Event const& event) {
                              late += *flag ? 1 : 0;
                              auto const change = event.getEventData();
                              if (change.getKind() == Kind::Overflow ||
                                  getName(change.getFileOrFolder()) == name) {
                                  told = true;
                              }
                          });
        File const file(folder, name);
        file.createFile();
        EXPECT_TRUE(comesTrue([&] { return told.load(); })) << thread << ' ' << n;
        connection.disconnect();
        *ended = true;
        ended.reset();
        file.removeFile();
    });
    EXPECT_EQ(late, 0);
    EXPECT_TRUE(comesTrue([] { return watchThreads() == 0; }))
        << "the last who left has ended what was published";
}

TEST_P(ManyWatchers, HandlersMayWatchAndLeaveMeanwhile) {
    Folder const outer = newFolder(u"a");
    Folder const inner = newFolder(u"b");
    std::atomic<long> nestedWatches = 0;
    onManyThreads([&](int thread, int n) {
        vfs::ustring const name = nameOfRound(thread, n);
        std::atomic<bool> told = false;
        ScopedConnection connection =
            watcher.watch(outer, {Kind::Created}, WithRecursiveChangeEvents::No, [&](Event const&) {
                ScopedConnection const nested = watcher.watch(
                    inner, {Kind::Created}, WithRecursiveChangeEvents::Yes, [](Event const&) {});
                ++nestedWatches;
                told = true;
            });
        File const file(outer, name);
        File const other(inner, name);
        file.createFile();
        other.createFile();
        EXPECT_TRUE(comesTrue([&] { return told.load(); })) << thread << ' ' << n;
        connection.disconnect();
        file.removeFile();
        other.removeFile();
    });
    EXPECT_GE(nestedWatches, 10 * threadCount);
    EXPECT_TRUE(comesTrue([] { return watchThreads() == 0; }));
}

TEST_P(ManyWatchers, QueuedEventsReachWhoWatchesWhileOthersComeAndGo) {
    Folder const folder = newFolder(u"a");
    std::atomic<long> queued = 0;
    std::atomic<long> heard = 0;
    ScopedConnection const steady = watcher.watch(
        folder, {Kind::Modified}, WithRecursiveChangeEvents::No, [&](Event const& event) {
            heard += event.getEventData().getKind() == Kind::Modified ? 1 : 0;
        });
    onManyThreads([&](int thread, int n) {
        if (thread == 0) {
            manager->notify(Event(Kind::Modified, folder.getLocation(), folder, {}),
                            DeliverMode::Queued);
            ++queued;
            // The queue has no limit of its own.
            EXPECT_TRUE(comesTrue([&] { return heard >= queued - 100; }));
        } else {
            ScopedConnection const passing = watcher.watch(
                folder, {Kind::Modified},
                n % 2 == 0 ? WithRecursiveChangeEvents::Yes : WithRecursiveChangeEvents::No,
                [](Event const&) {});
        }
    });
    EXPECT_TRUE(comesTrue([&] { return heard == queued; }));
    EXPECT_GE(queued, 10);
}

INSTANTIATE_TEST_SUITE_P(RealStorages, ManyWatchers, realStorages, nameOf);

} // namespace
