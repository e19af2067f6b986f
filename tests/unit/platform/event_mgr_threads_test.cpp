#include <foundation/msg_svc/eventmgr/event_mgr.hpp>

#include <foundation/msg_svc/eventmgr/shutdown_event.hpp>

#include "event_mgr_fixture.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <latch>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace event_test;

TEST_F(EventMgrTest, DisconnectWaitsForTheRunningHandler) {
    std::atomic<bool> inside = false;
    std::atomic<bool> go = false;
    std::atomic<bool> done = false;
    auto const connection = manager.subscribe<Signal>([&](Signal const&) {
        inside = true;
        EXPECT_TRUE(comesTrue([&] { return go.load(); }));
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        done = true;
    });
    std::thread notifying([&] { manager.notify(Signal(1), Immediate); });
    ASSERT_TRUE(comesTrue([&] { return inside.load(); }));
    go = true;
    connection->disconnect();
    EXPECT_TRUE(done);
    notifying.join();
}

TEST_F(EventMgrTest, DisconnectWaitsUntilWhatTheHandlerHoldsIsGone) {
    std::atomic<bool> inside = false;
    std::atomic<bool> disconnecting = false;
    std::atomic<bool> gone = false;
    struct Slow {
        explicit Slow(std::atomic<bool>& set) : flag(set) {}
        ~Slow() {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            flag = true;
        }
        Slow(Slow const&) = delete;
        Slow& operator=(Slow const&) = delete;
        std::atomic<bool>& flag;
    };
    auto connection = manager.subscribe<Signal>(
        [held = std::make_shared<Slow>(gone), &inside, &disconnecting](Signal const&) {
            inside = true;
            EXPECT_TRUE(comesTrue([&] { return disconnecting.load(); }));
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        });
    std::thread notifying([&] { manager.notify(Signal(1), Immediate); });
    ASSERT_TRUE(comesTrue([&] { return inside.load(); }));
    std::thread second([&] {
        disconnecting = true;
        connection->disconnect();
        EXPECT_TRUE(gone);
    });
    connection->disconnect();
    EXPECT_TRUE(gone);
    second.join();
    notifying.join();
}

TEST_F(EventMgrTest, HandlersThatDisconnectThemselvesAtOnceDoNotWaitForEachOther) {
    std::latch both(2);
    std::unique_ptr<Connection> connection;
    std::atomic<int> ended = 0;
    connection = manager.subscribe<Signal>([&](Signal const&) {
        both.arrive_and_wait();
        connection->disconnect();
        ++ended;
    });
    std::thread first([&] { manager.notify(Signal(1), Immediate); });
    std::thread second([&] { manager.notify(Signal(2), Immediate); });
    first.join();
    second.join();
    EXPECT_EQ(ended, 2);
}

TEST_F(EventMgrTest, HandlersRunOnManyThreadsAtOnce) {
    std::latch both(2);
    auto const connection =
        manager.subscribe<Signal>([&](Signal const&) { both.arrive_and_wait(); });
    std::thread other([&] { manager.notify(Signal(1), Immediate); });
    manager.notify(Signal(2), Immediate);
    other.join();
}

TEST_F(EventMgrTest, QueuedEventsComeInOrderOnOneOtherThread) {
    std::atomic<int> count = 0;
    std::vector<int> values;
    std::thread::id thread;
    auto const connection = manager.subscribe<Signal>([&](Signal const& signal) {
        EXPECT_TRUE(values.empty() || thread == std::this_thread::get_id());
        thread = std::this_thread::get_id();
        values.push_back(signal.value);
        ++count;
    });
    for (int i = 0; i < 100; ++i) {
        manager.notify(Signal(i), Queued);
    }
    ASSERT_TRUE(comesTrue([&] { return count == 100; }));
    EXPECT_NE(thread, std::this_thread::get_id());
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(values[static_cast<std::size_t>(i)], i);
    }
}

TEST_F(EventMgrTest, QueuedEventIsDeliveredToWhoIsSubscribedThen) {
    std::atomic<bool> go = false;
    auto const gate = manager.subscribe<Alarm>(
        [&](Alarm const&) { EXPECT_TRUE(comesTrue([&] { return go.load(); })); });
    auto const gone = manager.subscribe<Signal>(u"t", noting("gone "));
    manager.notify(Alarm(0), Queued);
    manager.notify(Signal(1, {u"t"}), Queued);
    gone->disconnect();
    std::atomic<int> heard = 0;
    auto const late = manager.subscribe<Signal>(u"t", [&](Signal const&) { ++heard; });
    go = true;
    EXPECT_TRUE(comesTrue([&] { return heard == 1; }));
    EXPECT_TRUE(notes.empty());
}

