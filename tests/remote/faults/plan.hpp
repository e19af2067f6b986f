#pragma once

#include "target.hpp"

#include <chrono>
#include <string>
#include <vector>

namespace remote_faults {

/// One fault, as it is injected into one run of an operation.
struct Plan {
    std::string kind; ///< a line of the table
    Fault fault;
    Who who = Who::Known;
    std::chrono::milliseconds patience{3'000};

    bool isFault() const { return !fault.kind.empty(); }
    /// Whether the operation can go on behind it.
    bool passes() const { return who == Who::Known && fault.count != 0; }
};

enum class Extent { Full, Few };

/// The faults at one request of an operation, counted from 1. `lasting` matches the requests that a
/// fault may hit that goes on for ever.
std::vector<Plan> plansAt(unsigned request, Extent extent, std::string const& lasting);

/// What all of these are called, and the next one where they are tried at all.
std::vector<std::string> kindsOfLine(Extent extent);

/// What a server that lies does by itself.
Plan lieOf(std::string const& kind);

/// A reset behind so many bytes of the answer.
Plan resetAt(unsigned request, unsigned after);

/// Of so many requests those at which faults are injected: the first ones, one between, the last.
std::vector<unsigned> placesAmong(unsigned requests, Extent extent);
/// Those whose answers are swept by bytes.
std::vector<unsigned> sweptPlacesAmong(unsigned requests, Extent extent);

} // namespace remote_faults
