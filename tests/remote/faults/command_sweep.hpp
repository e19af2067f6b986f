#pragma once

#include "sweep.hpp"

#include <string>
#include <vector>

namespace remote_faults {

/// What the faults are called that the command meets.
std::vector<std::string> kindsOfCommands(Extent extent);

/// Runs the command at `path` over the line: as who is known and as a stranger, without a fault,
/// with faults that pass and with those that do not; holds what it prints to what it prints without
/// one, and looks for secrets in all of it. REQUIRES: no other thread, since environment variables
/// are set.
void sweepCommands(Target const& target, std::string const& path, Extent extent,
                   SweepResult& result);

} // namespace remote_faults
