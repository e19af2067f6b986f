#pragma once

#include "fault_run.hpp"

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace remote_faults {

/// A line of the table: what came of all faults of a kind.
struct Tally {
    std::size_t injected = 0; ///< runs in which the fault took place
    std::size_t right = 0;    ///< of these: that had the right result all the same
    std::size_t refused = 0;  ///< that failed as they should
    std::size_t wrong = 0;
    std::size_t hangs = 0;
    std::size_t leaks = 0;
    std::size_t canaries = 0;

    std::size_t findings() const { return wrong + hangs + leaks + canaries; }
    Tally& operator+=(Tally const& other);
};

struct SweepResult {
    std::map<std::string, Tally> kinds;
    std::vector<std::string> findings; ///< in words

    Tally sum() const;
};

/// Puts what is read everywhere onto the server.
void prepare(Target const& target);

/// Does the operation without a fault, as a stranger, and with each fault at its requests. Adds to
/// the result.
void sweep(Target const& target, Scenario const& scenario, Extent extent, SweepResult& result);

/// The table.
void print(SweepResult const& result);

} // namespace remote_faults
