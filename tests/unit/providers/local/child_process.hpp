#pragma once

#include <functional>
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

/// Makes a file system of `size` bytes in memory on a folder, in a mount namespace of its own.
/// False where that is not permitted.
bool mountMemory(std::string const& folder, std::string const& size);
bool mayMount();

} // namespace foundation::storage::provider::local::test
