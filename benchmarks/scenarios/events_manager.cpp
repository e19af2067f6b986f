#include "contest.hpp"
#include "events.hpp"

#include <foundation/msg_svc/eventmgr/event_mgr.hpp>
#include <foundation/storage/vfs/events/event.hpp>

#include <boost/property_tree/ptree.hpp>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace bench {

namespace {

namespace eventmgr = foundation::msg_svc::eventmgr;
namespace vfs = foundation::storage::vfs;
using foundation::storage::events::createEventType;

constexpr std::size_t notifications = 50'000;

/// An event manager of its own with subscribers to changes of as many folders, one each.
class Subscribed {
  public:
    explicit Subscribed(std::vector<vfs::AbsoluteIRI> const& folders) {
        for (vfs::AbsoluteIRI const& folder : folders) {
            connections_.emplace_back(manager_.subscribe<vfs::Event>(
                createEventType(vfs::Kind::Created, folder.toString()),
                [this](vfs::Event const&) { ++told_; }));
        }
    }

    void notify(vfs::Event const& event) {
        told_ = 0;
        for (std::size_t number = 0; number < notifications; ++number) {
            manager_.notify(event, eventmgr::DeliverMode::Immediate);
        }
        if (told_ != notifications) {
            throw std::runtime_error("told " + std::to_string(told_) + " times");
        }
    }

  private:
    std::size_t told_ = 0;
    eventmgr::EventMgr manager_;
    std::vector<eventmgr::ScopedConnection> connections_;
};

} // namespace

void holdManySubscribers(Workplace const& place) {
    constexpr std::size_t subscribers = 1'000;
    std::vector<vfs::AbsoluteIRI> folders;
    folders.reserve(subscribers);
    for (std::size_t number = 0; number < subscribers; ++number) {
        folders.emplace_back(place.folder.getLocation(),
                             fl::i18n::to_ustring("folder-" + std::to_string(number)));
    }
    vfs::AbsoluteIRI const changed = folders[500];
    vfs::Event const event(
        vfs::Kind::Created, changed,
        vfs::File(vfs::AbsoluteIRI(changed, u"file"), place.folder.getStorageSystem()), {});
    Subscribed one({changed});
    Subscribed many(folders);
    hold({"An event brought to the one subscriber who wants it",
          "ns an event",
          1e-9 * static_cast<double>(notifications),
          31,
          {
              {"who is the only one", [&] { one.notify(event); }},
              {"of 1,000", [&] { many.notify(event); }, {{2, "who is the only one"}}},
          }});
}

} // namespace bench
