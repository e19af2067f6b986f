#include <foundation/storage/vfs/events/publish_events.hpp>

#include <foundation/msg_svc/eventmgr/connection.hpp>
#include <foundation/msg_svc/eventmgr/deliver_mode.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/events/event_publisher.hpp>

#include <boost/variant/apply_visitor.hpp>

#include <ostream>

namespace foundation::storage::vfs {

std::ostream& operator<<(std::ostream& out, WithRecursiveChangeEvents recursive) {
    return out << (recursive == WithRecursiveChangeEvents::Yes ? "WithRecursiveChangeEvents::Yes"
                                                               : "WithRecursiveChangeEvents::No");
}

namespace detail {

EventMgr* publishEventsFor(FileOrFolder const& resource, std::vector<Kind> const& kinds,
                           WithRecursiveChangeEvents recursive) {
    StorageSystemReference const reference = getStorageSystem(resource);
    boost::shared_ptr<EventMgr> const manager = reference.getEventMgr();
    if (!manager) {
        throw ChangeEventsNotSupportedException(getLocation(resource));
    }
    DeliverMode const mode = DeliverMode::Immediate;
    if (recursive == WithRecursiveChangeEvents::No) {
        EventPublisher const publisher(reference, manager, mode);
        boost::apply_visitor([&](auto const& item) { item.publishEvents(publisher, kinds); },
                             resource);
    } else {
        RecursiveEventPublisher const publisher(reference, manager, mode,
                                                getLocation(resource).toStorageIRI());
        boost::apply_visitor(
            [&](auto const& item) { item.publishEventsRecursively(publisher, kinds); }, resource);
    }
    return manager.get();
}

void stopPublishingEventsFor(FileOrFolder const& resource) {
    boost::apply_visitor([](auto const& item) { item.stopPublishingEvents(); }, resource);
}

} // namespace detail

void unsubscribe(FileOrFolder const& resource,
                 std::unique_ptr<foundation::msg_svc::eventmgr::Connection> const& connection) {
    detail::stopPublishingEventsFor(resource);
    if (connection) {
        connection->disconnect();
    }
}

} // namespace foundation::storage::vfs
