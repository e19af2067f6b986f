#pragma once

#include "command_run.hpp"

#include <cli/commands.hpp>

#include <foundation/storage/provider/i_provider.hpp>

#include <memory>

namespace cli_test {

/// Runs the command in this process, over a storage that a disk never is: `storage` has the schemes
/// `odd` and `file`, and `other`, where it is given, the scheme `other`.
Outcome runOver(std::shared_ptr<foundation::storage::provider::IProvider> const& storage,
                cli::Words const& words,
                std::shared_ptr<foundation::storage::provider::IProvider> const& other = nullptr);

/// Where `path` stands in the storage of the scheme `odd`.
foundation::storage::provider::StorageIRI oddLocation(std::string const& path);

} // namespace cli_test
