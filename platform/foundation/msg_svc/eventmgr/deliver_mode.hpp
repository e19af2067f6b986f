#pragma once

#include <cstdint>

namespace foundation::msg_svc::eventmgr {

/// When the handlers of an event run.
enum class DeliverMode : std::uint32_t {
    Queued = 0,   ///< on a thread of the event manager's, one event after the other
    Immediate = 1 ///< on the notifying thread, before notify() returns
};

} // namespace foundation::msg_svc::eventmgr
