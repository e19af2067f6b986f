#pragma once

#include "invocation.hpp"

#include <foundation/storage/provider/copy_file_options.hpp>

#include <functional>
#include <string>
#include <vector>

/// What copying and moving share.
namespace cli {

/// One file to be brought from one location to another.
struct Transfer {
    Location source;
    Location destination;
    foundation::storage::provider::ReplacementPolicy policy;
};

/// Calls `action` for each source among `operands`, whose last one is the destination: a file's new
/// name, or a folder into which everything goes under its own name. Folders as sources are refused
/// (`verb` says what does not happen to them: "copied"), and so is a second file for one name.
/// Reports what fails, and goes on.
void forEachTransfer(Invocation& invocation, std::vector<std::string> const& operands,
                     foundation::storage::provider::ReplacementPolicy policy,
                     std::string const& verb, std::function<void(Transfer const&)> const& action);

/// The policy for the options -n and -f; throws UsageError for both.
foundation::storage::provider::ReplacementPolicy replacementPolicy(bool noClobber, bool force);

/// Copies by the storages, with a progress line, and stops for signals.
void copyFile(foundation::storage::vfs::StorageSystemReference const& system,
              Transfer const& transfer);

/// Reads both files back and throws Refusal unless the destination holds what the source does: the
/// same bytes, or a link that leads to the same.
void checkCopy(foundation::storage::vfs::StorageSystemReference const& system,
               Transfer const& transfer);

} // namespace cli
