#pragma once

#include <fl/i18n/ustring.hpp>
#include <foundation/export.hpp>
#include <foundation/msg_svc/eventmgr/base_event.hpp>
#include <foundation/msg_svc/eventmgr/type_information.hpp>
#include <foundation/storage/events/kind.hpp>
#include <foundation/storage/events/simple_event_data.hpp>

#include <boost/shared_ptr.hpp>

#include <string>

namespace foundation::storage::events {

/// A change in a storage.
class FOUNDATION_EXPORT Event : public foundation::msg_svc::eventmgr::BaseEvent {
  public:
    using EventBase = foundation::msg_svc::eventmgr::BaseEvent;

    explicit Event(
        boost::shared_ptr<foundation::msg_svc::eventmgr::TypeInformation> typeInformation);
    ~Event() override;
    virtual SimpleEventData getSimpleEventData() const = 0;

    /// "foundation::storage::events::Event"
    static std::string const& EventType();

  protected:
    Event(Event const&) = default;
    Event& operator=(Event const&) = default;
};

/// The tag of events about changes of this kind that are published under the location of this
/// text; equal for equal arguments, and for no others.
FOUNDATION_EXPORT fl::i18n::ustring createEventType(Kind kind, fl::i18n::ustring const& location);

} // namespace foundation::storage::events
