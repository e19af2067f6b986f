#pragma once

#include "scenario.hpp"

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace fault_sweep {

/// Where and with what to sweep.
struct SweepOptions {
    std::string folder; ///< for everything; made and removed
    std::string other;  ///< on another file system, for what crosses; made and removed
    std::span<CallFault const> faults;
    unsigned secondsAtMost = 20; ///< for one run of one operation; what takes longer hangs
};

struct SweepResult {
    std::size_t points = 0; ///< runs in which a fault was injected
    std::vector<std::string> findings;
};

/// Every kind of fault; and the two that find the most in a few seconds.
std::span<CallFault const> allFaults() noexcept;
std::span<CallFault const> fewFaults() noexcept;

/// Runs the operation with the first system call failing, then with the second, and so on until it
/// ends without a fault; so for each fault. In a process of its own, whose death is a finding.
///
/// After each run: the operation did not throw, or threw one of the types that are promised; where
/// it did not, everything is as it is without a fault; where it failed, each name has what it had
/// before or has in the end, and nothing has another name; what was moved is there; as many
/// descriptors are open as before.
SweepResult sweep(Scenario const& scenario, SweepOptions const& options);

} // namespace fault_sweep
