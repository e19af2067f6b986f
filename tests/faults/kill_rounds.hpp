#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace fault_sweep {

/// Where the command is killed, and how often.
struct KillOptions {
    std::string command; ///< the path of vfs
    std::string folder;  ///< for everything; made and removed
    std::string other;   ///< on another file system, for what crosses; made and removed
    std::size_t kills = 0;
    std::uint64_t seed = 0; ///< of the moments
    std::string only = {};  ///< only the works that have this in their names
};

struct KillResult {
    std::string name;
    std::size_t kills = 0;
    std::size_t rounds = 0;    ///< with those that ended before the kill came
    std::size_t told = 0;      ///< lines that said that something was done, and were checked
    std::size_t leftovers = 0; ///< temporary names that stayed, of content that was complete
    std::vector<std::string> findings;
};

/// Kills copies, moves and replacements by vfs at random moments, `kills` times in all, by SIGKILL.
///
/// After each: a file under its final name has the old content or the complete new one; sources are
/// whole, and what is moved is at one of its two places; what was printed as done is there, and
/// after exit 0 everything; and running the command again completes the work.
std::vector<KillResult> killAtRandom(KillOptions const& options);

} // namespace fault_sweep