TEST(EventMgr, DeliversWhatIsQueuedBeforeItGoes) {
    int count = 0;
    {
        EventMgr manager;
        manager.subscribe<Signal>([&](Signal const&) { ++count; }).reset();
        for (int i = 0; i < 1000; ++i) {
            manager.notify(Signal(i), Queued);
        }
    }
    EXPECT_EQ(count, 1000);
}

TEST(EventMgr, MayGoWithTheLastQueuedEvent) {
    class Holding : public Signal {
      public:
        Holding(std::shared_ptr<EventMgr> made, std::atomic<bool>& set)
            : Signal(0),
              manager_(std::move(made)),
              gone_(&set) {}
        Holding(Holding const&) = default;
        Holding& operator=(Holding const&) = delete;
        ~Holding() override {
            if (manager_.use_count() == 1) {
                manager_.reset();
                *gone_ = true;
            }
        }
        Holding* clone() const override { return new Holding(*this); }

      private:
        std::shared_ptr<EventMgr> manager_;
        std::atomic<bool>* gone_;
    };
    std::atomic<bool> gone = false;
    std::atomic<bool> delivered = false;
    std::atomic<bool> released = false;
    {
        auto manager = std::make_shared<EventMgr>();
        manager
            ->subscribe<Signal>([&](Signal const&) {
                delivered = true;
                EXPECT_TRUE(comesTrue([&] { return released.load(); }));
            })
            .reset();
        {
            Holding const event(manager, gone);
            manager->notify(event, Queued);
        }
        ASSERT_TRUE(comesTrue([&] { return delivered.load(); }));
    }
    released = true;
    EXPECT_TRUE(comesTrue([&] { return gone.load(); }));
}

TEST(EventMgr, MayGoOnItsOwnThread) {
    auto manager = std::make_unique<EventMgr>();
    std::atomic<int> count = 0;
    std::atomic<bool> filled = false;
    manager
        ->subscribe<Signal>([&](Signal const&) {
            EXPECT_TRUE(comesTrue([&] { return filled.load(); }));
            manager.reset();
            ++count;
        })
        .reset();
    for (int i = 0; i < 10; ++i) {
        manager->notify(Signal(i), Queued);
    }
    filled = true;
    EXPECT_TRUE(comesTrue([&] { return count == 1; }));
}

TEST_F(EventMgrTest, TwoOutsidersMayDisconnectWhileTheHandlerRuns) {
    std::latch inside(2);
    std::atomic<int> asking = 0;
    std::atomic<int> running = 0;
    std::atomic<int> returnedEarly = 0;
    auto const connection = manager.subscribe<Signal>([&](Signal const&) {
        ++running;
        inside.count_down();
        EXPECT_TRUE(comesTrue([&] { return asking == 2; }));
        // Time enough for an outsider that does not wait to come back.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        --running;
    });
    auto const notify = [&] { manager.notify(Signal(1), Immediate); };
    auto const disconnect = [&] {
        ++asking;
        connection->disconnect();
        returnedEarly += running;
    };
    std::thread firstRun(notify);
    std::thread secondRun(notify);
    inside.wait();
    std::thread firstOutsider(disconnect);
    std::thread secondOutsider(disconnect);
    for (std::thread* thread : {&firstRun, &secondRun, &firstOutsider, &secondOutsider}) {
        thread->join();
    }
    EXPECT_EQ(returnedEarly, 0);
    manager.notify(Signal(2), Immediate);
    EXPECT_EQ(running, 0);
}

TEST(EventMgrQueue, ThreadIsNamedAndTakesNoSignalsOfTheProgram) {
    sigset_t before;
    ASSERT_EQ(::pthread_sigmask(SIG_SETMASK, nullptr, &before), 0);
    std::string name;
    std::vector<int> taken;
    {
        EventMgr manager;
        auto const connection = manager.subscribe<Signal>([&](Signal const&) {
            std::array<char, 16> buffer{};
            ::pthread_getname_np(::pthread_self(), buffer.data(), buffer.size());
            name = buffer.data();
            sigset_t mask;
            ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
            for (int const number : {SIGHUP, SIGINT, SIGTERM, SIGCHLD, SIGUSR1, SIGALRM}) {
                if (::sigismember(&mask, number) == 0) {
                    taken.push_back(number);
                }
            }
        });
        manager.notify(Signal(1), Queued);
        sigset_t after;
        ASSERT_EQ(::pthread_sigmask(SIG_SETMASK, nullptr, &after), 0);
        EXPECT_EQ(::sigismember(&after, SIGTERM), ::sigismember(&before, SIGTERM))
            << "who notifies has his own as before";
    }
    EXPECT_EQ(name, "vfs-events");
    EXPECT_EQ(taken, std::vector<int>());
}

