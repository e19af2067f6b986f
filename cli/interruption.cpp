#include "interruption.hpp"

#include <array>
#include <atomic>
#include <csignal>
#include <unistd.h>

namespace cli {

namespace {

constexpr std::array watched{SIGINT, SIGTERM, SIGHUP};

// Written by a handler on whatever thread it runs, read by all.
std::atomic<int> noted = 0;
static_assert(decltype(noted)::is_always_lock_free, "a signal handler may not wait");
std::array<struct sigaction, watched.size()> before{};

extern "C" void noteSignal(int signal) {
    noted = signal;
}

// The line of an EndingNotice, where a signal handler finds it.
char const* notice = nullptr;
std::size_t noticeLength = 0;

extern "C" void endWithNotice(int signal) {
    [[maybe_unused]] auto const written = ::write(STDERR_FILENO, notice, noticeLength);
    endBySignal(signal);
}

// Those that were ignored when the guard was made stay ignored.
void setHandler(void (*handler)(int), int flags) {
    for (std::size_t i = 0; i < watched.size(); ++i) {
        if (before[i].sa_handler != SIG_IGN) {
            struct sigaction action {};
            action.sa_handler = handler;
            action.sa_flags = flags;
            ::sigemptyset(&action.sa_mask);
            ::sigaction(watched[i], &action, nullptr);
        }
    }
}

// Once: the second signal has its usual effect. And without SA_RESTART, so that a read that waits
// for input returns.
void noteSignals() {
    setHandler(noteSignal, static_cast<int>(SA_RESETHAND));
}

} // namespace

InterruptionGuard::InterruptionGuard() {
    for (std::size_t i = 0; i < watched.size(); ++i) {
        ::sigaction(watched[i], nullptr, &before[i]);
    }
    noteSignals();
}

InterruptionGuard::~InterruptionGuard() {
    for (std::size_t i = 0; i < watched.size(); ++i) {
        ::sigaction(watched[i], &before[i], nullptr);
    }
}

EndingNotice::EndingNotice(std::string const& line) {
    notice = line.data();
    noticeLength = line.size();
    // Not blocked by its own handler, which is to end the process by it.
    setHandler(endWithNotice, static_cast<int>(SA_RESETHAND | SA_NODEFER));
    if (noted != 0) {
        noteSignals();
        throw Interrupted{noted};
    }
}

EndingNotice::~EndingNotice() {
    noteSignals();
}

int interruptingSignal() noexcept {
    return noted;
}

void throwIfInterrupted() {
    if (noted != 0) {
        throw Interrupted{noted};
    }
}

void waitForInput(int descriptor) {
    pollfd wanted{descriptor, POLLIN, 0};
    // Whatever else it says, the read that follows says better.
    waitForAny(std::span(&wanted, 1));
}

void waitForAny(std::span<pollfd> wanted) {
    // Between a look at what was noted and the wait, a signal would be missed: it must come either
    // before the look, or during the wait, which takes the block away for as long as it lasts.
    sigset_t blocked{};
    sigset_t usual{};
    ::sigemptyset(&blocked);
    for (int const signal : watched) {
        ::sigaddset(&blocked, signal);
    }
    ::sigprocmask(SIG_BLOCK, &blocked, &usual);
    if (noted == 0 && ::ppoll(wanted.data(), wanted.size(), nullptr, &usual) < 0) {
        for (pollfd& each : wanted) {
            each.revents = 0; // left as they were
        }
    }
    ::sigprocmask(SIG_SETMASK, &usual, nullptr);
    throwIfInterrupted();
}

void endBySignal(int signal) {
    struct sigaction usual {};
    usual.sa_handler = SIG_DFL;
    ::sigemptyset(&usual.sa_mask);
    ::sigaction(signal, &usual, nullptr);
    ::raise(signal);
    ::_exit(128 + signal); // where the signal is blocked
}

} // namespace cli
