// Sweeps what providers ask of servers with the faults of a line, and prints a table: kind, how
// often injected, findings. To be run by with-servers.
//   remote_faults [--few] [TARGET [WORD]]
// Only the target web, dav or s3; only the operations that have WORD in their names.
#include "command_sweep.hpp"
#include "sweep.hpp"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <string>

namespace {

using namespace remote_faults;

int run(Extent extent, std::string const& wanted, std::string const& word) {
    using Clock = std::chrono::steady_clock;
    SweepResult result;
    std::string const command =
        std::filesystem::read_symlink("/proc/self/exe").parent_path() / "vfs";
    auto const tell = [&](Target const& target, std::string const& name, auto const& work) {
        Tally const before = result.sum();
        std::size_t const told = result.findings.size();
        Clock::time_point const begun = Clock::now();
        work();
        Tally const after = result.sum();
        std::printf("%-4s %-36s %6zu runs, %zu findings, %.1f s\n", target.name.c_str(),
                    name.c_str(), after.injected - before.injected,
                    after.findings() - before.findings(),
                    std::chrono::duration<double>(Clock::now() - begun).count());
        for (std::size_t i = told; i < result.findings.size(); ++i) {
            std::printf("    %s\n", result.findings[i].c_str());
        }
        std::fflush(stdout);
    };
    for (Target const& target : allTargets()) {
        if (!wanted.empty() && target.name != wanted) {
            continue;
        }
        prepare(target);
        for (Scenario const& scenario : scenariosOf(target)) {
            if (scenario.name.find(word) != std::string::npos) {
                tell(target, scenario.name, [&] { sweep(target, scenario, extent, result); });
            }
        }
        if (std::string("commands").find(word) != std::string::npos) {
            tell(target, "commands", [&] { sweepCommands(target, command, result); });
        }
    }
    std::printf("\n");
    print(result);
    Tally const sum = result.sum();
    return sum.findings() == 0 && sum.injected != 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) try {
    bool const few = argc > 1 && std::strcmp(argv[1], "--few") == 0;
    int const first = few ? 2 : 1;
    auto const word = [&](int i) { return std::string(first + i < argc ? argv[first + i] : ""); };
    return run(few ? Extent::Few : Extent::Full, word(0), word(1));
} catch (std::exception const& e) {
    std::fprintf(stderr, "remote_faults: %s\n", e.what());
    std::fflush(stdout);
    // Not exit(3): an operation that does not come back may still be at work.
    std::_Exit(1);
}
