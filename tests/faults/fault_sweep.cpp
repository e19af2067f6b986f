// Sweeps every operation with every fault, and prints a table: operation, points, findings.
//   fault_sweep [--few] [FOLDER [OTHER-FOLDER [WORD]]]
// Only the operations that have WORD in their names.
#include "sweep.hpp"

#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <unistd.h>

namespace {

using namespace fault_sweep;

int run(std::span<CallFault const> faults, std::string const& folder, std::string const& other,
        std::string const& word) {
    std::string const own = "/faults-" + std::to_string(::getpid());
    std::size_t points = 0;
    std::size_t findings = 0;
    std::printf("%-78s %8s %8s\n", "operation", "points", "failures");
    for (Scenario const& scenario : allScenarios()) {
        if (scenario.name.find(word) == std::string::npos) {
            continue;
        }
        SweepResult const result = sweep(scenario, {folder + own, other + own, faults});
        points += result.points;
        findings += result.findings.size();
        std::printf("%-78s %8zu %8zu\n", scenario.name.c_str(), result.points,
                    result.findings.size());
        for (std::string const& finding : result.findings) {
            std::printf("    %s\n", finding.c_str());
        }
        std::fflush(stdout);
    }
    std::printf("%-78s %8zu %8zu\n", "in all", points, findings);
    return findings == 0 && points != 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) try {
    bool const few = argc > 1 && std::strcmp(argv[1], "--few") == 0;
    int const first = few ? 2 : 1;
    auto const word = [&](int i, char const* otherwise) {
        return std::string(first + i < argc ? argv[first + i] : otherwise);
    };
    return run(few ? fewFaults() : allFaults(), word(0, "/tmp"), word(1, "/dev/shm"), word(2, ""));
} catch (std::exception const& e) {
    std::fprintf(stderr, "fault_sweep: %s\n", e.what());
    return 1;
}
