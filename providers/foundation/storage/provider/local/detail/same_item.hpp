#pragma once

#include <foundation/storage/provider/local/detail/kernel_path.hpp>

namespace foundation::storage::provider::local::detail {

/// What two paths have to do with each other. In HardLink and OtherSpelling the two are the same
/// inode themselves, with no link followed.
enum class Relation {
    Distinct,     ///< two items
    SameEntry,    ///< one entry of one folder, a link and what it leads to included
    HardLink,     ///< two entries for one file
    OtherSpelling ///< one entry, in a folder that does not tell the two names apart
};

bool sameInode(struct stat const& a, struct stat const& b) noexcept;

/// What two links are compared by: as entries of their own, or by what they lead to.
enum class LinkPairs { Themselves, Followed };

/// Compares by device and inode. Where the entries cannot be told apart with certainty the answer
/// is SameEntry, which callers refuse: taking one item for two loses its bytes. The error number of
/// a question that could not be answered, or 0; what is absent is distinct from everything.
int relationOf(KernelPath const& a, KernelPath const& b, LinkPairs links, Relation& result);

} // namespace foundation::storage::provider::local::detail
