#include <foundation/msg_svc/eventmgr/shutdown_event.hpp>

#include <boost/make_shared.hpp>

namespace foundation::msg_svc::eventmgr {

ShutdownEvent::ShutdownEvent()
    : BaseEvent(boost::make_shared<detail::DerivedTypeInformation<ShutdownEvent>>()) {}

ShutdownEvent::~ShutdownEvent() = default;

ShutdownEvent* ShutdownEvent::clone() const {
    return new ShutdownEvent(*this);
}

std::string const& ShutdownEvent::EventType() {
    static std::string const name = "foundation::msg_svc::eventmgr::ShutdownEvent";
    return name;
}

} // namespace foundation::msg_svc::eventmgr
