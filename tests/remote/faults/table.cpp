#include "table.hpp"

#include <algorithm>
#include <cstdio>

namespace remote_faults {

namespace {

bool isWanted(Wanted const& wanted, std::string const& kind) {
    return std::find(wanted.kinds.begin(), wanted.kinds.end(), kind) != wanted.kinds.end();
}

void printHead(char const* what, std::vector<Wanted> const& wanted) {
    std::printf("%-34s", what);
    for (Wanted const& one : wanted) {
        std::printf(" %6s", one.target.c_str());
    }
    std::printf(" %7s %7s %6s %6s %6s %6s\n", "right", "refused", "wrong", "hangs", "leaks",
                "canary");
}

void printOutcomes(Tally const& tally) {
    std::printf(" %7zu %7zu %6zu %6zu %6zu %6zu\n", tally.right, tally.refused, tally.wrong,
                tally.hangs, tally.leaks, tally.canaries);
}

} // namespace

std::vector<std::string> notInjected(SweepResult const& result, std::vector<Wanted> const& wanted) {
    std::vector<std::string> missing;
    for (Wanted const& one : wanted) {
        for (std::string const& kind : one.kinds) {
            if (result.injected(kind, one.target) == 0) {
                missing.push_back(one.target + ": no fault took place of the kind \"" + kind + '"');
            }
        }
    }
    return missing;
}

void print(SweepResult const& result, std::vector<Wanted> const& wanted) {
    printHead("faults that took place", wanted);
    Tally faults;
    std::map<std::string, std::size_t> byTarget;
    for (auto const& [kind, tallies] : result.faults) {
        std::printf("%-34s", kind.c_str());
        Tally sum;
        for (Wanted const& one : wanted) {
            auto const found = tallies.find(one.target);
            if (found == tallies.end() && !isWanted(one, kind)) {
                std::printf(" %6s", "-");
                continue;
            }
            Tally const tally = found == tallies.end() ? Tally{} : found->second;
            std::printf(" %6zu", tally.runs);
            byTarget[one.target] += tally.runs;
            sum += tally;
        }
        printOutcomes(sum);
        faults += sum;
    }
    std::printf("%-34s", "in all");
    for (Wanted const& one : wanted) {
        std::printf(" %6zu", byTarget[one.target]);
    }
    printOutcomes(faults);

    std::printf("\n");
    printHead("runs without a fault", wanted);
    for (auto const& [kind, tallies] : result.controls) {
        std::printf("%-34s", kind.c_str());
        Tally sum;
        for (Wanted const& one : wanted) {
            auto const found = tallies.find(one.target);
            Tally const tally = found == tallies.end() ? Tally{} : found->second;
            std::printf(" %6zu", tally.runs);
            sum += tally;
        }
        printOutcomes(sum);
    }
    std::fflush(stdout);
}

} // namespace remote_faults
