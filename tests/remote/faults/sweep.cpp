#include "sweep.hpp"

#include <cstdio>

namespace remote_faults {

namespace {

/// So far answers are swept in steps of ten bytes; heads are shorter.
constexpr unsigned sweptBytes = 1'000;

class Sweep {
  public:
    Sweep(Target const& target, Scenario const& scenario, SweepResult& result)
        : target_(target),
          scenario_(scenario),
          result_(result) {}

    /// How many faults took place.
    FaultCounts run(Plan const& plan) {
        RunResult const run = runOnce(target_, scenario_, plan);
        Tally& tally = result_.kinds[plan.kind];
        bool const took = run.counts.applied != 0 || plan.fault.kind.empty();
        tally.injected += took;
        tally.right += took && !run.failure && !run.wrong;
        tally.refused += took && run.failure && !run.wrong;
        note(plan, run.wrong, tally.wrong);
        note(plan, run.hang, tally.hangs);
        note(plan, run.leak, tally.leaks);
        note(plan, run.canary, tally.canaries);
        return run.counts;
    }
    /// That the operation is right without a fault is what all else rests on.
    unsigned countRequests() {
        Plan const plan{"none", {}};
        FaultCounts const counts = run(plan);
        if (result_.kinds["none"].refused != 0) {
            Tally& tally = result_.kinds["none"];
            tally.refused = 0;
            note(plan, "fails without a fault", tally.wrong);
        }
        return counts.requests;
    }

  private:
    void note(Plan const& plan, std::optional<std::string> const& finding, std::size_t& count) {
        if (finding) {
            ++count;
            result_.findings.push_back(target_.name + ", " + scenario_.name + ", " + plan.kind +
                                       " (" + plan.fault.text() + "): " + *finding);
        }
    }

    Target const& target_;
    Scenario const& scenario_;
    SweepResult& result_;
};

void printLine(std::string const& name, Tally const& tally) {
    std::printf("%-28s %9zu %7zu %7zu %7zu %7zu %7zu %7zu\n", name.c_str(), tally.injected,
                tally.right, tally.refused, tally.wrong, tally.hangs, tally.leaks, tally.canaries);
}

} // namespace

Tally& Tally::operator+=(Tally const& other) {
    injected += other.injected;
    right += other.right;
    refused += other.refused;
    wrong += other.wrong;
    hangs += other.hangs;
    leaks += other.leaks;
    canaries += other.canaries;
    return *this;
}

Tally SweepResult::sum() const {
    Tally result;
    for (auto const& [kind, tally] : kinds) {
        result += tally;
    }
    return result;
}

void prepare(Target const& target) {
    target.line.clear();
    target.side->takeUploads();
    for (auto const& [path, content] : readOnlyFiles(target)) {
        target.side->put(path, content);
    }
}

void sweep(Target const& target, Scenario const& scenario, Extent extent, SweepResult& result) {
    Sweep runs(target, scenario, result);
    unsigned const requests = runs.countRequests();
    runs.run({"another secret", {}, Who::Stranger});
    // What takes back, and what tells of uploads whose beginning was not answered.
    std::string const lasting = scenario.cleansUp ? "^(?!DELETE|GET \\S*[?&]uploads)" : ".";
    for (unsigned const request : placesAmong(requests, extent)) {
        for (Plan const& plan : plansAt(request, extent, lasting)) {
            runs.run(plan);
        }
    }
    for (unsigned const request : sweptPlacesAmong(requests, extent)) {
        for (unsigned after = 0; after <= sweptBytes; after += 10) {
            if (runs.run(resetAt(request, after)).applied == 0) {
                break; // the answer is shorter
            }
        }
    }
}

void print(SweepResult const& result) {
    std::printf("%-28s %9s %7s %7s %7s %7s %7s %7s\n", "fault", "injected", "right", "refused",
                "wrong", "hangs", "leaks", "canary");
    for (auto const& [kind, tally] : result.kinds) {
        printLine(kind, tally);
    }
    printLine("in all", result.sum());
    std::fflush(stdout);
}

} // namespace remote_faults
