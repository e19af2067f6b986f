#pragma once

#include "kill_rounds.hpp"

namespace fault_sweep {

/// Kills vfs at random moments, `kills` times in all, by SIGKILL, while it writes into an archive,
/// and into an archive within one. After each, the archive is the old one byte for byte, or the
/// new one with all that it is to hold; after exit 0 it is the new one. `other` is not used.
std::vector<KillResult> killFlushes(KillOptions const& options);

} // namespace fault_sweep
