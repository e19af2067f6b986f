#include <foundation/storage/vfs/events/event.hpp>

#include <boost/make_shared.hpp>

#include <array>

namespace foundation::storage::vfs {

using foundation::msg_svc::eventmgr::TypeInformation;
using foundation::msg_svc::eventmgr::detail::DerivedTypeInformation;
using foundation::storage::events::createEventType;
using foundation::storage::events::EntryType;
using foundation::storage::events::SimpleEventData;

namespace {

boost::shared_ptr<TypeInformation> taggedType(Kind kind, AbsoluteIRI const& location) {
    std::array const tags{createEventType(kind, location.toString())};
    auto type = boost::make_shared<DerivedTypeInformation<Event>>();
    type->addUserTags(tags);
    return type;
}

} // namespace

Event::Event(Kind const& kind, AbsoluteIRI const& location, FileOrFolder const& resource,
             boost::property_tree::ptree extended)
    : EventBase(taggedType(kind, location)),
      simpleData_(kind, getLocation(resource).toString(), EntryType(resource.which())),
      eventData_(kind, resource),
      extendedData_(extended) {}

Event::~Event() = default;

Event* Event::clone() const {
    return new Event(*this);
}

SimpleEventData Event::getSimpleEventData() const {
    return simpleData_;
}

EventData Event::getEventData() const {
    return eventData_;
}

ExtendedEventData Event::getExtendedEventData() const {
    return extendedData_;
}

bool Event::hasExtendedEventData() const {
    return !extendedData_.empty();
}

std::string const& Event::EventType() {
    static std::string const name = "foundation::storage::vfs::Event";
    return name;
}

} // namespace foundation::storage::vfs
