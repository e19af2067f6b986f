#include <foundation/msg_svc/eventmgr/event_mgr.hpp>

#include <foundation/msg_svc/eventmgr/shutdown_event.hpp>
#include <foundation/storage/events/event.hpp>

#include "unit/log_collector.hpp"

#include <boost/log/core.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/make_shared.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <latch>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace foundation::msg_svc::eventmgr;
using fl::i18n::ustring;

class Signal : public BaseEvent {
  public:
    using EventBase = BaseEvent;

    explicit Signal(int made, std::vector<ustring> const& tags = {})
        : Signal(made, tags, boost::make_shared<detail::DerivedTypeInformation<Signal>>()) {}
    Signal* clone() const override {
        ++clones;
        return new Signal(*this);
    }
    static std::string const& EventType() {
        static std::string const name = "test::Signal";
        return name;
    }

    int value;
    static inline std::atomic<int> clones = 0;

  protected:
    Signal(int made, std::vector<ustring> const& tags, boost::shared_ptr<TypeInformation> type)
        : BaseEvent(type),
          value(made) {
        type->addUserTags(tags);
    }
};

class Alarm : public Signal {
  public:
    using EventBase = Signal;

    explicit Alarm(int made, std::vector<ustring> const& tags = {})
        : Signal(made, tags, boost::make_shared<detail::DerivedTypeInformation<Alarm>>()) {}
    Alarm* clone() const override { return new Alarm(*this); }
    static std::string const& EventType() {
        static std::string const name = "test::Alarm";
        return name;
    }
};

