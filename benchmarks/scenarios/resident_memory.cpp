#include "resident_memory.hpp"

#include <fstream>
#include <stdexcept>
#include <string>

namespace bench {

namespace {

/// A figure of /proc/self/status in MiB.
double memory(std::string const& key) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(key + ":")) {
            return std::stod(line.substr(key.size() + 1)) / 1024;
        }
    }
    throw std::runtime_error("/proc/self/status knows no " + key);
}

/// From here on the peak is that of what follows.
void forgetPeak() {
    std::ofstream("/proc/self/clear_refs") << 5 << std::flush;
}

} // namespace

double growthDuring(std::function<void()> const& work) {
    forgetPeak();
    double const before = memory("VmRSS");
    work();
    return memory("VmHWM") - before;
}

} // namespace bench
