#include <foundation/core/threads/service_thread.hpp>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <csignal>
#include <pthread.h>
#include <thread>

namespace {

using foundation::core::threads::startServiceThread;

sigset_t maskOfThisThread() {
    sigset_t mask;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return mask;
}

TEST(ServiceThread, BlocksEverySignalThatCanBeBlocked) {
    sigset_t const before = maskOfThisThread();
    sigset_t inside;
    ::sigemptyset(&inside);
    startServiceThread("test", [&] { inside = maskOfThisThread(); }).join();
    sigset_t const after = maskOfThisThread();
    for (int number = 1; number < SIGRTMIN; ++number) {
        bool const canBe = number != SIGKILL && number != SIGSTOP && number < 32;
        EXPECT_EQ(::sigismember(&inside, number), canBe ? 1 : 0) << number;
        EXPECT_EQ(::sigismember(&after, number), ::sigismember(&before, number)) << number;
    }
}

TEST(ServiceThread, HasItsName) {
    std::thread thread;
    std::array<char, 16> name{};
    std::atomic<bool> asked = false;
    thread = startServiceThread("fifteen bytes..", [&] { asked.wait(false); });
    ::pthread_getname_np(thread.native_handle(), name.data(), name.size());
    asked = true;
    asked.notify_one();
    thread.join();
    EXPECT_STREQ(name.data(), "fifteen bytes..");
}

} // namespace
