#include <foundation/storage/vfs/events/change_watcher.hpp>

#include <foundation/msg_svc/eventmgr/deliver_mode.hpp>
#include <foundation/msg_svc/eventmgr/event_mgr.hpp>

#include <algorithm>
#include <deque>
#include <list>
#include <mutex>
#include <set>
#include <tuple>
#include <utility>

namespace foundation::storage::vfs {

using foundation::msg_svc::eventmgr::Connection;
using foundation::msg_svc::eventmgr::DeliverMode;
using foundation::msg_svc::eventmgr::ScopedConnection;
using foundation::storage::events::createEventType;

namespace {

constexpr auto flat = WithRecursiveChangeEvents::No;
constexpr auto recursive = WithRecursiveChangeEvents::Yes;

std::vector<Kind> const& everyKind() {
    static std::vector<Kind> const kinds{Kind::Created, Kind::Modified, Kind::AttributesChanged,
                                         Kind::Removed, Kind::Overflow};
    return kinds;
}

/// An item that is watched, by whom, and what was asked of its storage: through the first watcher's
/// handle, whose text is in the tags of all its events.
struct Watched {
    FileOrFolder resource;
    AbsoluteIRI location;
    int wantedFlat = 0;
    int wantedRecursive = 0;
    std::deque<WithRecursiveChangeEvents> published{}; ///< the oldest first

    bool isWanted() const { return wantedFlat + wantedRecursive > 0; }
    bool isPublished(WithRecursiveChangeEvents how) const {
        return std::find(published.begin(), published.end(), how) != published.end();
    }
};

} // namespace

/// Storages are asked with the mutex held. It is recursive, and who wants what is written down
/// before: a storage may report from inside, and a handler then watch or end a watch.
class ChangeWatcher::Publications {
  public:
    using Place = std::list<Watched>::iterator;

    /// Counts one watcher more, and has published what is wanted. True where one publication took
    /// the place of another, with which reports that waited have gone.
    std::pair<Place, bool> join(FileOrFolder const& resource, WithRecursiveChangeEvents how);
    void leave(Place place, WithRecursiveChangeEvents how) noexcept;

  private:
    Place find(FileOrFolder const& resource);
    static int& wanted(Watched& watched, WithRecursiveChangeEvents how) {
        return how == flat ? watched.wantedFlat : watched.wantedRecursive;
    }
    bool settle(Watched& watched);
    static bool settleAll(Watched& watched);
    static void publish(Watched& watched, WithRecursiveChangeEvents how);
    static bool stopOldest(Watched& watched) noexcept;
    void forgetIfIdle(Place place);

