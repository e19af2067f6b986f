#pragma once

#include <foundation/export.hpp>
#include <foundation/msg_svc/eventmgr/base_event.hpp>

#include <string>

namespace foundation::msg_svc::eventmgr {

/// The application ends: whoever holds threads or connections lets go of them.
class FOUNDATION_EXPORT ShutdownEvent : public BaseEvent {
  public:
    using EventBase = BaseEvent;

    ShutdownEvent();
    ~ShutdownEvent() override;
    ShutdownEvent* clone() const override;

    /// "foundation::msg_svc::eventmgr::ShutdownEvent"
    static std::string const& EventType();

  protected:
    ShutdownEvent(ShutdownEvent const&) = default;
};

} // namespace foundation::msg_svc::eventmgr
