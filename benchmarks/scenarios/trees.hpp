#pragma once

#include "workplace.hpp"

namespace bench {

/// How the memory of walks grows with the number of entries. To be asked first, while little has
/// been allocated and freed that a walk could reuse.
void showMemoryOfWalks(Workplace const& place);

/// A tree of 20,000 files of 4 KiB copied.
void holdTreeCopy(Workplace const& place);
/// The same tree removed.
void holdTreeRemoval(Workplace const& place);
/// A tree of 200,000 files in 10,000 folders walked with attributes.
void holdTreeWalk(Workplace const& place);
/// A tree on a storage that takes 1 ms for every call.
void holdSlowStorage(Workplace const& place);

} // namespace bench
