#include "sweep.hpp"

#include <stdexcept>

namespace remote_faults {

namespace {

/// So far answers are swept in steps of ten bytes; heads are shorter.
constexpr unsigned sweptBytes = 1'000;

void requireSightOfUploads(Target const& target) {
    std::string seen;
    RunResult const run = runOnce(target, uploadInTheMiddle(target, seen), {"", {}});
    if (seen.empty() || run.failure) {
        throw std::runtime_error(target.name + ": an upload that is left would not be seen" +
                                 (run.failure ? ": " + *run.failure : ""));
    }
    if (!target.side->takeUploads().empty()) {
        throw std::runtime_error(target.name + ": an upload cannot be removed");
    }
}

} // namespace

Tally& Tally::operator+=(Tally const& other) {
    runs += other.runs;
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
    for (Tallies const* const tallies : {&faults, &controls}) {
        for (auto const& [kind, byTarget] : *tallies) {
            for (auto const& [target, tally] : byTarget) {
                result += tally;
            }
        }
    }
    return result;
}

std::size_t SweepResult::injected(std::string const& kind, std::string const& target) const {
    auto const byTarget = faults.find(kind);
    if (byTarget == faults.end() || !byTarget->second.contains(target)) {
        return 0;
    }
    return byTarget->second.at(target).runs;
}

std::string withoutSecrets(Target const& target, std::string text) {
    for (std::string const& secret : target.secrets) {
        for (std::size_t i = 0; (i = text.find(secret)) != std::string::npos;) {
            text.replace(i, secret.size(), "***");
        }
    }
    return text;
}

void prepare(Target const& target) {
    target.line->clear();
    target.side->takeUploads();
    for (auto const& [path, content] : readOnlyFiles(target)) {
        target.side->put(path, content);
    }
    if (target.hasUploads) {
        requireSightOfUploads(target);
    }
}

RunResult runAndCount(Target const& target, Scenario const& scenario, Plan const& plan,
                      SweepResult& result) {
    RunResult const run = runOnce(target, scenario, plan);
    Tally& tally = (plan.isFault() ? result.faults : result.controls)[plan.kind][target.name];
    bool const took = !plan.isFault() || run.counts.applied != 0;
    tally.runs += took;
    tally.right += took && !run.failure && !run.wrong;
    tally.refused += took && run.failure && !run.wrong;
    auto const note = [&](std::optional<std::string> const& finding, std::size_t& count) {
        if (finding) {
            ++count;
            result.findings.push_back(
                withoutSecrets(target, target.name + ", " + scenario.name + ", " + plan.kind +
                                           (plan.fault.kind.empty() || plan.fault.kind == "lie"
                                                ? ""
                                                : " (" + plan.fault.text() + ')') +
                                           ": " + *finding));
        }
    };
    note(run.wrong, tally.wrong);
    note(run.hang, tally.hangs);
    note(run.leak, tally.leaks);
    note(run.canary, tally.canaries);
    return run;
}

void sweep(Target const& target, Scenario const& scenario, Extent extent, SweepResult& result) {
    // That the operation is right without a fault is what all else rests on.
    RunResult const plain = runAndCount(target, scenario, {"no fault", {}}, result);
    if (plain.failure && !plain.wrong) {
        ++result.controls["no fault"][target.name].wrong;
        result.findings.push_back(
            withoutSecrets(target, target.name + ", " + scenario.name +
                                       " fails without a fault: " + *plain.failure));
    }
    runAndCount(target, scenario, {"another secret", {}, Who::Stranger}, result);
    // What takes back, and what tells of uploads whose beginning was not answered.
    std::string const lasting = scenario.cleansUp ? "^(?!DELETE|GET \\S*[?&]uploads)" : ".";
    unsigned const requests = plain.counts.requests;
    for (unsigned const request : placesAmong(requests, extent)) {
        for (Plan const& plan : plansAt(request, extent, lasting)) {
            runAndCount(target, scenario, plan, result);
        }
    }
    for (unsigned const request : sweptPlacesAmong(requests, extent)) {
        for (unsigned after = 0; after <= sweptBytes; after += 10) {
            Plan const plan = resetAt(request, after);
            if (runAndCount(target, scenario, plan, result).counts.applied == 0) {
                break; // the answer is shorter
            }
        }
    }
}

} // namespace remote_faults
