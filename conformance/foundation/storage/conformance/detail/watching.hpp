#pragma once

#include <foundation/storage/conformance/detail/event_log.hpp>
#include <foundation/storage/conformance/detail/trial.hpp>

#include <string>

namespace foundation::storage::conformance::detail {

inline ChangeKinds const everything{events::Kind::Created, events::Kind::Modified,
                                    events::Kind::AttributesChanged, events::Kind::Removed};

/// What a publication of a folder tells.
EventLog watch(Trial& t, StorageIRI const& location,
               RecursiveFileWatching recursive = RecursiveFileWatching::NonRecursive,
               ChangeKinds const& kinds = everything);
EventLog watchTree(Trial& t, StorageIRI const& location);
EventLog watchFile(Trial& t, StorageIRI const& location, ChangeKinds const& kinds = everything);

bool expectTold(Trial& t, EventLog const& log, events::Kind kind, StorageIRI const& entry);
/// Nothing for which the condition holds is told so far.
bool expectUntold(Trial& t, EventLog const& log, std::string const& what,
                  EventLog::Condition const& condition);

/// Makes a file in the watched folder and waits until that is told: then what was done before is
/// told too, or is not going to be.
void settle(Trial& t, EventLog const& log, ustring const& path);

} // namespace foundation::storage::conformance::detail
