#pragma once

#include <boost/shared_ptr.hpp>

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace foundation::msg_svc::eventmgr {

class BaseEvent;

namespace detail {

/// Events that wait for the one thread that delivers them, which starts with the first. Safe on any
/// number of threads.
class DeliveryQueue {
  public:
    using Deliver = std::function<void(BaseEvent const&)>;

    explicit DeliveryQueue(Deliver deliver);
    DeliveryQueue(DeliveryQueue const&) = delete;
    DeliveryQueue& operator=(DeliveryQueue const&) = delete;
    /// Waits until all that is queued is delivered. On the delivering thread itself nothing more is
    /// delivered.
    ~DeliveryQueue();

    void push(boost::shared_ptr<BaseEvent> event);

  private:
    struct State;
    static void work(std::shared_ptr<State> const& state);

    /// Outlives the queue where that dies on its own thread.
    std::shared_ptr<State> const state_;
    std::thread thread_;
};

} // namespace detail
} // namespace foundation::msg_svc::eventmgr
