#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>

namespace foundation::msg_svc::eventmgr {

class BaseEvent;

namespace detail {

/// A handler, and who runs it at the moment. Safe on any number of threads.
class Subscription {
  public:
    /// REQUIRES: a handler that does not throw, and whose destruction does not.
    explicit Subscription(std::uint64_t number, std::function<void(BaseEvent const&)> handler);
    Subscription(Subscription const&) = delete;
    Subscription& operator=(Subscription const&) = delete;
    ~Subscription() = default;

    /// The order of subscribing.
    std::uint64_t number() const noexcept { return number_; }

    /// Runs the handler, unless the subscription has ended.
    void run(BaseEvent const& event);
    /// Connection::disconnect().
    void disconnect();

  private:
    class Run;

    /// Destroys the handler without the lock, which is held before and behind.
    void release(std::unique_lock<std::mutex>& lock);

    std::uint64_t const number_;
    std::mutex mutex_;
    std::condition_variable changed_;
    // guarded by mutex_:
    bool connected_ = true;
    std::size_t running_ = 0;
    std::size_t leaving_ = 0; ///< of those running, the ones that have disconnected from inside
    bool releasing_ = false;  ///< what the handler holds is being destroyed
    std::function<void(BaseEvent const&)> handler_; ///< read without the lock while running_ > 0
};

} // namespace detail
} // namespace foundation::msg_svc::eventmgr
