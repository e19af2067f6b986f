#include <foundation/storage/vfs/events/change_watcher.hpp>

#include <foundation/msg_svc/eventmgr/event_mgr.hpp>

#include <map>
#include <mutex>
#include <set>
#include <utility>

namespace foundation::storage::vfs {

using foundation::msg_svc::eventmgr::Connection;
using foundation::msg_svc::eventmgr::ScopedConnection;
using foundation::storage::events::createEventType;

namespace {

std::vector<Kind> const& everyKind() {
    static std::vector<Kind> const kinds{Kind::Created, Kind::Modified, Kind::AttributesChanged,
                                         Kind::Removed, Kind::Overflow};
    return kinds;
}

bool isRecursive(WithRecursiveChangeEvents recursive) {
    return recursive != WithRecursiveChangeEvents::No;
}

} // namespace

/// Who watches what, by the text of the location. Providers are asked with the mutex held, which is
/// recursive for a provider that reports from inside; they do not wait for their callbacks.
class ChangeWatcher::Publications {
  public:
    void join(FileOrFolder const& resource, WithRecursiveChangeEvents recursive);
    void leave(FileOrFolder const& resource, WithRecursiveChangeEvents recursive) noexcept;

  private:
    struct Watchers {
        int flat = 0;
        int recursive = 0;
        int all() const { return flat + recursive; }
    };

    /// Puts one publication in the place of the other, so that no change falls between them.
    static void exchange(FileOrFolder const& resource, WithRecursiveChangeEvents next) {
        detail::publishEventsFor(resource, everyKind(), next);
        detail::stopPublishingEventsFor(resource);
    }

    std::recursive_mutex mutex_;
    std::map<ustring, Watchers> watchers_; // guarded by mutex_
};

void ChangeWatcher::Publications::join(FileOrFolder const& resource,
                                       WithRecursiveChangeEvents recursive) {
    ustring const key = getLocation(resource).toString();
    std::lock_guard const lock(mutex_);
    auto const known = watchers_.find(key);
    Watchers const before = known == watchers_.end() ? Watchers() : known->second;
    if (before.all() == 0) {
        detail::publishEventsFor(resource, everyKind(), recursive);
    } else if (isRecursive(recursive) && before.recursive == 0) {
        exchange(resource, recursive);
    }
    Watchers& now = watchers_[key];
    ++(isRecursive(recursive) ? now.recursive : now.flat);
}

void ChangeWatcher::Publications::leave(FileOrFolder const& resource,
                                        WithRecursiveChangeEvents recursive) noexcept {
    // What fails here goes on publishing to nobody, or more than is wanted.
    try {
        ustring const key = getLocation(resource).toString();
        std::lock_guard const lock(mutex_);
        Watchers& now = watchers_[key];
        --(isRecursive(recursive) ? now.recursive : now.flat);
        if (now.all() == 0) {
            watchers_.erase(key);
            detail::stopPublishingEventsFor(resource);
        } else if (isRecursive(recursive) && now.recursive == 0) {
            exchange(resource, WithRecursiveChangeEvents::No);
        }
    } catch (...) {
        return;
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

    void add(std::unique_ptr<Connection> subscription) {
        subscriptions_.push_back(std::move(subscription));
    }
    void disconnect() override {
        for (auto const& subscription : subscriptions_) {
            subscription->disconnect();
        }
        std::call_once(left_, leave_);
    }

  private:
    std::function<void()> const leave_;
    std::vector<std::unique_ptr<Connection>> subscriptions_;
    std::once_flag left_;
};

} // namespace

ChangeWatcher::ChangeWatcher() : publications_(std::make_shared<Publications>()) {}

ChangeWatcher::~ChangeWatcher() = default;

ScopedConnection ChangeWatcher::watch(FileOrFolder const& resource, std::vector<Kind> const& kinds,
                                      WithRecursiveChangeEvents recursive, Handler handler) {
    publications_->join(resource, recursive);
    auto connection =
        std::make_unique<WatchConnection>([publications = publications_, resource, recursive] {
            publications->leave(resource, recursive);
        });
    WatchConnection& made = *connection;
    ScopedConnection scoped(std::move(connection));

    AbsoluteIRI const location = getLocation(resource);
    if (!isRecursive(recursive)) {
        handler = ofChildrenAlone(location.toStorageIRI(), std::move(handler));
    }
    boost::shared_ptr<EventMgr> const manager = getStorageSystem(resource).getEventMgr();
    std::set<Kind> wanted(kinds.begin(), kinds.end());
    wanted.insert(Kind::Overflow);
    for (Kind const kind : wanted) {
        made.add(manager->subscribe<Event>(createEventType(kind, location.toString()), handler));
    }
    return scoped;
}

} // namespace foundation::storage::vfs
