#pragma once

#include "sweep.hpp"

#include <string>

namespace remote_faults {

/// Runs the command at `path` over the line: as who is known and as a stranger, with faults that
/// pass and with those that do not, and looks for secrets in all that it prints. REQUIRES: no
/// other thread, since environment variables are set.
void sweepCommands(Target const& target, std::string const& path, SweepResult& result);

} // namespace remote_faults
