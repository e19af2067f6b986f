#include <foundation/storage/provider/local/detail/watch_survey.hpp>

#include <foundation/storage/provider/local/detail/kernel_path.hpp>
#include <foundation/storage/provider/local/detail/listed_folder.hpp>

#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <utility>

namespace foundation::storage::provider::local::detail {

namespace {

/// In place of an error number.
constexpr int onItsWay = -1;

bool isFolder(int folder, dirent64 const& entry) noexcept {
    if (entry.d_type != DT_UNKNOWN) {
        return entry.d_type == DT_DIR;
    }
    struct stat item {};
    return statItem(folder, entry.d_name, false, item) == 0 && S_ISDIR(item.st_mode);
}

} // namespace

bool isGone(int error) noexcept {
    return error == ENOENT || error == ENOTDIR || error == ELOOP;
}

bool isDenied(int error) noexcept {
    return error == EACCES || error == EPERM;
}

bool isPassedOver(int error) noexcept {
    return isGone(error) || isDenied(error);
}

int errorOf(Exception const& failure) noexcept {
    switch (failure.getErrorCode()) {
    case ErrorCode::PermissionDenied:
        return EACCES;
    case ErrorCode::ResourceNotFound:
    case ErrorCode::InvalidLocation:
        return ENOENT;
    default:
        return EMFILE;
    }
}

int openFolder(StorageIRI const& location, int flags, FileDescriptor& folder) {
    try {
        KernelPath const path(location);
        folder = FileDescriptor(
            uninterrupted([&] { return ::openat(path.folder(), path.path(), flags); }));
        return folder ? 0 : errno;
    } catch (Exception const& failure) {
        return errorOf(failure);
    }
}

int openWatchedFolder(WatchPublication& publication, WatchNode const& node, WatchTable& table,
                      FileDescriptor& folder) {
    int const error = openFolder(publication.locationOf(node), readFolderFlags, folder);
    if (error == 0 && !table.watches(folder.get(), node)) {
        folder.close();
        return ENOENT;
    }
    return error;
}

int WatchSurvey::run(WatchPublication& publication, WatchNode& node, FileDescriptor folder,
                     Finds finds) {
    publication_ = &publication;
    finds_ = finds;
    error_ = 0;
    ++number_;
    closeAll(); // where memory ran out, the one before was not
    if (int const error = survey(node, folder.get())) {
        return error == onItsWay ? 0 : error;
    }
    if (node.firstChild != nullptr) {
        levels_.assign(1, {&node, node.firstChild});
        window_.push(depth(), std::move(folder));
        while (!levels_.empty()) {
            note(goOn());
        }
    }
    closeAll();
    return error_;
}

void WatchSurvey::closeAll() noexcept {
    while (!window_.empty()) {
        window_.dropOutermost();
    }
}

bool WatchSurvey::isOnItsWay(WatchPublication& publication, int watch,
                             WatchNode const* node) const {
    auto const* const other = table_.find(watch, [&](WatchNode const& at) {
        return at.owner == &publication && &at != node && publication.isPublished(at);
    });
    FileDescriptor folder;
    return other != nullptr && openWatchedFolder(publication, *other, table_, folder) != 0;
}

/// Watches a folder, and lists it.
int WatchSurvey::survey(WatchNode& node, int folder) {
    int const watch = table_.claim(folder, publication_->events());
    if (watch < 0) {
        return errno;
    }
    if (watch != node.watch) {
        if (node.parent != nullptr && isOnItsWay(*publication_, watch, &node)) {
            publication_->miss(node.parent->watch, node.name, WatchPublication::Reported::Yes);
            return onItsWay;
        }
        publication_->tree.dropChildren(node, table_); // they were in another folder of this name
        table_.give(watch, node);
    }
    node.isUnsurveyed = false;
    if (publication_->scope != WatchScope::Tree && finds_ == Finds::Silent) {
        return 0;
    }
    int const error = list(node, folder);
    if (error == 0) {
        dropVanished(node);
    }
    return error;
}

int WatchSurvey::list(WatchNode& node, int folder) {
    for (;;) {
        ssize_t const got =
            uninterrupted([&] { return ::getdents64(folder, buffer_, sizeof buffer_); });
        if (got < 0) {
            return isPassedOver(errno) ? 0 : errno;
        }
        if (got == 0) {
            return 0;
        }
        for (ssize_t at = 0; at < got;) {
            auto const& entry = *reinterpret_cast<dirent64 const*>(buffer_ + at);
            at += entry.d_reclen;
            meet(node, folder, entry);
        }
    }
}

void WatchSurvey::meet(WatchNode& node, int folder, dirent64 const& entry) {
    std::string_view const name(entry.d_name);
    if (name.empty() || name == "." || name == "..") {
        return;
    }
    bool const isSubfolder = isFolder(folder, entry);
    if (finds_ == Finds::Reported) {
        reports_.addFound(*publication_, node, name,
                          isSubfolder ? events::EntryType::Folder : events::EntryType::File);
    }
    if (isSubfolder && publication_->scope == WatchScope::Tree) {
        auto* child = publication_->tree.child(node, name);
        if (child == nullptr) {
            child = &publication_->tree.addChild(node, name);
        }
        child->isUnsurveyed = true;
        child->seenBy = number_;
    }
}

void WatchSurvey::dropVanished(WatchNode& node) {
    for (auto* child = node.firstChild; child != nullptr;) {
        auto* const next = child->next;
        if (child->seenBy != number_) {
            publication_->tree.drop(*child, table_);
        }
        child = next;
    }
}

/// One step: into the next subfolder of the innermost level, or out of it.
int WatchSurvey::goOn() {
    auto& level = levels_.back();
    WatchNode* const child = level.next;
    if (child == nullptr) {
        window_.take(depth());
        levels_.pop_back();
        return 0;
    }
    level.next = child->next;
    if (!child->isUnsurveyed) {
        return 0;
    }
    if (int const error = hold(*level.node)) {
        // It was moved away meanwhile, or is gone; the events will tell which.
        publication_->miss(level.node->watch, child->name, WatchPublication::Reported::Yes);
        publication_->tree.drop(*child, table_);
        return isPassedOver(error) ? 0 : error;
    }
    constexpr int flags = readFolderFlags | O_NOFOLLOW;
    auto const open = [&] { return ::openat(window_.at(depth()), child->name.c_str(), flags); };
    FileDescriptor folder(uninterrupted(open));
    if (!folder && (errno == EMFILE || errno == ENFILE) && window_.keepInnermost()) {
        folder = FileDescriptor(uninterrupted(open));
    }
    int const error = folder ? survey(*child, folder.get()) : errno;
    if (error != 0) {
        publication_->tree.drop(*child, table_);
        return error == onItsWay || isPassedOver(error) ? 0 : error;
    }
    if (child->firstChild != nullptr) {
        levels_.push_back({child, child->firstChild});
        window_.push(depth(), std::move(folder));
    }
    return 0;
}

/// Sees that the innermost folder is open: on the way back up it may have been closed. The error
/// number, or 0.
int WatchSurvey::hold(WatchNode& node) {
    if (window_.at(depth()) >= 0) {
        return 0;
    }
    FileDescriptor folder;
    int const error = openWatchedFolder(*publication_, node, table_, folder);
    if (error == 0) {
        window_.push(depth(), std::move(folder));
    }
    return error;
}

} // namespace foundation::storage::provider::local::detail