template<class Condition>
bool comesTrue(Condition condition) {
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

constexpr auto Queued = DeliverMode::Queued;
constexpr auto Immediate = DeliverMode::Immediate;

class EventMgrTest : public testing::Test {
  protected:
    auto noting(std::string const& name) {
        return [this, name](Signal const& signal) {
            notes.push_back(name + std::to_string(signal.value));
        };
    }

    EventMgr manager;
    std::vector<std::string> notes;
};

TEST(TypeInformation, NamesTheTypesFromTheMostDerived) {
    ShutdownEvent const event;
    TypeInformation const& type = event.getTypeInformation();
    EXPECT_EQ(type.getTypeCount(), 2U);
    EXPECT_EQ(type.getTypeName(0), "foundation::msg_svc::eventmgr::ShutdownEvent");
    EXPECT_EQ(type.getTypeName(1), "foundation::msg_svc::eventmgr::BaseEvent");
    EXPECT_TRUE(type.getUserTags().empty());
    for (std::size_t const behind : {std::size_t{2}, std::size_t{7}}) {
        try {
            (void)type.getTypeName(behind);
            FAIL() << "nothing was thrown";
        } catch (std::out_of_range const& e) {
            EXPECT_STREQ(e.what(), "eventmgr::BaseEvent has no base types.");
        }
    }
}

TEST(TypeInformation, TagsAreAddedBehindEachOther) {
    detail::DerivedTypeInformation<Signal> type;
    type.addUserTags(std::array<ustring, 1>{u"a"});
    type.addUserTags(std::vector<ustring>{u"b", u"c"});
    EXPECT_EQ(type.getUserTags(), (std::vector<ustring>{u"a", u"b", u"c"}));
}

TEST(BaseEvent, IsOfItsOwnKindAndThoseAbove) {
    Alarm const alarm(1);
    EXPECT_TRUE(alarm.isKindOf("test::Alarm"));
    EXPECT_TRUE(alarm.isKindOf("test::Signal"));
    EXPECT_TRUE(alarm.isKindOf("foundation::msg_svc::eventmgr::BaseEvent"));
    EXPECT_FALSE(alarm.isKindOf("test::Ala"));
    EXPECT_FALSE(Signal(1).isKindOf("test::Alarm"));
}

TEST(BaseEvent, IsNeitherSerializedNorLetOutOfTheProcess) {
    Signal const signal(1);
    std::ostringstream out;
    signal.fillStream(out);
    EXPECT_FALSE(signal.canBeSerialized());
    EXPECT_FALSE(signal.isQuillonClientsAllowed());
    EXPECT_EQ(out.str(), "");
}

TEST(DeliverMode, KeepsItsNumbers) {
    static_assert(static_cast<std::uint32_t>(DeliverMode::Queued) == 0);
    static_assert(static_cast<std::uint32_t>(DeliverMode::Immediate) == 1);
    static_assert(sizeof(DeliverMode) == 4);
}

TEST_F(EventMgrTest, DeliversACloneBeforeNotifyReturns) {
    Signal const* delivered = nullptr;
    auto const connection =
        manager.subscribe<Signal>([&](Signal const& signal) { delivered = &signal; });
    Signal const signal(1);
    Signal::clones = 0;
    manager.notify(signal, Immediate);
    EXPECT_NE(delivered, nullptr);
    EXPECT_NE(delivered, &signal);
    EXPECT_EQ(Signal::clones, 1);
}

TEST_F(EventMgrTest, DeliversInTheOrderOfSubscribing) {
    auto const tagged = manager.subscribe<Signal>(u"t", noting("tagged "));
    auto const all = manager.subscribe<Signal>(noting("all "));
    auto const base =
        manager.subscribe<BaseEvent>([&](BaseEvent const&) { notes.push_back("base"); });
    auto const again = manager.subscribe<Signal>(u"t", noting("again "));
    manager.notify(Signal(1, {u"t"}), Immediate);
    EXPECT_EQ(notes, (std::vector<std::string>{"tagged 1", "all 1", "base", "again 1"}));
}

TEST_F(EventMgrTest, TagChoosesAndNoTagTakesAll) {
    auto const a = manager.subscribe<Signal>(u"a", noting("a "));
    auto const b = manager.subscribe<Signal>(u"b", noting("b "));
    auto const empty = manager.subscribe<Signal>(u"", noting("empty "));
    auto const all = manager.subscribe<Signal>(noting("all "));
    manager.notify(Signal(1, {u"a"}), Immediate);
    manager.notify(Signal(2), Immediate);
    manager.notify(Signal(3, {u"b", u"a"}), Immediate);
    manager.notify(Signal(4, {u"a", u"a"}), Immediate);
    EXPECT_EQ(notes, (std::vector<std::string>{"a 1", "all 1", "all 2", "a 3", "b 3", "all 3",
                                               "a 4", "all 4"}));
}

TEST_F(EventMgrTest, SubscribersOfATypeGetWhatIsDerivedFromItAndNothingElse) {
    auto const signals = manager.subscribe<Signal>(noting("signal "));
    auto const alarms = manager.subscribe<Alarm>([&](Alarm const&) { notes.push_back("alarm"); });
    manager.notify(Alarm(1), Immediate);
    manager.notify(Signal(2), Immediate);
    manager.notify(ShutdownEvent(), Immediate);
    EXPECT_EQ(notes, (std::vector<std::string>{"signal 1", "alarm", "signal 2"}));
}

TEST_F(EventMgrTest, DisconnectedHandlerIsNotCalledAndLetsGoOfWhatItHolds) {
    auto const held = std::make_shared<int>(1);
    auto const connection = manager.subscribe<Signal>([held](Signal const&) {});
    EXPECT_EQ(held.use_count(), 2);
    connection->disconnect();
    EXPECT_EQ(held.use_count(), 1);
    connection->disconnect();
    manager.notify(Signal(1), Immediate);
}

TEST_F(EventMgrTest, DroppedConnectionGoesOn) {
    manager.subscribe<Signal>(noting("on ")).reset();
    manager.notify(Signal(1), Immediate);
    EXPECT_EQ(notes, (std::vector<std::string>{"on 1"}));
}

TEST_F(EventMgrTest, ConnectionMayOutliveTheManager) {
    auto const held = std::make_shared<int>(1);
    std::optional<EventMgr> mortal(std::in_place);
    auto const connection = mortal->subscribe<Signal>([held](Signal const&) {});
    mortal.reset();
    connection->disconnect();
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(EventMgrTest, ScopedConnectionEndsWithItsScopeAndWithTheNext) {
    {
        ScopedConnection scoped(manager.subscribe<Signal>(noting("first ")));
        manager.notify(Signal(1), Immediate);
        scoped.assign(manager.subscribe<Signal>(noting("second ")));
        manager.notify(Signal(2), Immediate);
        ScopedConnection moved(std::move(scoped));
        manager.notify(Signal(3), Immediate);
        ScopedConnection other(manager.subscribe<Signal>(noting("third ")));
        other = std::move(moved);
        manager.notify(Signal(4), Immediate);
        other.disconnect();
        manager.notify(Signal(5), Immediate);
        other.disconnect();
        other.assign(manager.subscribe<Signal>(noting("last ")));
    }
    manager.notify(Signal(6), Immediate);
    EXPECT_EQ(notes, (std::vector<std::string>{"first 1", "second 2", "second 3", "second 4"}));
}

TEST_F(EventMgrTest, HandlerMayDisconnectItself) {
    std::unique_ptr<Connection> connection;
    connection = manager.subscribe<Signal>([&](Signal const& signal) {
        connection->disconnect();
        notes.push_back(std::to_string(signal.value));
        manager.notify(Signal(9), Immediate);
    });
    manager.notify(Signal(1), Immediate);
    manager.notify(Signal(2), Immediate);
    EXPECT_EQ(notes, (std::vector<std::string>{"1"}));
}

TEST_F(EventMgrTest, HandlerMayDisconnectItselfFromARunInsideAnother) {
    std::unique_ptr<Connection> connection;
    connection = manager.subscribe<Signal>([&](Signal const& signal) {
        notes.push_back(std::to_string(signal.value));
        if (signal.value < 3) {
            manager.notify(Signal(signal.value + 1), Immediate);
        } else {
            connection->disconnect();
        }
    });
    manager.notify(Signal(1), Immediate);
    manager.notify(Signal(1), Immediate);
    EXPECT_EQ(notes, (std::vector<std::string>{"1", "2", "3"}));
}

TEST_F(EventMgrTest, HandlerThatIsDisconnectedByAnEarlierOneIsNotCalled) {
    std::unique_ptr<Connection> later;
    auto const earlier = manager.subscribe<Signal>([&](Signal const&) { later->disconnect(); });
    later = manager.subscribe<Signal>(noting("later "));
    manager.notify(Signal(1), Immediate);
    EXPECT_TRUE(notes.empty());
}

TEST_F(EventMgrTest, HandlerMaySubscribeAnother) {
    std::vector<std::unique_ptr<Connection>> connections;
    connections.push_back(manager.subscribe<Signal>([&](Signal const&) {
        if (connections.size() < 2) {
            connections.push_back(manager.subscribe<Signal>(noting("new ")));
        }
    }));
    manager.notify(Signal(1), Immediate);
    EXPECT_TRUE(notes.empty()) << "it hears of the next";
    manager.notify(Signal(2), Immediate);
    EXPECT_EQ(notes, (std::vector<std::string>{"new 2"}));
}

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

TEST_F(EventMgrTest, WhatAHandlerHoldsMayDisconnectItAsItGoes) {
    struct Last {
        std::unique_ptr<Connection>* connection = nullptr;
        bool* gone = nullptr;
        Last() = default;
        Last(Last const&) = delete;
        Last& operator=(Last const&) = delete;
        ~Last() {
            (*connection)->disconnect();
            *gone = true;
        }
    };
    for (bool const fromInside : {false, true}) {
        std::unique_ptr<Connection> connection;
        bool gone = false;
        auto held = std::make_shared<Last>();
        held->connection = &connection;
        held->gone = &gone;
        connection = manager.subscribe<Signal>(
            [held = std::move(held), &connection](Signal const&) { connection->disconnect(); });
        fromInside ? manager.notify(Signal(1), Immediate) : connection->disconnect();
        EXPECT_TRUE(gone);
    }
}

TEST_F(EventMgrTest, SubscriberOfSeveralTagsHearsEachEventOnceAndEndsAsOne) {
    auto const connection =
        manager.subscribe<Signal>(std::vector<ustring>{u"a", u"b"}, noting("ab "));
    manager.notify(Signal(1, {u"a"}), Immediate);
    manager.notify(Signal(2, {u"a", u"b"}), Immediate);
    manager.notify(Signal(3, {u"c"}), Immediate);
    connection->disconnect();
    manager.notify(Signal(4, {u"b"}), Immediate);
    EXPECT_EQ(notes, (std::vector<std::string>{"ab 1", "ab 2"}));
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

TEST(EventMgr, ThrowingHandlerHarmsNoOtherAndIsReportedWithWhereItSubscribed) {
    std::vector<std::string> texts;
    std::size_t frames = 0;
    EventMgr manager([&](std::exception_ptr const& thrown, StackTrace const& subscriber) {
        try {
            std::rethrow_exception(thrown);
        } catch (std::exception const& e) {
            texts.emplace_back(e.what());
        }
        frames = subscriber.size();
    });
    int heard = 0;
    auto const first = manager.subscribe<Signal>(
        [](Signal const&) { throw std::runtime_error("from a handler"); });
    auto const second = manager.subscribe<Signal>([&](Signal const&) { ++heard; });
    EXPECT_NO_THROW(manager.notify(Signal(1), Immediate));
    EXPECT_EQ(texts, (std::vector<std::string>{"from a handler"}));
    EXPECT_EQ(heard, 1);
    EXPECT_GT(frames, 1U);
    manager.notify(Signal(2), Immediate);
    EXPECT_EQ(heard, 2) << "and is called again";
    EXPECT_EQ(texts.size(), 2U);
}

TEST(EventMgr, ThrowingProcessorHarmsNobody) {
    EventMgr manager([](std::exception_ptr const&, StackTrace const&) { throw 1; });
    auto const connection = manager.subscribe<Signal>([](Signal const&) { throw 2; });
    EXPECT_NO_THROW(manager.notify(Signal(1), Immediate));
}

TEST(EventMgr, EventThatLiesAboutItsTypeIsABadCastForItsSubscribers) {
    // Found by the names that it gives, refused by the name that it is asked for.
    class Liar : public TypeInformation {
      public:
        std::string const& getTypeName(std::size_t) const override {
            return asked_++ == 0 ? Signal::EventType() : BaseEvent::EventType();
        }
        std::size_t getTypeCount() const noexcept override { return 1; }

      private:
        mutable int asked_ = 0;
    };
    class Lie : public BaseEvent {
      public:
        Lie() : BaseEvent(boost::make_shared<Liar>()) {}
        Lie* clone() const override { return new Lie(); }
    };
    bool badCast = false;
    EventMgr manager([&](std::exception_ptr const& thrown, StackTrace const&) {
        try {
            std::rethrow_exception(thrown);
        } catch (std::bad_cast const&) {
            badCast = true;
        }
    });
    auto const connection =
        manager.subscribe<Signal>([](Signal const&) { ADD_FAILURE() << "called"; });
    manager.notify(Lie(), Immediate);
    EXPECT_TRUE(badCast);
}

TEST(EventMgr, ExceptionsGoToTheLogUnlessSomebodyTakesThem) {
    auto const sink = boost::make_shared<boost::log::sinks::synchronous_sink<LogCollector>>();
    boost::log::core::get()->add_sink(sink);
    EventMgr manager;
    auto const connection = manager.subscribe<Signal>(
        [](Signal const&) { throw std::runtime_error("from a handler"); });
    manager.notify(Signal(1), Immediate);
    boost::log::core::get()->remove_sink(sink);

    std::vector<LogRecord> const& records = sink->locked_backend()->records;
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].channel, "foundation::msg_svc::eventmgr");
    EXPECT_EQ(records[0].severity, 16);
    EXPECT_NE(records[0].text.find("from a handler"), std::string::npos);
    EXPECT_NE(records[0].text.find("subscribed at:"), std::string::npos);
}

TEST(StackTrace, PrintsALineAFrame) {
    StackTrace const trace = EventMgr::GetStackTrace();
    std::ostringstream out;
    out << trace;
    std::string const text = out.str();
    EXPECT_GT(trace.size(), 1U);
    EXPECT_EQ(static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')), trace.size());
}

TEST(CreateEventType, DiffersByKindAndByText) {
    using foundation::storage::events::createEventType;
    using foundation::storage::events::Kind;
    EXPECT_EQ(createEventType(Kind::Created, u"mem:/a"), createEventType(Kind::Created, u"mem:/a"));
    EXPECT_NE(createEventType(Kind::Created, u"mem:/a"),
              createEventType(Kind::Modified, u"mem:/a"));
    EXPECT_NE(createEventType(Kind::Created, u"mem:/a"), createEventType(Kind::Created, u"mem:/b"));
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
