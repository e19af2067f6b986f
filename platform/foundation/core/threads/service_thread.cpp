#include <foundation/core/threads/service_thread.hpp>

#include <csignal>
#include <pthread.h>
#include <utility>

namespace foundation::core::threads {

namespace {

/// A thread begins with the mask of the one that starts it.
class BlockedSignals {
  public:
    BlockedSignals() noexcept {
        sigset_t all;
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    BlockedSignals(BlockedSignals const&) = delete;
    BlockedSignals& operator=(BlockedSignals const&) = delete;
    ~BlockedSignals() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

  private:
    sigset_t before_{};
};

} // namespace

std::thread startServiceThread(char const* name, std::function<void()> body) {
    BlockedSignals const blocked;
    std::thread thread(std::move(body));
    ::pthread_setname_np(thread.native_handle(), name);
    return thread;
}

} // namespace foundation::core::threads
