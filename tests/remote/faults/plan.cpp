#include "plan.hpp"

#include <set>

namespace remote_faults {

namespace {
constexpr std::chrono::milliseconds shortPatience{300};
} // namespace

std::vector<Plan> plansAt(unsigned request, Extent extent, std::string const& lasting) {
    std::vector<Plan> result;
    auto const add = [&](char const* kind, char const* fault, unsigned count, unsigned after) {
        Plan plan{kind, {fault, request - 1, count, after, count == 0 ? lasting : "."}};
        if (plan.fault.kind == "stall") {
            plan.patience = shortPatience;
        }
        result.push_back(std::move(plan));
    };
    add("reset before the answer", "reset", 1, 0);
    add("answer truncated", "truncate", 1, 300);
    add("answer stalled", "stall", 1, 300);
    add("503 twice", "status", 2, 0);
    add("503 from there on", "status", 0, 0);
    add("reset from there on", "reset", 0, 0);
    if (extent == Extent::Few) {
        return result;
    }
    add("connection dropped", "drop", 1, 0);
    for (unsigned const after : {100U, 300U, 1'500U, 70'000U, 1'000'000U}) {
        add("reset within the answer", "reset", 1, after);
    }
    for (unsigned const after : {0U, 100U, 1'500U, 70'000U, 1'000'000U}) {
        add("answer truncated", "truncate", 1, after);
    }
    for (unsigned const after : {0U, 70'000U}) {
        add("answer stalled", "stall", 1, after);
    }
    for (unsigned const after : {0U, 100U, 1'500U, 1'000'000U}) {
        add("request cut off", "upreset", 1, after);
    }
    add("dropped from there on", "drop", 0, 0);
    add("reset from there on", "reset", 0, 300);
    add("truncated from there on", "truncate", 0, 300);
    add("stalled from there on", "stall", 0, 0);
    add("cut off from there on", "upreset", 0, 100);
    return result;
}

std::vector<std::string> kindsOfLine(Extent extent) {
    std::set<std::string> kinds;
    for (Plan const& plan : plansAt(1, extent, ".")) {
        kinds.insert(plan.kind);
    }
    if (extent == Extent::Full) {
        kinds.insert(resetAt(1, 0).kind);
    }
    return {kinds.begin(), kinds.end()};
}

Plan resetAt(unsigned request, unsigned after) {
    return {"reset at every 10th byte", {"reset", request - 1, 1, after}};
}

Plan lieOf(std::string const& kind) {
    Plan plan{kind, {"lie"}};
    plan.patience = shortPatience;
    return plan;
}

std::vector<unsigned> placesAmong(unsigned requests, Extent extent) {
    std::set<unsigned> places;
    unsigned const first = extent == Extent::Few ? 1 : 4;
    for (unsigned i = 1; i <= first && i <= requests; ++i) {
        places.insert(i);
    }
    if (requests != 0) {
        places.insert(requests);
    }
    if (extent == Extent::Full && requests > first) {
        places.insert(requests - 1);
        places.insert((requests + first) / 2);
    }
    return {places.begin(), places.end()};
}

std::vector<unsigned> sweptPlacesAmong(unsigned requests, Extent extent) {
    if (extent == Extent::Few || requests == 0) {
        return {};
    }
    std::set<unsigned> const places{1, (requests + 1) / 2, requests};
    return {places.begin(), places.end()};
}

} // namespace remote_faults
