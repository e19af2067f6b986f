#pragma once

#include <cstddef>
#include <span>
#include <string>

namespace fault_sweep {

/// What becomes of the chosen system call.
struct CallFault {
    enum class Kind { Error, ShortCount };
    /// Lasting: every later call of the same number is treated alike.
    enum class Span { Once, Lasting };

    Kind kind;
    int error; ///< of Kind::Error
    Span span;
    char const* name;
};

/// A thing that the kernel or the file system is without: such a call fails always, and is no call
/// that a fault is made of. A call is one where the argument has all the bits; with 0 bits, each.
struct MissingCall {
    int call;
    unsigned argument;
    unsigned bits;
    int error;
};

/// What happened while faults were armed.
struct CallCount {
    std::size_t calls = 0; ///< those that could have been chosen
    bool isInjected = false;
    int injectedCall = -1;
};

/// From here on this process sees each of its system calls, on every thread, but for those of
/// memory, locks, threads and signals. For good, so for a child. Throws std::system_error.
///
/// By a filter of the kernel that raises SIGSYS, and a handler that does the call, or does not:
/// so nothing gets by, be it inlined or made through syscall(2).
void trapCalls();

/// REQUIRES: trapCalls().
void setMissingCalls(std::span<MissingCall const> missing);
/// Lets the call number `at` from now, counted from 1, fail. A fault that does not fit a call, as a
/// short count one that counts no bytes, passes it over and does not count it.
void armFault(CallFault const& fault, std::size_t at);
CallCount disarmFault();

/// "openat" and the like; the number where it has no name here.
std::string nameOfCall(int call);

} // namespace fault_sweep
