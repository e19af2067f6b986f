#include <foundation/storage/provider/local/detail/watch_place.hpp>

#include <foundation/storage/provider/exception.hpp>
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
constexpr std::uint32_t namesEvents =
    IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF;

std::uint32_t anchorEvents(WatchPublication const& publication, bool isParent) noexcept {
    if (isParent && !publication.isFolder()) {
        return publication.events();
    }
    return publication.awaitsAccess ? namesEvents | IN_ATTRIB : namesEvents;
}

/// And further up not even these.
constexpr std::uint32_t selfEvents = IN_DELETE_SELF | IN_MOVE_SELF;

/// How often the way down is looked at again while it changes under the look.
constexpr int attempts = 32;

bool endsInDots(StorageIRI const& location) {
    ustring const& path = location.getDecodedPath();
    return path.ends_with(u"/.") || path.ends_with(u"/..");
}

int ask(StorageIRI const& location, struct stat& item) {
    try {
        return statItem(KernelPath(location), false, item);
    } catch (Exception const& failure) {
        return errorOf(failure);
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
        int const error = openFolder(above, O_PATH | O_DIRECTORY | O_CLOEXEC, folder);
        if (error == 0) {
            FolderIdentity identity;
            int failure = identifyBriefly(folder.get(), identity);
            if (failure == 0) {
                failure = table_.watch(folder.get(), anchorEvents(publication, isParent),
                                       publication.anchor);
            }
            if (failure != 0) {
                bool const isSame = publication.isAnchoredAtParent && isParent &&
                                    publication.anchorIdentity.looksLike(identity);
                return isDenied(failure) && isSame ? 0 : failure; // it may be watched, not again
            }
            publication.isAnchoredAtParent = isParent;
            publication.anchorIdentity = identity;
            publication.awaited = fl::i18n::ustringToStorageName(item.getName());
            return watchAbove(publication, above);
        }
        if (!isGone(error)) {
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
        if (openFolder(at, O_PATH | O_DIRECTORY | O_CLOEXEC, opened) == 0) {
            auto node = std::make_unique<WatchNode>();
            node->owner = &publication;
            publication.above.push_back(std::move(node));
            int const error = table_.watch(opened.get(), selfEvents, *publication.above.back());
            result = isDenied(error) ? 0 : error;
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
            openFolder(publication.location.getParent(), O_PATH | O_DIRECTORY | O_CLOEXEC,
                       parent) != 0) {
            break;
        }
    }
    if (isPassedOver(error)) {
        releaseAnchor(publication);
    }
    return error;
}

int WatchPlace::begin(WatchPublication& publication) {
    int const error = anchorAsFarAsThereIs(publication);
    if (error != 0 && !(publication.isFolder() && isDenied(error))) {
        return error;
    }
    publication.isPresent = true;
    if (!publication.isFolder()) {
        struct stat item {};
        return publication.isAnchoredAtParent ? ask(publication.location, item) : ENOENT;
    }
    FileDescriptor folder;
    if (int const failure = openFolder(publication.location, readFolderFlags, folder)) {
        return failure;
    }
    return watchRoot(publication, std::move(folder), WatchSurvey::Finds::Silent);
}

FileDescriptor WatchPlace::openAnchor(WatchPublication const& publication, WatchNode const& node) {
    FileDescriptor folder;
    if (&node != &publication.anchor || !publication.isAnchoredAtParent ||
        openFolder(publication.location.getParent(), O_PATH | O_DIRECTORY | O_CLOEXEC, folder) !=
            0 ||
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
    if (error != 0 && !isDenied(error)) {
        publication.limit();
    }
    if (publication.isFolder()) {
        settleFolder(publication);
    } else if (error == 0) {
        settleFile(publication);
    }
}

void WatchPlace::settleFile(WatchPublication& publication) {
    struct stat item {};
    int const error = publication.isAnchoredAtParent ? ask(publication.location, item) : ENOENT;
    if (error != 0 && !isGone(error)) {
        if (!isDenied(error)) {
            publication.limit();
        }
        return; // it may well be there
    }
    bool const isThere = error == 0 && !S_ISDIR(item.st_mode);
    if (isThere != publication.isPresent) {
        reports_.addSelf(publication, isThere ? events::Kind::Created : events::Kind::Removed);
    }
    publication.isPresent = isThere;
}

void WatchPlace::settleFolder(WatchPublication& publication) {
    FileDescriptor folder;
    int error = openFolder(publication.location, readFolderFlags, folder);
    if (isDenied(error) && !std::exchange(publication.awaitsAccess, true)) {
        anchorAsFarAsThereIs(publication);
        error = openFolder(publication.location, readFolderFlags, folder);
    }
    WatchNode* const root = publication.tree.root();
    if (error == 0) {
        if (root != nullptr && root->watch == WatchNode::unwatched) {
            fill(publication, std::move(folder)); // it was found, but could not be watched
        } else if (root == nullptr || !table_.watches(folder.get(), *root)) {
            lose(publication);
            appear(publication, std::move(folder));
        }
    } else if (!isPassedOver(error)) {
        publication.limit();
    } else if (!isDenied(error) || !isSameRoot(publication)) {
        lose(publication);
    }
}

/// Whether what may not be read is the folder that is watched, as far as can be told.
bool WatchPlace::isSameRoot(WatchPublication& publication) {
    if (publication.tree.root() == nullptr) {
        return false;
    }
    FileDescriptor folder;
    FolderIdentity identity;
    int error = openFolder(publication.location, O_PATH | O_DIRECTORY | O_CLOEXEC, folder);
    if (error == 0) {
        error = identifyBriefly(folder.get(), identity);
    }
    if (error != 0 && !isPassedOver(error)) {
        publication.limit();
    }
    return error == 0 ? identity.looksLike(publication.rootIdentity) : !isGone(error);
}

void WatchPlace::appear(WatchPublication& publication, FileDescriptor folder) {
    publication.isPresent = true;
    reports_.addSelf(publication, events::Kind::Created);
    fill(publication, std::move(folder));
}

void WatchPlace::fill(WatchPublication& publication, FileDescriptor folder) {
    if (watchRoot(publication, std::move(folder), WatchSurvey::Finds::Reported) != 0) {
        publication.limit();
    }
}

/// The error number, or 0.
int WatchPlace::watchRoot(WatchPublication& publication, FileDescriptor folder,
                          WatchSurvey::Finds finds) {
    auto* const known = publication.tree.root();
    auto& root = known != nullptr ? *known : publication.tree.makeRoot();
    if (int const error = identifyBriefly(folder.get(), publication.rootIdentity)) {
        return error;
    }
    return survey_.run(publication, root, std::move(folder), finds);
}

void WatchPlace::renew(WatchPublication& publication) {
    publication.isLost = false;
    publication.missed.clear();
    settle(publication);
    auto* const root = publication.tree.root();
    if (root == nullptr || publication.scope != WatchScope::Tree) {
        return;
    }
    FileDescriptor folder;
    int error = openWatchedFolder(publication, *root, table_, folder);
    if (error == 0) {
        error = survey_.run(publication, *root, std::move(folder), WatchSurvey::Finds::Silent);
    }
    if (error != 0 && !isPassedOver(error)) {
        publication.limit();
    }
}

} // namespace foundation::storage::provider::local::detail
