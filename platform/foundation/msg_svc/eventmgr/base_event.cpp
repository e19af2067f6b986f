#include <foundation/msg_svc/eventmgr/base_event.hpp>

#include <utility>

namespace foundation::msg_svc::eventmgr {

BaseEvent::BaseEvent(boost::shared_ptr<TypeInformation> typeInformation)
    : typeInformation_(std::move(typeInformation)) {}

BaseEvent::~BaseEvent() = default;

bool BaseEvent::canBeSerialized() const {
    return false;
}

void BaseEvent::fillStream(std::ostream&) const {}

bool BaseEvent::isQuillonClientsAllowed() const {
    return false;
}

std::string const& BaseEvent::EventType() {
    static std::string const name = "foundation::msg_svc::eventmgr::BaseEvent";
    return name;
}

bool BaseEvent::isKindOf(std::string_view typeName) const {
    for (std::size_t i = 0; i < typeInformation_->getTypeCount(); ++i) {
        if (typeInformation_->getTypeName(i) == typeName) {
            return true;
        }
    }
    return false;
}

} // namespace foundation::msg_svc::eventmgr
