#pragma once

#include "location.hpp"

#include <foundation/storage/vfs/events/event.hpp>

#include <set>
#include <string>
#include <vector>

namespace cli {

/// What `vfs watch` prints of changes at one location. Safe on any number of threads.
class ChangeLines {
  public:
    using Kind = foundation::storage::events::Kind;

    /// `kinds` are those that are wanted; Overflow always is.
    ChangeLines(Location watched, std::set<Kind> kinds, bool json);

    /// The line, with its end. Empty where another line tells of the change: a move is a removal
    /// and a creation, and for people one line.
    std::string lineFor(foundation::storage::vfs::Event const& event) const;

  private:
    struct Change;

    std::string forPrograms(Change const& change) const;
    std::string forPeople(Change const& change) const;
    std::string shown(foundation::storage::provider::StorageIRI const& item, bool isFolder) const;

    Location watched_;
    std::set<Kind> kinds_;
    bool json_;
};

/// The kinds that a list such as "created,removed" names. Throws UsageError.
std::set<foundation::storage::events::Kind> kindsNamed(std::string const& list);

/// All that a person may ask for.
std::set<foundation::storage::events::Kind> everyKind();

} // namespace cli
