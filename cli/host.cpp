#include "host.hpp"

#include <foundation/msg_svc/eventmgr/event_mgr.hpp>
#include <foundation/storage/provider/standard/standard_storage_system.hpp>
#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>

#include <boost/make_shared.hpp>

#include <utility>

namespace cli {

using foundation::storage::vfs::StorageSystem;

namespace {

std::shared_ptr<StorageSystem> systemThatTellsOfChanges() {
    namespace standard = foundation::storage::provider::standard;
    standard::StandardOptions options;
    options.eventMgr = boost::make_shared<foundation::msg_svc::eventmgr::EventMgr>();
    return standard::makeStandardStorageSystem(options);
}

} // namespace

Host::Host() : Host(systemThatTellsOfChanges()) {}

Host::Host(std::shared_ptr<StorageSystem> system)
    : system_(std::move(system)),
      reference_(std::weak_ptr<StorageSystem>(system_)) {}

} // namespace cli