TEST(EventMgrQueue, GoesOnBehindAHandlerThatThrows) {
    std::vector<int> heard;
    std::vector<std::string> texts;
    {
        EventMgr manager([&](std::exception_ptr const& thrown, StackTrace const& subscriber) {
            EXPECT_GT(subscriber.size(), 1U);
            try {
                std::rethrow_exception(thrown);
            } catch (std::exception const& e) {
                texts.emplace_back(e.what());
            } catch (int number) {
                texts.push_back(std::to_string(number));
            }
        });
        auto const throwing = manager.subscribe<Signal>([](Signal const& signal) {
            if (signal.value == 0) {
                throw std::runtime_error("from a handler");
            }
            throw signal.value;
        });
        auto const hearing =
            manager.subscribe<Signal>([&](Signal const& signal) { heard.push_back(signal.value); });
        for (int i = 0; i < 3; ++i) {
            manager.notify(Signal(i), Queued);
        }
    }
    EXPECT_EQ(texts, (std::vector<std::string>{"from a handler", "1", "2"}));
    EXPECT_EQ(heard, (std::vector<int>{0, 1, 2}));
}

TEST(EventMgrQueue, GoesOnBehindAProcessorThatThrows) {
    std::vector<int> heard;
    {
        EventMgr manager([](std::exception_ptr const&, StackTrace const&) { throw 1; });
        auto const throwing = manager.subscribe<Signal>([](Signal const&) { throw 2; });
        auto const hearing =
            manager.subscribe<Signal>([&](Signal const& signal) { heard.push_back(signal.value); });
        for (int i = 0; i < 3; ++i) {
            manager.notify(Signal(i), Queued);
        }
    }
    EXPECT_EQ(heard, (std::vector<int>{0, 1, 2}));
}

TEST(EventMgrQueue, GoesOnBehindAnEventThatCannotBeDelivered) {
    class Nameless : public TypeInformation {
      public:
        std::string const& getTypeName(std::size_t) const override {
            throw std::out_of_range("no name");
        }
        std::size_t getTypeCount() const noexcept override { return 1; }
    };
    class Undeliverable : public BaseEvent {
      public:
        Undeliverable() : BaseEvent(boost::make_shared<Nameless>()) {}
        Undeliverable* clone() const override { return new Undeliverable(); }
    };
    int heard = 0;
    int refused = 0;
    {
        EventMgr manager([&](std::exception_ptr const& thrown, StackTrace const& subscriber) {
            EXPECT_EQ(subscriber.size(), 0U) << "nobody's handler";
            EXPECT_THROW(std::rethrow_exception(thrown), std::out_of_range);
            ++refused;
        });
        auto const connection = manager.subscribe<Signal>([&](Signal const&) { ++heard; });
        manager.notify(Undeliverable(), Queued);
        manager.notify(Signal(1), Queued);
    }
    EXPECT_EQ(refused, 1);
    EXPECT_EQ(heard, 1);
}

TEST(EventMgrQueue, DeliversWhatHandlersQueueWhileTheManagerGoes) {
    std::vector<int> heard;
    std::atomic<bool> going = false;
    {
        EventMgr manager;
        auto const connection = manager.subscribe<Signal>([&](Signal const& signal) {
            EXPECT_TRUE(comesTrue([&] { return going.load(); }));
            heard.push_back(signal.value);
            if (signal.value < 5) {
                manager.notify(Signal(signal.value + 1), Queued);
                manager.notify(Alarm(signal.value + 100), Immediate);
            }
        });
        manager.notify(Signal(1), Queued);
        going = true;
    }
    EXPECT_EQ(heard, (std::vector<int>{1, 101, 2, 102, 3, 103, 4, 104, 5}));
}

