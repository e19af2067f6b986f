#include <foundation/storage/conformance/detail/watching.hpp>

#include <utility>

namespace foundation::storage::conformance::detail {

using events::Kind;

namespace {

std::string describe(EventLog const& log) {
    std::string text;
    for (ChangeReport const& report : log.reports()) {
        text += (text.empty() ? "" : "; ") + textOf(report);
    }
    return text.empty() ? "nothing" : text;
}

std::string nameOf(Kind kind) {
    constexpr char const* names[] = {"Created", "Modified", "AttributesChanged", "Removed",
                                     "Overflow"};
    return names[static_cast<std::size_t>(kind)];
}

} // namespace

EventLog watch(Trial& t, StorageIRI const& location, RecursiveFileWatching recursive,
               ChangeKinds const& kinds) {
    EventLog log(t.contract().patience);
    t.provider().publishFolderEvents(location, log.callback(), kinds, recursive);
    return log;
}
EventLog watchTree(Trial& t, StorageIRI const& location) {
    return watch(t, location, RecursiveFileWatching::Recursive);
}
EventLog watchFile(Trial& t, StorageIRI const& location, ChangeKinds const& kinds) {
    EventLog log(t.contract().patience);
    t.provider().publishFileEvents(location, log.callback(), kinds);
    return log;
}

bool expectTold(Trial& t, EventLog const& log, Kind kind, StorageIRI const& entry) {
    return log.waitFor(isAbout(kind, entry)) ||
           t.expect(false, nameOf(kind) + " of " + textOf(entry) + " is not told; told is " +
                               describe(log));
}

bool expectUntold(Trial& t, EventLog const& log, std::string const& what,
                  EventLog::Condition const& condition) {
    return t.expect(!log.contains(condition), what + " is told, among " + describe(log));
}

void settle(Trial& t, EventLog const& log, ustring const& path) {
    t.makeFile(path);
    expectTold(t, log, Kind::Created, t.at(path));
}

} // namespace foundation::storage::conformance::detail
