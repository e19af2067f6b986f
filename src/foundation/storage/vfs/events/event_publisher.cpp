#include <foundation/storage/vfs/events/event_publisher.hpp>

#include <foundation/msg_svc/eventmgr/event_mgr.hpp>
#include <foundation/storage/vfs/events/event.hpp>

#include <utility>

namespace foundation::storage::vfs {

using boost::property_tree::ptree;

EventPublisher::EventPublisher(StorageSystemReference storageSystem,
                               boost::shared_ptr<EventMgr> eventMgr, DeliverMode deliverMode)
    : storageSystem_(std::move(storageSystem)),
      eventMgr_(std::move(eventMgr)),
      deliverMode_(deliverMode) {}

void EventPublisher::operator()(Kind const& kind, StorageIRI const& watched,
                                StorageIRI const& entry, EntryType const& type,
                                ptree extended) const {
    AbsoluteIRI const changed(entry, true);
    FileOrFolder const resource = type == EntryType::File
                                      ? FileOrFolder(File(changed, storageSystem_))
                                      : FileOrFolder(Folder(changed, storageSystem_));
    AbsoluteIRI const location(watched, true);
    eventMgr_->notify(Event(kind, location, resource, extended), deliverMode_);
}

RecursiveEventPublisher::RecursiveEventPublisher(StorageSystemReference storageSystem,
                                                 boost::shared_ptr<EventMgr> eventMgr,
                                                 DeliverMode deliverMode, StorageIRI root)
    : publisher_(std::move(storageSystem), std::move(eventMgr), deliverMode),
      root_(std::move(root)) {}

void RecursiveEventPublisher::operator()(Kind const& kind, StorageIRI const& watched,
                                         StorageIRI const& entry, EntryType const& type,
                                         ptree extended) const {
    publisher_(kind, root_.isAncestorOf(watched) ? root_ : watched, entry, type, extended);
}

} // namespace foundation::storage::vfs
