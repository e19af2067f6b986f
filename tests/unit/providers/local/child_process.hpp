#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace foundation::storage::provider::local::test {

/// Runs something in a process of its own, for what would change this one for good: its user, its
/// limits, its mounts, its system calls. Returns what it returned; a child that throws returns the
/// text of the exception behind "threw: ", and one that dies "died: " and the signal.
std::string inChild(std::function<std::string()> const& work);

/// Gives up the super-user's rights for those of `nobody`; nothing where there are none to give up.
void becomeUnprivileged();

/// From here on a system call of this process fails with `error` where the argument `argument`
/// has all the bits of `bits` (for 0 bits, always).
struct CallFault {
    int call;
    unsigned argument;
    unsigned bits;
    int error;
};
void injectFaults(std::vector<CallFault> const& faults);

/// From here on this process dies of every system call but those of memory, locks, writing and
/// ending.
void allowMemoryCallsOnly();

/// What stands in for a system call: the arguments go in, what it returns comes out (a negative
/// error number where it fails), or nothing, and then the kernel does the call itself.
using CallStandIn = std::function<std::optional<long>(unsigned long long const* arguments)>;

/// Runs `standIn` in place of every system call `call` of this thread whose argument `argument` has
/// all the bits of `bits`, before the kernel sees it: what another process does at that very moment
/// is done there. On another thread of this process, for good. For use in a child.
void interceptCalls(int call, unsigned argument, unsigned bits, CallStandIn standIn);

/// Makes a file system of `size` bytes in memory on a folder, in a mount namespace of its own.
/// False where that is not permitted.
bool mountMemory(std::string const& folder, std::string const& size);
bool mayMount();

} // namespace foundation::storage::provider::local::test
