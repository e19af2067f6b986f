#include <foundation/storage/provider/local/detail/watch_table.hpp>

#include <array>
#include <cstdio>
#include <fcntl.h>
#include <sys/inotify.h>
#include <system_error>

namespace foundation::storage::provider::local::detail {

WatchTable::WatchTable() : descriptor_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    if (!descriptor_) {
        throw std::system_error(errno, std::generic_category(), "inotify_init1");
    }
}

/// By way of the descriptor: a path could lead to another folder than the one that is open.
int WatchTable::claim(int folder, std::uint32_t events) noexcept {
    std::array<char, 32> path{};
    std::snprintf(path.data(), path.size(), "/proc/self/fd/%d", folder);
    return ::inotify_add_watch(descriptor_.get(), path.data(),
                               events | IN_ONLYDIR | IN_EXCL_UNLINK | IN_MASK_ADD);
}

int WatchTable::watch(int folder, std::uint32_t events, WatchNode& node) {
    int const watch = claim(folder, events);
    if (watch < 0) {
        return errno;
    }
    give(watch, node);
    return 0;
}

void WatchTable::give(int watch, WatchNode& node) {
    if (watch == node.watch) {
        return;
    }
    auto const place = first_.try_emplace(watch, nullptr).first;
    release(node);
    node.watch = watch;
    node.nextOfWatch = place->second;
    place->second = &node;
}

bool WatchTable::watches(int folder, WatchNode const& node) noexcept {
    // The kernel answers with the watch that the folder has; the event adds nothing to it.
    int const watch = claim(folder, IN_DELETE_SELF);
    if (watch >= 0 && !first_.contains(watch)) {
        ::inotify_rm_watch(descriptor_.get(), watch);
    }
    return watch >= 0 && watch == node.watch;
}

bool WatchTable::hasRoom() noexcept {
    // Any folder that nobody watches.
    FileDescriptor const folder(::open("/proc/self/fd", O_PATH | O_DIRECTORY | O_CLOEXEC));
    int const watch = folder ? claim(folder.get(), IN_DELETE_SELF) : -1;
    if (watch >= 0 && !first_.contains(watch)) {
        ::inotify_rm_watch(descriptor_.get(), watch);
    }
    return watch >= 0;
}

/// True where no node has the watch any more.
bool WatchTable::unlink(WatchNode& node) noexcept {
    auto const place = first_.find(node.watch);
    if (place == first_.end()) {
        return false;
    }
    WatchNode** link = &place->second;
    while (*link != nullptr && *link != &node) {
        link = &(*link)->nextOfWatch;
    }
    if (*link != nullptr) {
        *link = node.nextOfWatch;
    }
    if (place->second != nullptr) {
        return false;
    }
    first_.erase(place);
    return true;
}

void WatchTable::release(WatchNode& node) noexcept {
    if (node.watch != WatchNode::unwatched && unlink(node)) {
        ::inotify_rm_watch(descriptor_.get(), node.watch);
    }
    node.watch = WatchNode::unwatched;
    node.nextOfWatch = nullptr;
}

std::vector<WatchNode*> WatchTable::nodesOf(int watch) const {
    std::vector<WatchNode*> result;
    auto const place = first_.find(watch);
    for (auto* node = place == first_.end() ? nullptr : place->second; node != nullptr;
         node = node->nextOfWatch) {
        result.push_back(node);
    }
    return result;
}

bool WatchTable::has(int watch, WatchNode const* node) const noexcept {
    auto const place = first_.find(watch);
    auto const* found = place == first_.end() ? nullptr : place->second;
    while (found != nullptr && found != node) {
        found = found->nextOfWatch;
    }
    return found != nullptr;
}

WatchNode* WatchTable::anyOf(int watch) const noexcept {
    auto const place = first_.find(watch);
    return place == first_.end() ? nullptr : place->second;
}

} // namespace foundation::storage::provider::local::detail
