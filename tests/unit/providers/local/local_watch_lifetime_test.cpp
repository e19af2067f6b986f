#include "watch_fixture.hpp"

#include "allocation_failure.hpp"
#include "child_process.hpp"

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/local/local_factory.hpp>

#include <boost/exception/errinfo_nested_exception.hpp>
#include <boost/exception/get_error_info.hpp>
#include <boost/exception_ptr.hpp>
#include <boost/property_tree/ptree.hpp>
#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <sys/syscall.h>
#include <thread>

namespace foundation::storage::provider::local::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class LocalWatchLifetime : public LocalWatchTest {
  protected:
    /// Publishes `w` with something else to do than to take notes.
    void publishDoing(std::function<void()> work) {
        provider_->publishFolderEvents(
            at("w"),
            [work = std::move(work)](Kind const&, StorageIRI const&, StorageIRI const&,
                                     EntryType const&, boost::property_tree::ptree) { work(); },
            namesOnly, RecursiveFileWatching::Recursive);
    }
    void stop() const { provider_->stopPublishingFolderEvents(at("w")); }
};

TEST_F(LocalWatchLifetime, OneThreadServesAllPublicationsAndGoesWithTheLast) {
    makeFolder("other");
    EXPECT_THAT(watchThreads(), IsEmpty());
    publish();
    publishTree("other");
    makeFile("w/file");
    publishFile("w/file");
    EXPECT_THAT(watchThreads(), SizeIs(1));

    provider_->stopPublishingFolderEvents(at("w"));
    provider_->stopPublishingFileEvents(at("w/file"));
    EXPECT_THAT(watchThreads(), SizeIs(1));
    provider_->stopPublishingFolderEvents(at("other"));

    EXPECT_TRUE(noWatchThreadIsLeft());
}

TEST_F(LocalWatchLifetime, DescriptorsAreGivenBack) {
    std::size_t const before = openDescriptors();
    for (int round = 0; round < 3; ++round) {
        publishTree();
        settle();
        EXPECT_EQ(openDescriptors(), before + 2);
        stop();
        ASSERT_TRUE(noWatchThreadIsLeft());
        EXPECT_EQ(openDescriptors(), before);
    }
}

TEST_F(LocalWatchLifetime, WhatFailsLeavesNothingBehind) {
    std::size_t const before = openDescriptors();

    EXPECT_THROW(publish("missing"), Exception);

    EXPECT_EQ(openDescriptors(), before);
    EXPECT_THAT(watchThreads(), IsEmpty());
}

TEST_F(LocalWatchLifetime, PublishingWithoutMemoryLeavesNothingBehind) {
    makeFolder("w/a");
    makeFolder("w/a/b");
    std::size_t const before = openDescriptors();
    bool happened = true;
    for (std::size_t round = 0; happened; ++round) {
        bool published = true;
        try {
            AllocationFailure const failure(round, happened);
            publishTree();
        } catch (std::bad_alloc const&) {
            published = false;
        }
        ASSERT_NE(published, happened) << round;
        if (!published) {
            ASSERT_EQ(openDescriptors(), before) << round;
            ASSERT_TRUE(noWatchThreadIsLeft()) << round;
        }
    }
    makeFile("w/a/b/file");
    EXPECT_TRUE(log_.waitForEntry(Kind::Created, "w/a/b/file"));
}

TEST_F(LocalWatchLifetime, ReportsThatThereIsNoMemoryForAreAnOverflow) {
    log_.keepView([&](auto const& top) { return disk(top); });
    std::atomic<int> failAfter = -1;
    std::optional<AllocationFailure> failure;
    bool happened = false;
    provider_->publishFolderEvents(
        at("w"),
        [&, take = log_.callback()](auto const& kind, auto const& watched, auto const& entry,
                                    auto const& type, auto const& extended) {
            {
                AllocationFailurePause const pause; // what is told here is not what fails
                take(kind, watched, entry, type, extended);
            }
            if (int const number = failAfter.exchange(-1); number >= 0) {
                failure.emplace(static_cast<std::size_t>(number), happened);
            }
        },
        namesOnly, RecursiveFileWatching::Recursive);
    for (int round = 0; round < 60; ++round) {
        failAfter = round; // in what is done behind the next report
        std::string const name = "w/" + std::to_string(round);
        makeFolder(name);
        makeFolder(name + "/inner");
        makeFile(name + "/inner/file");
        rename(name, name + "-moved");
        EXPECT_TRUE(log_.waitUntil([&] { return log_.view() == disk(); })) << round;
    }
    EXPECT_TRUE(log_.waitForOverflow());
    provider_.reset(); // before what the callback uses
    ASSERT_TRUE(noWatchThreadIsLeft());
}

