#pragma once

#include "table.hpp"

#include <string>

namespace remote_faults {

/// All that is tried with a target: its operations over its line, the command at `command` as well,
/// and servers that lie. Only what has `word` in its name. Prints what it does.
///
/// Returns which faults had to take place. Throws std::runtime_error where there is nothing to do.
Wanted runAll(Target const& target, Extent extent, std::string const& word,
              std::string const& command, SweepResult& result);

} // namespace remote_faults