    std::recursive_mutex mutex_;
    // guarded by mutex_:
    std::list<Watched> watched_; ///< not sorted: locations are few
    Watched const* settling_ = nullptr;
};

ChangeWatcher::Publications::Place ChangeWatcher::Publications::find(FileOrFolder const& resource) {
    AbsoluteIRI const location = getLocation(resource);
    auto const isIt = [&](Watched const& watched) {
        return watched.location == location && watched.resource.which() == resource.which() &&
               getStorageSystem(watched.resource) == getStorageSystem(resource);
    };
    auto const found = std::find_if(watched_.begin(), watched_.end(), isIt);
    return found != watched_.end() ? found : watched_.insert(found, Watched{resource, location});
}

std::pair<ChangeWatcher::Publications::Place, bool>
ChangeWatcher::Publications::join(FileOrFolder const& resource, WithRecursiveChangeEvents how) {
    std::lock_guard const lock(mutex_);
    Place const place = find(resource);
    ++wanted(*place, how);
    try {
        return {place, settle(*place)};
    } catch (...) {
        --wanted(*place, how);
        forgetIfIdle(place);
        throw;
    }
}

void ChangeWatcher::Publications::leave(Place place, WithRecursiveChangeEvents how) noexcept {
    std::lock_guard const lock(mutex_);
    --wanted(*place, how);
    try {
        settle(*place);
    } catch (...) { // NOLINT(bugprone-empty-catch): whoever else watches has what there is
    }
    forgetIfIdle(place);
}

// A handler that runs meanwhile changes what is wanted, and leaves it to this to do it.
bool ChangeWatcher::Publications::settle(Watched& watched) {
    if (settling_ == &watched) {
        return false;
    }
    Watched const* const outer = std::exchange(settling_, &watched);
    try {
        bool const replaced = settleAll(watched);
        settling_ = outer;
        return replaced;
    } catch (...) {
        settling_ = outer;
        throw;
    }
}

// The last publication of what is wanted stays: going back to a flat one could lose changes.
bool ChangeWatcher::Publications::settleAll(Watched& watched) {
    bool replaced = false;
    while (true) {
        std::size_t const enough = watched.isWanted() ? 1 : 0;
        if (watched.wantedRecursive > 0 && !watched.isPublished(recursive)) {
            publish(watched, recursive);
        } else if (watched.published.size() < enough) {
            publish(watched, flat);
        } else if (watched.published.size() > enough && stopOldest(watched)) {
            replaced = replaced || watched.isWanted();
        } else {
            return replaced;
        }
    }
}

void ChangeWatcher::Publications::publish(Watched& watched, WithRecursiveChangeEvents how) {
    watched.published.push_back(how);
    try {
        detail::publishEventsFor(watched.resource, everyKind(), how);
    } catch (...) {
        watched.published.pop_back();
        throw;
    }
}

// What cannot be stopped stands, and is used by the next who watches.
bool ChangeWatcher::Publications::stopOldest(Watched& watched) noexcept {
    try {
        detail::stopPublishingEventsFor(watched.resource);
        watched.published.pop_front();
        return true;
    } catch (...) {
        return false;
    }
}

void ChangeWatcher::Publications::forgetIfIdle(Place place) {
    if (!place->isWanted() && place->published.empty() && settling_ != &*place) {
        watched_.erase(place);
    }
}

namespace {

/// Lets through what a watcher of the folder alone wants to hear while the whole tree is published.
ChangeWatcher::Handler ofChildrenAlone(StorageIRI const& folder, ChangeWatcher::Handler handler) {
    return [folder, handler = std::move(handler)](Event const& event) {
        StorageIRI const changed =
            getLocation(event.getEventData().getFileOrFolder()).toStorageIRI();
        if (changed == folder || changed.getParent() == folder) {
            handler(event);
        }
    };
}

class WatchConnection : public Connection {
  public:
    explicit WatchConnection(std::function<void()> leave) : leave_(std::move(leave)) {}

    void hold(std::unique_ptr<Connection> subscription) { subscription_ = std::move(subscription); }
    void disconnect() override {
        if (subscription_) {
            subscription_->disconnect();
        }
        std::call_once(left_, leave_);
    }

  private:
    std::function<void()> const leave_;
    std::unique_ptr<Connection> subscription_;
    std::once_flag left_;
};

} // namespace

ChangeWatcher::ChangeWatcher() : publications_(std::make_shared<Publications>()) {}

ChangeWatcher::~ChangeWatcher() = default;

ScopedConnection ChangeWatcher::watch(FileOrFolder const& resource, std::vector<Kind> const& kinds,
                                      WithRecursiveChangeEvents how, Handler handler) {
    // Every value but `No` is recursive.
    WithRecursiveChangeEvents const wanted = how == flat ? flat : recursive;
    auto const place = std::make_shared<Publications::Place>();
    auto connection = std::make_unique<WatchConnection>(
        [publications = publications_, place, wanted] { publications->leave(*place, wanted); });
    WatchConnection& made = *connection;
    bool replaced = false;
    std::tie(*place, replaced) = publications_->join(resource, wanted);
    ScopedConnection scoped(std::move(connection));

    AbsoluteIRI const location = (*place)->location;
    boost::shared_ptr<EventMgr> const manager = getStorageSystem(resource).getEventMgr();
    if (replaced) {
        manager->notify(Event(Kind::Overflow, location, resource, {}), DeliverMode::Immediate);
    }
    if (wanted == flat) {
        handler = ofChildrenAlone(location.toStorageIRI(), std::move(handler));
    }
    std::set<Kind> heard(kinds.begin(), kinds.end());
    heard.insert(Kind::Overflow);
    std::vector<ustring> tags;
    tags.reserve(heard.size());
    for (Kind const kind : heard) {
        tags.push_back(createEventType(kind, location.toString()));
    }
    made.hold(manager->subscribe<Event>(tags, std::move(handler)));
    return scoped;
}

} // namespace foundation::storage::vfs
