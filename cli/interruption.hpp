#pragma once

#include <poll.h>
#include <span>
#include <string>

namespace cli {

/// A signal asked the process to end. Thrown to unwind what is under way, so that nothing half done
/// stays behind; whoever catches it ends the process by that signal.
struct Interrupted {
    int signal;
};

/// While one of these lives, SIGINT, SIGTERM and SIGHUP are noted instead of ending the process at
/// once; a second signal ends it. A signal that was ignored at the start stays ignored. One at a
/// time, on the main thread.
class InterruptionGuard {
  public:
    InterruptionGuard();
    ~InterruptionGuard();
    InterruptionGuard(InterruptionGuard const&) = delete;
    InterruptionGuard& operator=(InterruptionGuard const&) = delete;
};

/// While one of these lives, within the life of an InterruptionGuard, the same signals end the
/// process at once, behind a line on standard error: for work that cannot look whether a signal was
/// noted, and that leaves nothing half done wherever it ends. Throws Interrupted where a signal was
/// noted before. One at a time, on the main thread.
class EndingNotice {
  public:
    /// `line` must end with a line break, and outlive this.
    explicit EndingNotice(std::string const& line);
    ~EndingNotice();
    EndingNotice(EndingNotice const&) = delete;
    EndingNotice& operator=(EndingNotice const&) = delete;
};

/// The signal that was noted, or 0.
int interruptingSignal() noexcept;

/// Throws Interrupted where a signal was noted.
void throwIfInterrupted();

/// Waits until `descriptor` can be read or is at its end. Throws Interrupted where a signal was
/// noted, also where it comes just before the wait begins.
void waitForInput(int descriptor);

/// The same for several descriptors, each waited for as poll(2) would; what came of it is in
/// `revents`.
void waitForAny(std::span<pollfd> wanted);

/// Ends the process by `signal`, as if it had never been caught.
[[noreturn]] void endBySignal(int signal);

} // namespace cli