TEST_F(LocalWatchLifetime, NoMoreThreadsIsARefusal) {
    EXPECT_EQ(inChild([&]() -> std::string {
                  std::size_t const before = openDescriptors();
                  injectFaults({{SYS_clone3, 0, 0, EAGAIN}, {SYS_clone, 0, 0, EAGAIN}});
                  try {
                      publishTree();
                  } catch (ChangeEventsSubscriptionException const& e) {
                      bool const hasCause =
                          boost::get_error_info<boost::errinfo_nested_exception>(e) != nullptr;
                      return hasCause && openDescriptors() == before ? "refused" : "not whole";
                  }
                  return "published";
              }),
              "refused");
}

TEST_F(LocalWatchLifetime, StoppingEndsTheOldestOfSeveral) {
    ChangeLog first(folder_.path());
    provider_->publishFolderEvents(at("w"), first.callback(), namesOnly,
                                   RecursiveFileWatching::NonRecursive);
    publishTree("w", namesOnly);

    stop();
    makeFile("w/file");

    EXPECT_THAT(reports(), ElementsAre("+ file w/file"));
    EXPECT_THAT(first.lines(), IsEmpty());
}

TEST_F(LocalWatchLifetime, StoppingWhatIsNotPublishedDoesNothing) {
    stop();
    provider_->stopPublishingFileEvents(at("missing"));
    publish("w", namesOnly);
    provider_->stopPublishingFolderEvents(at("missing"));

    makeFile("w/file");

    EXPECT_THAT(reports(), ElementsAre("+ file w/file"));
}

TEST_F(LocalWatchLifetime, NothingIsReportedBehindAStop) {
    std::atomic<int> calls = 0;
    publish("w", namesOnly); // its reports come behind those of the other
    publishDoing([&] { ++calls; });
    settle();

    provider_->stopPublishingFolderEvents(at("w"));
    provider_->stopPublishingFolderEvents(at("w"));
    int const before = calls;
    publish("w", namesOnly);
    makeFile("w/file");

    EXPECT_THAT(reports(), ElementsAre("+ file w/file"));
    EXPECT_EQ(calls, before);
}

TEST_F(LocalWatchLifetime, APublicationIsToldOfNothingThatWasBeforeIt) {
    makeFolder("w/sub");
    ChangeLog earlier(folder_.path());
    provider_->publishFolderEvents(at("w"), earlier.callback(), namesOnly,
                                   RecursiveFileWatching::Recursive);
    hold();
    remove("w/sub");
    makeFolder("w/sub");
    makeFile("w/sub/old");
    makeFile("w/old");
    remove("w/old");

    publish("w", namesOnly);
    publish("w/sub", namesOnly);
    publishFile("w/sub/old", namesOnly);
    makeFile("w/sub/new");
    release();

    EXPECT_THAT(reports(), ElementsAre("+ file w/sub/new"));
    EXPECT_TRUE(earlier.waitForEntry(Kind::Removed, "w/old"));
    EXPECT_TRUE(earlier.waitForEntry(Kind::Created, "w/sub/new"));
    provider_.reset(); // before what the callback uses
    ASSERT_TRUE(noWatchThreadIsLeft());
}

TEST_F(LocalWatchLifetime, AnIdleThreadDoesNotWakeUp) {
    publishTree();
    settle();
    settle();
    std::string const status = "/proc/self/task/" + *watchThreads().begin() + "/status";
    auto const switches = [&] {
        std::ifstream file(status);
        std::string result;
        for (std::string line; std::getline(file, line);) {
            result += line.find("ctxt_switches") != std::string::npos ? line + '\n' : "";
        }
        return result;
    };
    // What it does about the last event may still go on.
    std::string before = switches();
    for (int look = 0; look < 100; ++look) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        std::string const now = switches();
        if (now == before) {
            break;
        }
        before = now;
    }
    ASSERT_FALSE(before.empty());

    std::this_thread::sleep_for(std::chrono::milliseconds(300)); // the time that is measured

    EXPECT_EQ(switches(), before);
}

TEST_F(LocalWatchLifetime, ACallbackMayStopItsOwnPublication) {
    std::promise<void> stopped;
    std::atomic<int> calls = 0;
    publishDoing([&] {
        if (++calls == 1) {
            stop();
            stopped.set_value();
        }
    });

    makeFile("w/a");
    stopped.get_future().wait();
    makeFile("w/b");

    EXPECT_TRUE(noWatchThreadIsLeft());
    EXPECT_EQ(calls, 1);
}

