#pragma once

#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

/// That everything in an archive can be listed, and every member read in more than one way with the
/// same outcome. `root` is the location of what it holds.
void checkArchive(foundation::storage::provider::IProvider& archive,
                  foundation::storage::provider::StorageIRI const& root);
