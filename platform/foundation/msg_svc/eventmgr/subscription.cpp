#include <foundation/msg_svc/eventmgr/detail/subscription.hpp>

#include <utility>

namespace foundation::msg_svc::eventmgr::detail {

/// One call of a handler. The runs of a thread are a list, innermost first, by which a handler that
/// disconnects itself is known.
class Subscription::Run {
  public:
    Run(Subscription& subscription, bool left)
        : subscription_(subscription),
          outer_(innermost),
          left_(left) {
        innermost = this;
    }
    Run(Run const&) = delete;
    Run& operator=(Run const&) = delete;
    ~Run() { innermost = outer_; }

    /// How many runs of the calling thread are of `subscription`; those that had not left before
    /// leave, and are added to `left`.
    static std::size_t leaveAll(Subscription const& subscription, std::size_t& left) {
        std::size_t count = 0;
        for (Run* run = innermost; run != nullptr; run = run->outer_) {
            if (&run->subscription_ == &subscription) {
                ++count;
                left += std::exchange(run->left_, true) ? 0 : 1;
            }
        }
        return count;
    }
    bool left() const noexcept { return left_; }

  private:
    static thread_local Run* innermost;

    Subscription& subscription_;
    Run* const outer_;
    bool left_; // guarded by the subscription's mutex
};

thread_local Subscription::Run* Subscription::Run::innermost = nullptr;

Subscription::Subscription(std::uint64_t number, std::function<void(BaseEvent const&)> handler)
    : number_(number),
      handler_(std::move(handler)) {}

void Subscription::run(BaseEvent const& event) {
    {
        std::lock_guard const lock(mutex_);
        if (!connected_) {
            return;
        }
        ++running_;
    }
    std::unique_lock lock(mutex_, std::defer_lock);
    {
        Run const current(*this, false);
        handler_(event);

        lock.lock();
        --running_;
        leaving_ -= current.left() ? 1 : 0;
    }
    if (!connected_) {
        release(lock);
        changed_.notify_all();
    }
}

void Subscription::disconnect() {
    std::unique_lock lock(mutex_);
    connected_ = false;
    // Threads that disconnect from inside the handler do not wait for each other: none of them runs
    // it any further as far as the subscription goes.
    bool const inside = Run::leaveAll(*this, leaving_) > 0;
    changed_.notify_all();
    changed_.wait(lock,
                  [&] { return inside ? running_ == leaving_ : running_ == 0 && !releasing_; });
    release(lock);
}

void Subscription::release(std::unique_lock<std::mutex>& lock) {
    if (running_ > 0 || !handler_) {
        return;
    }
    releasing_ = true;
    {
        // What goes may disconnect as well, and does not wait for itself.
        Run const current(*this, true);
        auto const last = std::exchange(handler_, nullptr);
        lock.unlock();
    }
    lock.lock();
    releasing_ = false;
    changed_.notify_all();
}

} // namespace foundation::msg_svc::eventmgr::detail
