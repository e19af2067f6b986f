#include <foundation/msg_svc/eventmgr/event_mgr.hpp>

#include <foundation/msg_svc/eventmgr/shutdown_event.hpp>
#include <foundation/storage/events/event.hpp>

#include "event_mgr_fixture.hpp"
#include "unit/log_collector.hpp"

#include <boost/log/core.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/make_shared.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace event_test;

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

TEST_F(EventMgrTest, HandsOverAnExceptionThatSomebodyElseCaught) {
    std::string caught;
    EventMgr const other([&](std::exception_ptr const& exception, StackTrace const&) {
        try {
            std::rethrow_exception(exception);
        } catch (std::runtime_error const& e) {
            caught = e.what();
        }
    });
    try {
        throw std::runtime_error("from elsewhere");
    } catch (...) {
        other.processExceptionFromEventHandler(EventMgr::GetStackTrace());
    }
    EXPECT_EQ(caught, "from elsewhere");
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

TEST_F(EventMgrTest, SubscriberWithATagTwiceHearsEachEventOnceAndEndsAsOne) {
    auto const connection =
        manager.subscribe<Signal>(std::vector<ustring>{u"a", u"b", u"a"}, noting("aba "));
    manager.notify(Signal(1, {u"a"}), Immediate);
    manager.notify(Signal(2, {u"b", u"a"}), Immediate);
    connection->disconnect();
    manager.notify(Signal(3, {u"a"}), Immediate);
    EXPECT_EQ(notes, (std::vector<std::string>{"aba 1", "aba 2"}));
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

} // namespace
