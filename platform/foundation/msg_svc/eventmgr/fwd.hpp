#pragma once

namespace foundation::msg_svc::eventmgr {

class EventMgr;

} // namespace foundation::msg_svc::eventmgr
