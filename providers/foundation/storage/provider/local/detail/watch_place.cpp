#include <foundation/storage/provider/local/detail/watch_place.hpp>

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/local/detail/failures.hpp>
#include <foundation/storage/provider/local/detail/kernel_path.hpp>
#include <foundation/storage/provider/local/detail/listed_folder.hpp>

#include <fl/i18n/conversion.hpp>

#include <fcntl.h>
#include <string_view>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <utility>

namespace foundation::storage::provider::local::detail {

namespace {

/// Above a folder only names count; the files beside it may change as they like.
constexpr std::uint32_t anchorEvents =
    IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF;

/// And further up not even these.
constexpr std::uint32_t selfEvents = IN_DELETE_SELF | IN_MOVE_SELF;

/// How often the way down is looked at again while it changes under the look.
constexpr int attempts = 32;

bool endsInDots(StorageIRI const& location) {
    ustring const& path = location.getDecodedPath();
    return path.ends_with(u"/.") || path.ends_with(u"/..");
}

/// The error number, or 0.
int open(StorageIRI const& location, int flags, FileDescriptor& result) {
    try {
        KernelPath const path(location);
        result = FileDescriptor(
            uninterrupted([&] { return ::openat(path.folder(), path.path(), flags); }));
        return result ? 0 : errno;
    } catch (Exception const& e) {
        return e.getErrorCode() == ErrorCode::PermissionDenied ? EACCES : ENOENT;
    }
}

int ask(StorageIRI const& location, struct stat& item) {
    try {
        return statItem(KernelPath(location), false, item);
    } catch (Exception const& e) {
        return e.getErrorCode() == ErrorCode::PermissionDenied ? EACCES : ENOENT;
    }
}

} // namespace

/// Watches the innermost folder on the way that is there. The error number, or 0.
int WatchPlace::anchor(WatchPublication& publication) {
    StorageIRI item = publication.location;
    bool isParent = true;
    while (item.hasParent() && !endsInDots(item)) {
        StorageIRI const above = item.getParent();
        FileDescriptor folder;
        int const error = open(above, O_PATH | O_DIRECTORY | O_CLOEXEC, folder);
        if (error == 0) {
            publication.isAnchoredAtParent = isParent;
            publication.awaited = fl::i18n::ustringToStorageName(item.getName());
            std::uint32_t const wanted =
                isParent && !publication.isFolder() ? publication.events() : anchorEvents;
            if (int const failure = table_.watch(folder.get(), wanted, publication.anchor)) {
                return failure;
            }
            return watchAbove(publication, above);
        }
        if (!meansAbsent(error)) {
            return error;
        }
        isParent = false;
        item = above;
    }
    return EACCES; // a root, and a path that ends in `..`, have no name to wait for
}

/// What lies above `folder` is watched as well, without being woken by what happens in it: when
/// any of it is moved, the watches would go on under names that are not true any more. What may not
/// be watched is left out. The error number where there are no more watches, or 0.
int WatchPlace::watchAbove(WatchPublication& publication, StorageIRI const& folder) {
    // The old ones go behind the new ones, so that a watch of both is not given up between.
    auto const old = std::exchange(publication.above, {});
    int result = 0;
    for (StorageIRI at = folder; result == 0 && at.hasParent();) {
        at = at.getParent();
        FileDescriptor opened;
        if (open(at, O_PATH | O_DIRECTORY | O_CLOEXEC, opened) == 0) {
            auto node = std::make_unique<WatchNode>();
            node->owner = &publication;
            publication.above.push_back(std::move(node));
            int const error = table_.watch(opened.get(), selfEvents, *publication.above.back());
            result = error == EACCES || error == EPERM ? 0 : error;
        }
    }
    for (auto const& node : old) {
        table_.release(*node);
    }
    return result;
}

/// The same until the way below does not change meanwhile.
int WatchPlace::anchorAsFarAsThereIs(WatchPublication& publication) {
    int error = 0;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        error = anchor(publication);
        FileDescriptor parent;
        if (error != 0 || publication.isAnchoredAtParent ||
            open(publication.location.getParent(), O_PATH | O_DIRECTORY | O_CLOEXEC, parent) != 0) {
            break;
        }
    }
    if (error != 0) {
        releaseAnchor(publication);
    }
    return error;
}

