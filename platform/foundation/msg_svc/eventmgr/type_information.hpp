#pragma once

#include <fl/i18n/ustring.hpp>
#include <foundation/export.hpp>

#include <cstddef>
#include <iterator>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace foundation::msg_svc::eventmgr {

class BaseEvent;

/// What subscribers are matched on: the names of an event's types, and tags that its maker gives.
/// Tags are added before the event is shared; from then on any thread may read.
class FOUNDATION_EXPORT TypeInformation {
  public:
    virtual ~TypeInformation();

    /// The name at `index`, counted from the most derived type. Throws std::out_of_range behind the
    /// last.
    virtual std::string const& getTypeName(std::size_t index) const = 0;
    virtual std::size_t getTypeCount() const noexcept = 0;

    template<class Tags>
    void addUserTags(Tags const& tags) {
        userTags_.insert(userTags_.end(), std::begin(tags), std::end(tags));
    }
    std::vector<fl::i18n::ustring> const& getUserTags() const noexcept { return userTags_; }

  protected:
    TypeInformation() = default;
    TypeInformation(TypeInformation const&) = default;
    TypeInformation& operator=(TypeInformation const&) = default;

  private:
    std::vector<fl::i18n::ustring> userTags_;
};

namespace detail {

/// Of a class of events that names itself with EventType() and its parent with EventBase, down to
/// BaseEvent.
template<class Event>
class DerivedTypeInformation : public TypeInformation {
  public:
    std::string const& getTypeName(std::size_t index) const override { return nameAt(index); }
    std::size_t getTypeCount() const noexcept override { return typeCount; }

    static std::string const& nameAt(std::size_t index) {
        if (index == 0) {
            return Event::EventType();
        }
        if constexpr (isRoot) {
            throw std::out_of_range("eventmgr::BaseEvent has no base types.");
        } else {
            return DerivedTypeInformation<typename Event::EventBase>::nameAt(index - 1);
        }
    }

  private:
    template<class>
    friend class DerivedTypeInformation;

    static constexpr bool isRoot = std::is_same_v<Event, BaseEvent>;
    static constexpr std::size_t typeCount = [] {
        if constexpr (isRoot) {
            return std::size_t{1};
        } else {
            return 1 + DerivedTypeInformation<typename Event::EventBase>::typeCount;
        }
    }();
};

} // namespace detail
} // namespace foundation::msg_svc::eventmgr
