#pragma once

#include <foundation/export.hpp>
#include <foundation/msg_svc/eventmgr/fwd.hpp>
#include <foundation/storage/events/kind.hpp>
#include <foundation/storage/provider/storage_iri.hpp>
#include <foundation/storage/vfs/storage_system/storage_system_reference.hpp>

#include <boost/property_tree/ptree_fwd.hpp>
#include <boost/shared_ptr.hpp>

namespace foundation::storage::vfs {

using foundation::msg_svc::eventmgr::DeliverMode;
using foundation::storage::events::EntryType;
using foundation::storage::events::Kind;
using provider::StorageIRI;

/// The callback that a provider is given: makes an Event of each report, and notifies the event
/// manager, which it keeps alive. A value; may be called on many threads at once.
///
/// Lets everything out to the provider: what making the handle throws, also where the storage
/// system is gone, and what making the event does.
class FOUNDATION_EXPORT EventPublisher {
  public:
    EventPublisher(StorageSystemReference storageSystem, boost::shared_ptr<EventMgr> eventMgr,
                   DeliverMode deliverMode);

    /// `watched` is where the change is published, `entry` what changed: a file where `type` is 0,
    /// a folder otherwise. Each call has the storage system find the provider of `entry`.
    void operator()(Kind const& kind, StorageIRI const& watched, StorageIRI const& entry,
                    EntryType const& type, boost::property_tree::ptree extended) const;

  private:
    StorageSystemReference storageSystem_;
    boost::shared_ptr<EventMgr> eventMgr_;
    DeliverMode deliverMode_;
};

/// The same for a whole tree: a report from below the root is published under the root, where the
/// subscribers are.
class FOUNDATION_EXPORT RecursiveEventPublisher {
  public:
    RecursiveEventPublisher(StorageSystemReference storageSystem,
                            boost::shared_ptr<EventMgr> eventMgr, DeliverMode deliverMode,
                            StorageIRI root);

    void operator()(Kind const& kind, StorageIRI const& watched, StorageIRI const& entry,
                    EntryType const& type, boost::property_tree::ptree extended) const;

  private:
    EventPublisher publisher_;
    StorageIRI root_;
};

} // namespace foundation::storage::vfs
