#pragma once

#include "plan.hpp"
#include "scenario.hpp"

#include <optional>
#include <string>
#include <vector>

namespace remote_faults {

/// What came of one run of an operation over a faulty line. Findings are said in words.
struct RunResult {
    FaultCounts counts{};
    std::optional<std::string> failure; ///< what it threw; nothing where it did what it should
    std::optional<std::string> wrong;
    std::optional<std::string> hang;
    std::optional<std::string> leak;
    std::optional<std::string> canary;
};

/// Brings the server into the state before, does the operation under the fault, and looks at the
/// server. Where it did not throw, everything is as it should be; where it threw, that is one of
/// the types that are promised, and each file is the old one or the new one.
///
/// Throws std::runtime_error where it does not come back at all, since nothing can go on then.
RunResult runOnce(Target const& target, Scenario const& scenario, Plan const& plan);

} // namespace remote_faults
