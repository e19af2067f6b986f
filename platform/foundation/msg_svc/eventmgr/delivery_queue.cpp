#include <foundation/msg_svc/eventmgr/detail/delivery_queue.hpp>

#include <foundation/core/threads/service_thread.hpp>
#include <foundation/msg_svc/eventmgr/base_event.hpp>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

namespace foundation::msg_svc::eventmgr::detail {

struct DeliveryQueue::State {
    explicit State(Deliver made) : deliver(std::move(made)) {}

    Deliver const deliver;
    std::mutex mutex;
    std::condition_variable changed;
    // guarded by mutex:
    std::deque<boost::shared_ptr<BaseEvent>> events;
    bool ending = false;
};

DeliveryQueue::DeliveryQueue(Deliver deliver)
    : state_(std::make_shared<State>(std::move(deliver))) {}

DeliveryQueue::~DeliveryQueue() {
    end();
}

void DeliveryQueue::end() {
    bool const onOwnThread = thread_.get_id() == std::this_thread::get_id();
    std::deque<boost::shared_ptr<BaseEvent>> dropped; // destroyed without the lock
    {
        std::lock_guard const lock(state_->mutex);
        state_->ending = true;
        if (onOwnThread) {
            dropped.swap(state_->events);
        }
    }
    state_->changed.notify_all();
    if (onOwnThread) {
        thread_.detach();
    } else if (thread_.joinable()) {
        thread_.join();
    }
}

void DeliveryQueue::push(boost::shared_ptr<BaseEvent> event) {
    {
        std::lock_guard const lock(state_->mutex);
        if (!thread_.joinable()) {
            thread_ = foundation::core::threads::startServiceThread(
                "vfs-events", [state = state_] { work(state); });
        }
        state_->events.push_back(std::move(event));
    }
    state_->changed.notify_one();
}

void DeliveryQueue::work(std::shared_ptr<State> const& state) {
    std::unique_lock lock(state->mutex);
    while (true) {
        state->changed.wait(lock, [&] { return state->ending || !state->events.empty(); });
        if (state->events.empty()) {
            return;
        }
        boost::shared_ptr<BaseEvent> event = std::move(state->events.front());
        state->events.pop_front();
        lock.unlock();
        state->deliver(*event);
        event.reset(); // may end the queue, so never with the lock
        lock.lock();
    }
}

} // namespace foundation::msg_svc::eventmgr::detail