int WatchPlace::begin(WatchPublication& publication) {
    int const error = anchorAsFarAsThereIs(publication);
    bool const isOptional = publication.isFolder() && (error == EACCES || error == EPERM);
    if (error != 0 && !isOptional) {
        return error;
    }
    publication.isPresent = true;
    if (!publication.isFolder()) {
        struct stat item {};
        return publication.isAnchoredAtParent ? ask(publication.location, item) : ENOENT;
    }
    FileDescriptor folder;
    if (int const failure = open(publication.location, readFolderFlags, folder)) {
        return failure;
    }
    return survey_.run(publication, publication.tree.makeRoot(), std::move(folder),
                       WatchSurvey::Finds::Silent);
}

FileDescriptor WatchPlace::openAnchor(WatchPublication const& publication, WatchNode const& node) {
    FileDescriptor folder;
    if (&node != &publication.anchor || !publication.isAnchoredAtParent ||
        open(publication.location.getParent(), O_PATH | O_DIRECTORY | O_CLOEXEC, folder) != 0 ||
        !table_.watches(folder.get(), node)) {
        folder.close();
    }
    return folder;
}

void WatchPlace::leave(WatchPublication& publication) noexcept {
    if (publication.tree.root() != nullptr) {
        publication.tree.drop(*publication.tree.root(), table_);
    }
    releaseAnchor(publication);
}

void WatchPlace::releaseAnchor(WatchPublication& publication) noexcept {
    table_.release(publication.anchor);
    for (auto const& node : publication.above) {
        table_.release(*node);
    }
    publication.above.clear();
    publication.isAnchoredAtParent = false;
}

void WatchPlace::lose(WatchPublication& publication) {
    if (publication.tree.root() != nullptr) {
        publication.tree.drop(*publication.tree.root(), table_);
    }
    publication.missed.clear();
    if (std::exchange(publication.isPresent, false)) {
        reports_.addSelf(publication, events::Kind::Removed);
    }
}

void WatchPlace::settle(WatchPublication& publication) {
    publication.isUnsettled = false;
    int const error = anchorAsFarAsThereIs(publication);
    if (error != 0 && error != EACCES && error != EPERM) {
        publication.isLimited = true;
        publication.mustTellOverflow = true;
    }
    publication.isFolder() ? settleFolder(publication) : settleFile(publication);
}

void WatchPlace::settleFile(WatchPublication& publication) {
    struct stat item {};
    bool const isThere = publication.isAnchoredAtParent && ask(publication.location, item) == 0;
    if (isThere != publication.isPresent) {
        reports_.addSelf(publication, isThere ? events::Kind::Created : events::Kind::Removed);
    }
    publication.isPresent = isThere;
}

void WatchPlace::settleFolder(WatchPublication& publication) {
    FileDescriptor folder;
    bool const isThere = open(publication.location, readFolderFlags, folder) == 0;
    WatchNode const* const root = publication.tree.root();
    if (isThere && root != nullptr && table_.watches(folder.get(), *root)) {
        return;
    }
    lose(publication);
    if (isThere) {
        appear(publication, std::move(folder));
    }
}

void WatchPlace::appear(WatchPublication& publication, FileDescriptor folder) {
    publication.isPresent = true;
    reports_.addSelf(publication, events::Kind::Created);
    auto& root = publication.tree.makeRoot();
    if (survey_.run(publication, root, std::move(folder), WatchSurvey::Finds::Reported) != 0) {
        publication.isLimited = true;
        publication.mustTellOverflow = true;
    }
}

void WatchPlace::renew(WatchPublication& publication) {
    publication.isLost = false;
    publication.isLimited = false;
    publication.missed.clear();
    publication.mustTellOverflow = true;
    settle(publication);
    auto* const root = publication.tree.root();
    FileDescriptor folder;
    if (root == nullptr || publication.scope != WatchScope::Tree ||
        open(publication.location, readFolderFlags, folder) != 0) {
        return;
    }
    if (survey_.run(publication, *root, std::move(folder), WatchSurvey::Finds::Silent) != 0) {
        publication.isLimited = true;
    }
}

} // namespace foundation::storage::provider::local::detail
