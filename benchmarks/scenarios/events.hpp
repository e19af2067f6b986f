#pragma once

#include "workplace.hpp"

namespace bench {

/// What watching 10,000 folders takes, in memory and in time. To be asked first, while little has
/// been allocated and freed that watching could reuse.
void holdTreeWatch(Workplace const& place);
/// From a write to the handler that is told of it.
void holdChangeLatency(Workplace const& place);
/// What watching a folder costs those who create files in it.
void holdCreateUnderWatch(Workplace const& place);
/// How the number of subscribers shows in the delivery of an event.
void holdManySubscribers(Workplace const& place);
/// Whether somebody who is told of changes knows what is there behind a million of them, taken
/// in too slowly for the kernel's queue.
void holdBurst(Workplace const& place);

} // namespace bench
