#pragma once

#include <cstdint>

namespace foundation::storage::provider {

/// What a provider may offer beyond the minimum. Where one is missing, the system does the work.
enum class ExtendedFeature : std::uint32_t {
    RecursiveFolderRemoval = 0,
    RecursiveListing = 1,
    FlatWildcardListing = 2,
    RecursiveChangeEvents = 3,
    RecursiveWildcardListing = 4,
};

} // namespace foundation::storage::provider
