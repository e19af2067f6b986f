#pragma once

#include <foundation/export.hpp>
#include <foundation/msg_svc/eventmgr/connection.hpp>
#include <foundation/storage/events/kind.hpp>
#include <foundation/storage/vfs/events/event.hpp>
#include <foundation/storage/vfs/events/publish_events.hpp>
#include <foundation/storage/vfs/fwd.hpp>

#include <functional>
#include <memory>
#include <vector>

namespace foundation::storage::vfs {

/// Subscribes to changes of files and folders, and has them published as long as somebody wants
/// them: once for an item of a storage system, however many watch it. A host owns one, for as long
/// as it likes; what is watched goes on until its connection goes. Two of them that watch one item
/// disturb each other, as whoever stops a publication ends the oldest.
///
/// Safe on any number of threads, and from handlers. Storages are asked to publish and to stop one
/// at a time, so a slow one holds up the others.
class FOUNDATION_EXPORT ChangeWatcher {
  public:
    using Handler = std::function<void(Event const&)>;

    ChangeWatcher();
    ChangeWatcher(ChangeWatcher const&) = delete;
    ChangeWatcher& operator=(ChangeWatcher const&) = delete;
    ~ChangeWatcher();

    /// Calls `handler` with each change of these kinds to the resource, for a folder to its
    /// children too, and for a recursive one to everything below; and with every Overflow, which
    /// says that changes may have been lost. Where a recursive watch joins those of a folder alone,
    /// these are told an Overflow as well, since the storage begins anew. The handler runs on the
    /// thread of the storage that noticed the change, several calls at once where several did. Ends
    /// with the connection (Connection::disconnect()).
    ///
    /// Throws what detail::publishEventsFor() does, where the item is not published already.
    [[nodiscard]] foundation::msg_svc::eventmgr::ScopedConnection
    watch(FileOrFolder const& resource, std::vector<foundation::storage::events::Kind> const& kinds,
          WithRecursiveChangeEvents recursive, Handler handler);

  private:
    class Publications;

    std::shared_ptr<Publications> const publications_;
};

} // namespace foundation::storage::vfs
