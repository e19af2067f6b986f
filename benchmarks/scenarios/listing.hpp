#pragma once

#include "workplace.hpp"

namespace bench {

/// How much memory listings hold beyond what is listed. To be asked first, while little has been
/// allocated and freed that a listing could reuse.
void showMemoryOfListing(Workplace const& place);

/// Names in one folder of 100,000 files, and in a tree of 200,000 files in 10,000 folders.
void holdNames(Workplace const& place);
/// The same with attributes.
void holdEntries(Workplace const& place);
/// Names in a chain of 2,000 folders.
void holdDeepNames(Workplace const& place);
/// What it costs to take iterators of a listing.
void holdCursor(Workplace const& place);

} // namespace bench
