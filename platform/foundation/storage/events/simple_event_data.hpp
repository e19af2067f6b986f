#pragma once

#include <fl/i18n/ustring.hpp>
#include <foundation/export.hpp>
#include <foundation/storage/events/kind.hpp>

#include <utility>

namespace foundation::storage::events {

/// What a change report says in plain values. A value class.
class FOUNDATION_EXPORT SimpleEventData {
  public:
    SimpleEventData(Kind kind, fl::i18n::ustring location, EntryType entryType)
        : kind_(kind),
          location_(std::move(location)),
          entryType_(entryType) {}

    Kind getKind() const noexcept { return kind_; }
    /// The text of the location of what changed.
    fl::i18n::ustring const& getLocation() const noexcept { return location_; }
    EntryType getEntryType() const noexcept { return entryType_; }

  private:
    Kind kind_;
    fl::i18n::ustring location_;
    EntryType entryType_;
};

} // namespace foundation::storage::events
