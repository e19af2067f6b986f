#pragma once

#include "fault_run.hpp"

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace remote_faults {

/// What came of runs of one kind.
struct Tally {
    std::size_t runs = 0;    ///< in which the fault took place, where it is one
    std::size_t right = 0;   ///< of these: that had the right result all the same
    std::size_t refused = 0; ///< that failed as they should
    std::size_t wrong = 0;
    std::size_t hangs = 0;
    std::size_t leaks = 0;
    std::size_t canaries = 0;

    std::size_t findings() const { return wrong + hangs + leaks + canaries; }
    Tally& operator+=(Tally const& other);
};

/// By the names of kinds, and of targets.
using Tallies = std::map<std::string, std::map<std::string, Tally>>;

struct SweepResult {
    Tallies faults;                    ///< that took place
    Tallies controls;                  ///< runs without one
    std::vector<std::string> findings; ///< in words

    /// Of all runs.
    Tally sum() const;
    std::size_t injected(std::string const& kind, std::string const& target) const;
};

/// Secrets are found, and not repeated.
std::string withoutSecrets(Target const& target, std::string text);

/// Puts what is read everywhere onto the server, and makes sure that an upload that is left behind
/// would be seen there. Throws std::runtime_error where it would not.
void prepare(Target const& target);

/// Does one run, and adds to the result what came of it. Where the plan is a fault and it did not
/// take place, that is nothing but what was found.
RunResult runAndCount(Target const& target, Scenario const& scenario, Plan const& plan,
                      SweepResult& result);

/// Does the operation without a fault, as a stranger, and with each fault at its requests. Adds to
/// the result.
void sweep(Target const& target, Scenario const& scenario, Extent extent, SweepResult& result);

} // namespace remote_faults
