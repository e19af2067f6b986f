#pragma once

#include <foundation/storage/provider/local/detail/kernel_path.hpp>

namespace foundation::storage::provider::local::detail {

/// What two paths have to do with each other.
enum class Relation {
    Distinct,     ///< two items
    SameEntry,    ///< one entry of one folder, links followed
    HardLink,     ///< two entries for one file
    OtherSpelling ///< one entry, in a folder that does not tell the two names apart
};

/// Compares by device and inode with links followed. Where the entries cannot be told apart with
/// certainty the answer is SameEntry, which callers refuse: taking one item for two loses its
/// bytes.
Relation relationOf(KernelPath const& a, KernelPath const& b);

} // namespace foundation::storage::provider::local::detail
