#pragma once

#include <foundation/msg_svc/eventmgr/event_mgr.hpp>
#include <foundation/storage/provider/factories.hpp>
#include <foundation/storage/vfs/events/change_watcher.hpp>
#include <foundation/storage/vfs/events/event.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>

#include "unit/vfs/either_system.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <tuple>

namespace event_test {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;
using foundation::msg_svc::eventmgr::DeliverMode;
using foundation::msg_svc::eventmgr::EventMgr;
using foundation::msg_svc::eventmgr::ScopedConnection;
using foundation::storage::events::Kind;
using vfs_test::EitherSystem;
using vfs_test::SystemKind;

enum class StorageKind { Local, Memory };

template<class Condition>
bool comesTrue(Condition condition) {
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
    return true;
}

/// An empty folder of a real storage, behind a system of either kind.
class WatchedPlace : public testing::TestWithParam<std::tuple<StorageKind, SystemKind>> {
  protected:
    WatchedPlace();
    ~WatchedPlace() override;

    vfs::Folder root() const { return vfs::Folder(vfs::AbsoluteIRI(location_), reference); }
    vfs::Folder newFolder(vfs::ustring const& name) const;
    /// The threads of this process that watch the disk.
    static int watchThreads();
    bool isLocal() const { return std::get<0>(GetParam()) == StorageKind::Local; }

    boost::shared_ptr<EventMgr> manager;
    EitherSystem system;
    vfs::StorageSystemReference reference;
    vfs::ChangeWatcher watcher;

  private:
    std::filesystem::path folder_;
    vfs::ustring location_;
};

inline auto const realStorages =
    testing::Combine(testing::Values(StorageKind::Local, StorageKind::Memory),
                     testing::Values(SystemKind::Pluggable, SystemKind::FactoryBacked));

std::string nameOf(testing::TestParamInfo<std::tuple<StorageKind, SystemKind>> const& info);

} // namespace event_test
