#include <foundation/storage/events/event.hpp>

#include <fl/i18n/conversion.hpp>

#include <utility>

namespace foundation::storage::events {

using foundation::msg_svc::eventmgr::TypeInformation;

Event::Event(boost::shared_ptr<TypeInformation> typeInformation)
    : BaseEvent(std::move(typeInformation)) {}

Event::~Event() = default;

std::string const& Event::EventType() {
    static std::string const name = "foundation::storage::events::Event";
    return name;
}

fl::i18n::ustring createEventType(Kind kind, fl::i18n::ustring const& location) {
    fl::i18n::ustring tag = fl::i18n::to_ustring(std::to_string(static_cast<std::uint32_t>(kind)));
    tag += u' ';
    tag += location;
    return tag;
}

} // namespace foundation::storage::events
