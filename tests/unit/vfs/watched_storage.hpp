#pragma once

#include <foundation/msg_svc/eventmgr/event_mgr.hpp>
#include <foundation/storage/vfs/events/event.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>

#include "either_system.hpp"
#include "fake_provider.hpp"

#include <boost/make_shared.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vfs_test {

using boost::property_tree::ptree;
using foundation::msg_svc::eventmgr::EventMgr;
using foundation::storage::events::EntryType;
using foundation::storage::events::Kind;

/// A fake provider that keeps what is published at it, behind a system with an event manager.
class WatchedStorage : public testing::Test {
  protected:
    struct Publication {
        StorageIRI location;
        provider::ChangeCallback report;
        provider::ChangeKinds kinds;
        std::optional<provider::RecursiveFileWatching> recursive;
    };

    explicit WatchedStorage(SystemKind kind = SystemKind::Pluggable) : system(kind, manager) {
        mem->onHasFeature = [](provider::ExtendedFeature feature) {
            return feature == provider::ExtendedFeature::RecursiveChangeEvents;
        };
        mem->onPublish = [this](StorageIRI const& location, provider::ChangeCallback callback,
                                provider::ChangeKinds const& kinds, auto recursive) {
            published.push_back({location, std::move(callback), kinds, recursive});
        };
        mem->onStopPublishing = [this](StorageIRI const& location) {
            auto const oldest =
                std::find_if(published.begin(), published.end(),
                             [&](Publication const& p) { return p.location == location; });
            if (oldest != published.end()) {
                published.erase(oldest);
            }
        };
        system.serve("mem", [this] { return mem; });
    }

    vfs::File file(char16_t const* text = u"mem:/d/f") const {
        return vfs::File(vfs::AbsoluteIRI(text), reference);
    }
    vfs::Folder folder(char16_t const* text = u"mem:/d") const {
        return vfs::Folder(vfs::AbsoluteIRI(text), reference);
    }
    /// Notes the events of every kind that are published under a location.
    void hear(char16_t const* location) {
        for (std::uint32_t kind = 0; kind <= 4; ++kind) {
            connections.push_back(manager->subscribe<vfs::Event>(
                createEventType(Kind(kind), location),
                [this](vfs::Event const& event) { heard.push_back(text(event)); }));
        }
    }
    /// "0 mem:/d/f 0": kind, location and type of what changed.
    static std::string text(vfs::Event const& event) {
        auto const simple = event.getSimpleEventData();
        return std::to_string(static_cast<std::uint32_t>(simple.getKind())) + ' ' +
               fl::i18n::toDisplayString(simple.getLocation()) + ' ' +
               std::to_string(static_cast<std::uint32_t>(simple.getEntryType()));
    }

    void TearDown() override { EXPECT_EQ(thrown, 0) << "by handlers"; }

    std::atomic<int> thrown = 0;
    boost::shared_ptr<EventMgr> manager =
        boost::make_shared<EventMgr>([this](auto&&...) { ++thrown; });
    std::shared_ptr<FakeProvider> mem = std::make_shared<FakeProvider>();
    EitherSystem system;
    vfs::StorageSystemReference reference = system.reference();
    std::vector<Publication> published;
    std::vector<std::unique_ptr<foundation::msg_svc::eventmgr::Connection>> connections;
    std::vector<std::string> heard;
};

/// The same with a system of each kind.
class WatchedStorageOfEitherSystem : public WatchedStorage,
                                     public testing::WithParamInterface<SystemKind> {
  protected:
    WatchedStorageOfEitherSystem() : WatchedStorage(GetParam()) {}
};

} // namespace vfs_test
