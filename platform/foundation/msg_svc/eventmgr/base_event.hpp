#pragma once

#include <foundation/export.hpp>
#include <foundation/msg_svc/eventmgr/type_information.hpp>

#include <boost/shared_ptr.hpp>

#include <iosfwd>
#include <string>
#include <string_view>

namespace foundation::msg_svc::eventmgr {

/// What the event manager delivers. A class of events derives from it, names itself with a static
/// EventType() and its parent with `using EventBase`. Events do not change once they are made, and
/// any thread may read them.
class FOUNDATION_EXPORT BaseEvent {
  public:
    /// REQUIRES: type information.
    explicit BaseEvent(boost::shared_ptr<TypeInformation> typeInformation);
    virtual ~BaseEvent();
    /// A copy that the caller owns.
    virtual BaseEvent* clone() const = 0;
    /// Whether fillStream() writes something that the event can be made of again.
    virtual bool canBeSerialized() const;
    virtual void fillStream(std::ostream& out) const;
    /// Whether clients outside the process may be handed the event.
    virtual bool isQuillonClientsAllowed() const;

    /// "foundation::msg_svc::eventmgr::BaseEvent"
    static std::string const& EventType();

    TypeInformation const& getTypeInformation() const noexcept { return *typeInformation_; }
    /// Whether the event is of the type, or derived from it.
    bool isKindOf(std::string_view typeName) const;

  protected:
    BaseEvent(BaseEvent const&) = default;
    BaseEvent& operator=(BaseEvent const&) = default;

  private:
    boost::shared_ptr<TypeInformation> typeInformation_;
};

} // namespace foundation::msg_svc::eventmgr