TEST(EventMgrQueue, HandlerMaySubscribeWhileTheManagerGoes) {
    std::atomic<bool> going = false;
    std::vector<std::unique_ptr<Connection>> connections;
    std::vector<int> heard;
    {
        EventMgr manager;
        connections.push_back(manager.subscribe<Alarm>([&](Alarm const&) {
            EXPECT_TRUE(comesTrue([&] { return going.load(); }));
            connections.push_back(manager.subscribe<Signal>(
                [&](Signal const& signal) { heard.push_back(signal.value); }));
            manager.notify(Signal(7), Queued);
        }));
        manager.notify(Alarm(1), Queued);
        going = true;
    }
    EXPECT_EQ(heard, (std::vector<int>{7}));
}

TEST(EventMgr, MayGoFromAHandlerThatIsCalledAtOnce) {
    auto manager = std::make_unique<EventMgr>();
    std::mutex mutex;
    std::vector<std::string> notes;
    auto const note = [&](char const* what) {
        return [&, what](Signal const& signal) {
            std::lock_guard const lock(mutex);
            notes.push_back(what + std::to_string(signal.value));
        };
    };
    std::vector<std::unique_ptr<Connection>> connections;
    connections.push_back(manager->subscribe<Signal>(note("before ")));
    connections.push_back(manager->subscribe<Alarm>([&](Alarm const&) { manager.reset(); }));
    connections.push_back(manager->subscribe<Signal>(note("behind ")));
    manager->notify(Signal(1), Queued);
    manager->notify(Alarm(2), Immediate);
    EXPECT_EQ(manager, nullptr);
    for (auto const& connection : connections) {
        connection->disconnect();
    }
    // What was queued came before the manager had gone, the rest of the event behind.
    ASSERT_EQ(notes.size(), 4U);
    EXPECT_EQ(notes.back(), "behind 2");
    std::sort(notes.begin(), notes.end());
    EXPECT_EQ(notes, (std::vector<std::string>{"before 1", "before 2", "behind 1", "behind 2"}));
}

TEST(EventMgr, MayGoFromAHandlerThatIsCalledAtOnceOnTheQueuesThread) {
    auto manager = std::make_unique<EventMgr>();
    std::atomic<int> heard = 0;
    std::atomic<bool> filled = false;
    std::vector<std::unique_ptr<Connection>> connections;
    connections.push_back(manager->subscribe<Signal>([&](Signal const& signal) {
        EXPECT_TRUE(comesTrue([&] { return filled.load(); }));
        ++heard;
        if (signal.value == 0) {
            manager->notify(ShutdownEvent(), Immediate);
        }
    }));
    connections.push_back(
        manager->subscribe<ShutdownEvent>([&](ShutdownEvent const&) { manager.reset(); }));
    std::atomic<bool> toldBehind = false;
    connections.push_back(manager->subscribe<Signal>([&](Signal const&) { toldBehind = true; }));
    for (int i = 0; i < 10; ++i) {
        manager->notify(Signal(i), Queued);
    }
    filled = true;
    EXPECT_TRUE(comesTrue([&] { return toldBehind.load(); }));
    for (auto const& connection : connections) {
        connection->disconnect();
    }
    EXPECT_EQ(heard, 1) << "what was queued is dropped";
}

/// Eight threads notify, eight subscribe and disconnect: no handler runs once its connection has
/// been disconnected. VFS_LONG_TESTS is the time in seconds, for a run with the thread sanitizer.
TEST(EventMgr, NoHandlerRunsBehindItsDisconnectHoweverManyThreadsNotify) {
    char const* const asked = std::getenv("VFS_LONG_TESTS");
    auto const length = std::chrono::milliseconds(asked ? 1000 * std::atoi(asked) : 300);
    EventMgr manager;
    std::atomic<bool> ending = false;
    std::atomic<long> heard = 0;
    std::atomic<long> late = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&, i] {
            while (!ending) {
                manager.notify(Signal(i, {i % 2 == 0 ? u"even" : u"odd"}),
                               i == 7 ? Queued : Immediate);
            }
        });
        threads.emplace_back([&, i] {
            while (!ending) {
                // What the handler holds is poisoned as soon as disconnect() has returned.
                auto ended = std::make_unique<bool>(false);
                bool* const flag = ended.get();
                auto const connection = manager.subscribe<Signal>(i % 2 == 0 ? u"even" : u"odd",
                                                                  [&, flag](Signal const&) {
                                                                      late += *flag ? 1 : 0;
                                                                      ++heard;
                                                                  });
                std::this_thread::yield();
                connection->disconnect();
                *ended = true;
                ended.reset();
            }
        });
    }
    std::this_thread::sleep_for(length);
    ending = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_GT(heard, 0);
    EXPECT_EQ(late, 0);
}

} // namespace
