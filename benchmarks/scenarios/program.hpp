#pragma once

#include <string>
#include <vector>

namespace bench {

/// Runs a program, found as the shell finds it, with its standard output to nowhere, and waits for
/// it. Throws std::runtime_error where it fails.
void runProgram(std::vector<std::string> arguments);

/// The same, and returns how many MiB of it were resident at most; no fewer than are resident here.
double peakMemoryOf(std::vector<std::string> arguments);

/// Whether there is a program of this name to run.
bool isInstalled(std::string const& program);

} // namespace bench
