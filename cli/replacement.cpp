#include "replacement.hpp"

#include "arguments.hpp"

#include <algorithm>
#include <array>
#include <string_view>

namespace cli {

using foundation::storage::provider::ReplacementPolicy;

namespace {

struct NamedPolicy {
    std::string_view name;
    std::string_view shortName;
    ReplacementPolicy policy;
};

constexpr std::array policies{
    NamedPolicy{"fail-if-exists", "fail", ReplacementPolicy::FailIfExists},
    NamedPolicy{"replace-existing", "replace", ReplacementPolicy::ReplaceExisting},
    NamedPolicy{"replace-read-only", "force", ReplacementPolicy::ReplaceReadOnly},
    NamedPolicy{"replace-and-defer-denied", "defer", ReplacementPolicy::ReplaceAndDeferDenied},
    NamedPolicy{"keep-existing", "keep", ReplacementPolicy::KeepExisting},
};

} // namespace

ReplacementPolicy policyNamed(std::string const& name) {
    auto const named =
        std::find_if(policies.begin(), policies.end(), [&](NamedPolicy const& candidate) {
            return candidate.name == name || candidate.shortName == name;
        });
    if (named == policies.end()) {
        throw UsageError("--policy is one of fail, replace, force, defer and keep");
    }
    return named->policy;
}

ReplacementPolicy chosenPolicy(std::optional<std::string> const& name, bool keep, bool force,
                               bool ask) {
    if (keep && force) {
        throw UsageError("-n and -f exclude each other");
    }
    if (name && (keep || force)) {
        throw UsageError(keep ? "--policy and -n exclude each other"
                              : "--policy and -f exclude each other");
    }
    ReplacementPolicy const policy = name    ? policyNamed(*name)
                                     : keep  ? ReplacementPolicy::KeepExisting
                                     : force ? ReplacementPolicy::ReplaceReadOnly
                                             : ReplacementPolicy::ReplaceExisting;
    if (ask && !replaces(policy)) {
        throw UsageError(keep ? "-i and -n exclude each other"
                              : "-i asks before it replaces; this policy replaces nothing");
    }
    return policy;
}

} // namespace cli
