#pragma once

#include <boost/shared_ptr.hpp>

#include <functional>
#include <memory>
#include <thread>

namespace foundation::msg_svc::eventmgr {

class BaseEvent;

namespace detail {

/// Events that wait for the one thread that delivers them, which starts with the first. Safe on any
/// number of threads.
class DeliveryQueue {
  public:
    using Deliver = std::function<void(BaseEvent const&)>;

    /// REQUIRES: what delivers does not throw.
    explicit DeliveryQueue(Deliver deliver);
    DeliveryQueue(DeliveryQueue const&) = delete;
    DeliveryQueue& operator=(DeliveryQueue const&) = delete;
    /// As end().
    ~DeliveryQueue();

    void push(boost::shared_ptr<BaseEvent> event);
    /// Waits until all that is queued is delivered, with what is pushed by delivering it. On the
    /// delivering thread itself nothing more is delivered. REQUIRES: nothing is pushed afterwards.
    void end();

  private:
    struct State;
    static void work(std::shared_ptr<State> const& state);

    /// Outlives the queue where that dies on its own thread.
    std::shared_ptr<State> const state_;
    std::thread thread_;
};

} // namespace detail
} // namespace foundation::msg_svc::eventmgr
