#include "whole_run.hpp"

#include "command_sweep.hpp"
#include "lies.hpp"

#include <chrono>
#include <cstdio>
#include <functional>
#include <stdexcept>

namespace remote_faults {

namespace {

using Clock = std::chrono::steady_clock;

void tell(Target const& target, std::string const& name, SweepResult const& result,
          std::function<void()> const& work) {
    Tally const before = result.sum();
    std::size_t const told = result.findings.size();
    Clock::time_point const begun = Clock::now();
    work();
    Tally const after = result.sum();
    std::printf("%-4s %-36s %6zu runs, %zu findings, %.1f s\n", target.name.c_str(), name.c_str(),
                after.runs - before.runs, after.findings() - before.findings(),
                std::chrono::duration<double>(Clock::now() - begun).count());
    for (std::size_t i = told; i < result.findings.size(); ++i) {
        std::printf("    %s\n", result.findings[i].c_str());
    }
    std::fflush(stdout);
}

} // namespace

Wanted runAll(Target const& target, Extent extent, std::string const& word,
              std::string const& command, SweepResult& result) {
    Wanted wanted{target.name, {}};
    auto const want = [&wanted](std::vector<std::string> const& kinds) {
        wanted.kinds.insert(wanted.kinds.end(), kinds.begin(), kinds.end());
    };
    auto const isMeant = [&word](std::string const& name) {
        return name.find(word) != std::string::npos;
    };
    prepare(target);
    for (Scenario const& scenario : scenariosOf(target)) {
        if (isMeant(scenario.name)) {
            tell(target, scenario.name, result, [&] { sweep(target, scenario, extent, result); });
            if (wanted.kinds.empty()) {
                want(kindsOfLine(extent));
            }
        }
    }
    if (isMeant("commands")) {
        tell(target, "commands", result, [&] { sweepCommands(target, command, extent, result); });
        want(kindsOfCommands(extent));
    }
    if (isMeant("lies")) {
        tell(target, "lies", result, [&] { sweepLies(target.name, extent, result); });
        want(kindsOfLies(target.name));
    }
    if (wanted.kinds.empty()) {
        throw std::runtime_error(target.name + ": no operation has \"" + word + "\" in its name");
    }
    return wanted;
}

} // namespace remote_faults
