#pragma once

#include "target.hpp"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace remote_faults {

/// Where an operation takes place.
struct Stage {
    std::shared_ptr<provider::IProvider> provider;
    provider::StorageIRI root;

    provider::StorageIRI at(std::string const& path) const;
    provider::StorageItem item(std::string const& path) const;
};

/// An operation to be done over a faulty line. Paths are below the target's root.
struct Scenario {
    std::string name;
    /// Does it, and says what is wrong with its result; nothing where it is right.
    std::function<std::optional<std::string>(Stage const&)> run;

    /// All that is in the folder "work" before and after a success. What is the same everywhere
    /// (see readOnlyFiles) stands beside it.
    Files before = {};
    Files after = {};
    /// Nothing that begins so is left by a success.
    std::string gone = {};
    /// One of the two is always there with the content of the first one before.
    std::optional<std::pair<std::string, std::string>> moved = {};
    /// Whether a fault that lasts leaves the requests alone that clean up: who cannot reach a
    /// server cannot take anything back there.
    bool cleansUp = false;
    /// How much longer than others its slowest call may take: closing what is written may have a
    /// second for each mebibyte.
    std::chrono::seconds allowance{0};
    /// Once the fault is over, it is done: requests may be sent again.
    bool isReading = false;
    /// What it is told is not to be believed: it has to be refused.
    bool mustFail = false;
};

/// What reading is tried with: "small.txt", "large.bin", and the folder "many".
Files readOnlyFiles(Target const& target);
inline constexpr std::size_t manyNames = 3'000;

std::vector<Scenario> readingScenarios(Target const& target);
std::vector<Scenario> changingScenarios();
/// Begins an upload that is not completed, and tells of which key one is seen on the server then.
Scenario uploadInTheMiddle(Target const& target, std::string& seen);
/// Those that a target can do.
std::vector<Scenario> scenariosOf(Target const& target);

} // namespace remote_faults
