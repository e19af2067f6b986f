#pragma once

#include "sweep.hpp"

#include <string>
#include <vector>

namespace remote_faults {

/// What is to be injected, or else nothing was tried.
struct Wanted {
    std::string target;
    std::vector<std::string> kinds;
};

/// Says of each target and kind of which no fault took place that it is so.
std::vector<std::string> notInjected(SweepResult const& result, std::vector<Wanted> const& wanted);

/// Prints the table: for each kind how often it took place at each target, and what came of it.
void print(SweepResult const& result, std::vector<Wanted> const& wanted);

} // namespace remote_faults
