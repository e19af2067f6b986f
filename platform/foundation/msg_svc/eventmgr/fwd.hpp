#pragma once

#include <cstdint>

namespace foundation::msg_svc::eventmgr {

class BaseEvent;
class Connection;
class EventMgr;
class ScopedConnection;
class ShutdownEvent;
class StackTrace;
class TypeInformation;

enum class DeliverMode : std::uint32_t;

} // namespace foundation::msg_svc::eventmgr
