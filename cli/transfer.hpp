#pragma once

#include "arguments.hpp"
#include "transfer_run.hpp"

#include <foundation/storage/provider/exists_result.hpp>

#include <functional>
#include <optional>
#include <string>
#include <vector>

/// What copying and moving share on their way to single transfers.
namespace cli {

/// One item to be brought from one location to another.
struct Transfer {
    Location source;
    Location destination;
    foundation::storage::provider::ExtendedExistsResult kind{}; ///< of the source
    bool ofTree = false; ///< a folder is to be transferred, or what a link to a folder leads to

    Places places() const { return {source, destination}; }
};

/// The options that cp and mv have in common, while they are read.
struct TransferOptions {
    std::optional<std::string> policy;
    bool keep = false;
    bool force = false;
    TransferWishes wishes;

    void declare(Arguments& arguments);
    /// But for the operands, and what has to do with their number.
    void declareWishes(Arguments& arguments);
    /// Throws UsageError; REQUIRES: the arguments were read.
    TransferWishes const& read(Host const& host);
};

/// Calls `action` for each source among `operands`, whose last one is the destination: a new name,
/// or a folder into which everything goes under its own name. Refuses a second item for one name,
/// and a folder that would go into itself or onto itself, however it is spelled. Reports what
/// fails, and goes on. `action` reports what fails in it, and says whether anything was changed.
void forEachTransfer(TransferRun& run, std::vector<std::string> const& operands,
                     std::function<bool(Transfer const&)> const& action);

/// Reads both files back and throws Refusal unless the destination holds what the source does: the
/// same bytes, or a link that leads to the same.
void checkCopy(foundation::storage::vfs::StorageSystemReference const& system,
               Location const& source, Location const& destination);

/// The canonical location; where nothing is there, or a link that leads nowhere, that of the folder
/// above with the name; empty where that is missing too. Throws what the storage throws.
std::optional<foundation::storage::provider::StorageIRI>
placeOf(foundation::storage::vfs::StorageSystemReference const& system, Location const& location);

} // namespace cli
