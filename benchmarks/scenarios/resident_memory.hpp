#pragma once

#include <functional>

namespace bench {

/// How many MiB of resident memory a work needs at most, beyond what was resident before it. What
/// was freed before and not given back to the system does not count, so little should have been.
double growthDuring(std::function<void()> const& work);

} // namespace bench
