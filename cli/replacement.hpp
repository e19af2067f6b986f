#pragma once

#include <foundation/storage/provider/copy_file_options.hpp>

#include <optional>
#include <string>

/// What copies and moves do about things that are there already, as people name it.
namespace cli {

/// The policy of this name or short name; throws UsageError that lists them.
foundation::storage::provider::ReplacementPolicy policyNamed(std::string const& name);

/// The policy that the options choose: --policy NAME, -n for keep, -f for force; `replace` without
/// any. Throws UsageError for two of them, and for -i with a policy that replaces nothing.
foundation::storage::provider::ReplacementPolicy
chosenPolicy(std::optional<std::string> const& name, bool keep, bool force, bool ask);

} // namespace cli
