#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace bench {

/// Runs a program, found as the shell finds it, with its standard output to nowhere, and waits for
/// it. Throws std::runtime_error where it fails.
void runProgram(std::vector<std::string> arguments);

/// What a program wrote and took.
struct ProgramRun {
    std::size_t lines = 0;
    double peakMebibytes = 0; ///< resident at most; no fewer than are resident here
};

/// The same, with its standard output read and counted here.
ProgramRun runCounted(std::vector<std::string> arguments);

/// Whether there is a program of this name to run.
bool isInstalled(std::string const& program);

} // namespace bench
