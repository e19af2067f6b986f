#pragma once

#include <foundation/export.hpp>
#include <foundation/msg_svc/eventmgr/connection.hpp>
#include <foundation/storage/vfs/events/event.hpp>
#include <foundation/storage/vfs/events/publish_events.hpp>

#include <functional>
#include <memory>
#include <vector>

namespace foundation::storage::vfs {

/// Subscribes to changes of files and folders, and has them published as long as somebody wants
/// them: once for a location, however many watch it. A host owns one, for as long as it likes; what
/// is watched goes on until its connection goes.
///
/// Safe on any number of threads, and from handlers.
class FOUNDATION_EXPORT ChangeWatcher {
  public:
    using Handler = std::function<void(Event const&)>;

    ChangeWatcher();
    ChangeWatcher(ChangeWatcher const&) = delete;
    ChangeWatcher& operator=(ChangeWatcher const&) = delete;
    ~ChangeWatcher();

    /// Calls `handler` with each change of these kinds to the resource, for a folder to its
    /// children too, and for a recursive one to everything below; and with every Overflow, which
    /// says that changes were lost. It runs on the thread of the storage that noticed the change,
    /// several calls at once where several did. Ends with the connection
    /// (Connection::disconnect()).
    ///
    /// Throws what detail::publishEventsFor() does.
    [[nodiscard]] foundation::msg_svc::eventmgr::ScopedConnection
    watch(FileOrFolder const& resource, std::vector<foundation::storage::events::Kind> const& kinds,
          WithRecursiveChangeEvents recursive, Handler handler);

  private:
    class Publications;

    std::shared_ptr<Publications> const publications_;
};

} // namespace foundation::storage::vfs
