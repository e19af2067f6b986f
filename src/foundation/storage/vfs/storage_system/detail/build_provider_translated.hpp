#pragma once

#include <foundation/storage/provider/fwd.hpp>

#include <memory>

namespace foundation::storage::vfs {

class StorageSystem;

/// The one way to ask a system for a provider. Provider exceptions, and nothing else, are
/// translated.
std::shared_ptr<provider::IProvider> buildProviderTranslated(StorageSystem const& system,
                                                             provider::StorageIRI const& location);

} // namespace foundation::storage::vfs
