#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/events/event.hpp>
#include <foundation/storage/events/simple_event_data.hpp>
#include <foundation/storage/vfs/events/event_data.hpp>
#include <foundation/storage/vfs/fwd.hpp>

#include <boost/property_tree/ptree.hpp>

#include <string>

namespace foundation::storage::vfs {

/// A change in a watched file or folder. Never changes once it is made; any thread may read it.
class FOUNDATION_EXPORT Event : public foundation::storage::events::Event {
  public:
    using EventBase = foundation::storage::events::Event;

    /// `location` is where the change is published, which subscribers are matched on
    /// (createEventType()); `resource` is what changed, there or below. Throws what
    /// getLocation(resource) does.
    Event(Kind const& kind, AbsoluteIRI const& location, FileOrFolder const& resource,
          boost::property_tree::ptree extended);
    ~Event() override;

    Event* clone() const override;
    /// The location in it is that of the resource.
    foundation::storage::events::SimpleEventData getSimpleEventData() const override;
    EventData getEventData() const;
    ExtendedEventData getExtendedEventData() const;
    bool hasExtendedEventData() const;

    /// "foundation::storage::vfs::Event"
    static std::string const& EventType();

  protected:
    Event(Event const&) = default;

  private:
    foundation::storage::events::SimpleEventData simpleData_;
    EventData eventData_;
    ExtendedEventData extendedData_;
};

} // namespace foundation::storage::vfs
