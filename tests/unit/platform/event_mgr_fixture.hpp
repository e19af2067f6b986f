#pragma once

#include <foundation/msg_svc/eventmgr/event_mgr.hpp>

#include <boost/make_shared.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace event_test {

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

} // namespace event_test
