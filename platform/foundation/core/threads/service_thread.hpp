#pragma once

#include <foundation/export.hpp>

#include <functional>
#include <thread>

namespace foundation::core::threads {

/// Starts a thread that a library keeps for itself: all signals are blocked on it, as those of a
/// program are not for it, and debuggers and top(1) show its name, of at most 15 bytes, from the
/// moment that this returns.
///
/// Throws std::system_error where there are no more threads. REQUIRES: `body` throws nothing.
FOUNDATION_EXPORT std::thread startServiceThread(char const* name, std::function<void()> body);

} // namespace foundation::core::threads
