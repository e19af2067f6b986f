#pragma once

#include <foundation/storage/provider/exists_result.hpp>
#include <foundation/storage/vfs/iri/absolute_iri.hpp>
#include <foundation/storage/vfs/storage_system/storage_system_reference.hpp>

#include <optional>
#include <string>

namespace cli {

bool isLink(foundation::storage::provider::ExtendedExistsResult kind) noexcept;

/// Whether the storage of `iri` has links. Throws what building its provider throws.
bool hasLinks(foundation::storage::vfs::StorageSystemReference const& system,
              foundation::storage::vfs::AbsoluteIRI const& iri);

/// Where the link at `iri` leads, as the bytes that it holds; empty where the storage has no links.
/// Throws what the storage throws, for anything that is no link too.
std::optional<std::string>
linkTarget(foundation::storage::vfs::StorageSystemReference const& system,
           foundation::storage::vfs::AbsoluteIRI const& iri);

} // namespace cli
