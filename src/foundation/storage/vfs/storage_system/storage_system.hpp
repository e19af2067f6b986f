#pragma once

#include <foundation/export.hpp>
#include <foundation/msg_svc/eventmgr/fwd.hpp>
#include <foundation/storage/provider/fwd.hpp>

#include <boost/shared_ptr.hpp>

#include <memory>

namespace foundation::storage::vfs {

using foundation::msg_svc::eventmgr::EventMgr;

/// Answers which provider serves a location. Owned by the host through a std::shared_ptr; used from
/// many threads at once.
class FOUNDATION_EXPORT StorageSystem {
  public:
    virtual ~StorageSystem();

    virtual std::shared_ptr<provider::IProvider>
    buildProvider(provider::StorageIRI const& location) const = 0;
    /// Where change events of this system's items go. Null where there are none, as here.
    virtual boost::shared_ptr<EventMgr> getEventMgr() const;
};

} // namespace foundation::storage::vfs