TEST_F(LocalWatchLifetime, ACallbackMayPublish) {
    std::atomic<bool> done = false;
    publishDoing([&] {
        if (!done.exchange(true)) {
            makeFolder("more");
            publish("more", namesOnly);
            makeFile("more/file");
        }
    });

    makeFile("w/a");

    EXPECT_TRUE(log_.waitForEntry(Kind::Created, "more/file"));
}

TEST_F(LocalWatchLifetime, ACallbackMayChangeWhatIsWatched) {
    std::atomic<int> left = 10;
    publish("w", namesOnly);
    publishDoing([&] {
        if (--left > 0) {
            provider_->createFile(at("w/made" + std::to_string(left)));
        }
    });

    makeFile("w/a");

    EXPECT_TRUE(log_.waitForEntry(Kind::Created, "w/made1"));
}

TEST_F(LocalWatchLifetime, WhatACallbackThrowsHarmsNoOther) {
    publishDoing([] { throw std::runtime_error("handler"); });
    publish("w", namesOnly);

    makeFile("w/a");
    makeFile("w/b");

    EXPECT_THAT(reports(), ElementsAre("+ file w/a", "+ file w/b"));
}

TEST_F(LocalWatchLifetime, TheLastOwnerMayLetGoWithinACallback) {
    std::promise<void> gone;
    publishDoing([&, once = std::make_shared<std::once_flag>()] {
        std::call_once(*once, [&] {
            provider_.reset();
            gone.set_value();
        });
    });

    makeFile("w/a");
    gone.get_future().wait();

    EXPECT_TRUE(noWatchThreadIsLeft());
}

TEST_F(LocalWatchLifetime, AProviderMayGoWhileEventsArrive) {
    for (int round = 0; round < 20; ++round) {
        std::atomic<bool> enough = false;
        std::thread maker([&] {
            for (int number = 0; !enough; ++number) {
                std::string const name = path("w/" + std::to_string(number % 100));
                std::ofstream(name).put('x');
                std::filesystem::remove(name);
            }
        });
        auto provider = buildLocalProvider();
        auto log = std::make_shared<ChangeLog>(folder_.path());
        provider->publishFolderEvents(
            at("w"),
            [log, take = log->callback()](auto const& kind, auto const& watched, auto const& entry,
                                          auto const& type, auto extended) {
                take(kind, watched, entry, type, extended);
            },
            namesOnly, RecursiveFileWatching::Recursive);
        EXPECT_TRUE(log->waitForEntry(Kind::Created, "w/0"));
        provider.reset();
        enough = true;
        maker.join();
    }
    EXPECT_TRUE(noWatchThreadIsLeft());
}

TEST_F(LocalWatchLifetime, StoppingWaitsForNoCallback) {
    std::promise<void> entered;
    std::promise<void> released;
    publishDoing([&, once = std::make_shared<std::once_flag>()] {
        std::call_once(*once, [&] {
            entered.set_value();
            released.get_future().wait();
        });
    });
    makeFile("w/a");
    entered.get_future().wait();

    stop(); // would never come back

    released.set_value();
    EXPECT_TRUE(noWatchThreadIsLeft());
}

TEST_F(LocalWatchLifetime, ACallbackEndsWithItsPublication) {
    auto const held = std::make_shared<int>(0);
    publishDoing([held] {});
    ASSERT_GT(held.use_count(), 1);

    stop();

    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(LocalWatchLifetime, AShutDownFactoryEndsThePublicationsAndRefusesNewOnes) {
    LocalProviderFactory const factory;
    provider_ = factory.buildProvider(at("w"));
    publishTree();
    settle();

    factory.shutdownProvider();

    EXPECT_TRUE(noWatchThreadIsLeft());
    EXPECT_THROW(publish(), ChangeEventsSubscriptionException);
    EXPECT_THROW(publishFile("w/.marker-1"), ChangeEventsSubscriptionException);
    stop();
    provider_->createFile(at("w/file"));
    EXPECT_TRUE(provider_->fileExists(at("w/file")));
    factory.shutdownProvider();
}

TEST_F(LocalWatchLifetime, PublishingAndStoppingFromManyThreads) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        std::string const name = "w/" + std::to_string(thread);
        makeFolder(name);
        threads.emplace_back([this, name] {
            for (int round = 0; round < 50; ++round) {
                provider_->publishFolderEvents(at(name), log_.callback(), namesOnly,
                                               RecursiveFileWatching::Recursive);
                provider_->createFile(at(name + "/" + std::to_string(round)));
                provider_->stopPublishingFolderEvents(at(name));
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(noWatchThreadIsLeft());
}

} // namespace

} // namespace foundation::storage::provider::local::test
