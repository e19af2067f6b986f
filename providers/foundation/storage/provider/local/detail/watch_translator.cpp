#include <foundation/storage/provider/local/detail/watch_translator.hpp>

#include <foundation/storage/provider/local/detail/kernel_path.hpp>
#include <foundation/storage/provider/local/detail/listed_folder.hpp>

#include <fl/i18n/conversion.hpp>

#include <fcntl.h>
#include <sys/inotify.h>

namespace foundation::storage::provider::local::detail {

namespace {

events::EntryType typeOf(WatchBatch::Event const& event) noexcept {
    return (event.mask & IN_ISDIR) != 0 ? events::EntryType::Folder : events::EntryType::File;
}

bool isFolder(WatchBatch::Event const& event) noexcept {
    return (event.mask & IN_ISDIR) != 0;
}

/// A folder is not written to: then its times were set.
events::Kind kindOfChange(WatchBatch::Event const& event) noexcept {
    bool const isModified = (event.mask & IN_MODIFY) != 0 && !isFolder(event);
    return isModified ? events::Kind::Modified : events::Kind::AttributesChanged;
}

/// The kernel's name for a file that was made without one.
bool isOfUnnamed(std::string_view name) noexcept {
    return name.size() > 1 && name.front() == '#' &&
           name.find_first_not_of("0123456789", 1) == std::string_view::npos;
}

} // namespace

bool WatchTranslator::translate(WatchBatch& batch) {
    batch_ = &batch;
    ++batches_;
    isComplete_ = true;
    departures_.clear();
    batch.forEach([&](int watch, std::string_view name) { return isThere(watch, name); },
                  [&](Event const& event) { take(event); });
    closeParent();
    return isComplete_;
}

void WatchTranslator::take(Event const& event) {
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
        isComplete_ = false;
        return;
    }
    if ((event.mask & IN_UNMOUNT) != 0) {
        for (auto* const node : table_.nodesOf(event.watch)) {
            node->owner->isLost = true; // what was below shows again
            concern(*node->owner);
        }
        return;
    }
    if ((event.mask & IN_IGNORED) != 0) {
        takeEnd(event);
        return;
    }
    for (auto* const node : table_.nodesOf(event.watch)) {
        if (!table_.has(event.watch, node)) {
            continue; // dropped by what one of the others made of it
        }
        WatchPublication& publication = *node->owner;
        if (node == &publication.anchor) {
            takeAnchor(publication, event);
        } else if (!publication.isPublished(*node)) {
            takeAbove(publication, event);
        } else if (event.name.empty()) {
            takeSelf(*node, event);
        } else {
            takeEntry(*node, event);
        }
    }
}

/// The kernel has ended a watch, because the folder is gone or its file system was unmounted.
void WatchTranslator::takeEnd(Event const& event) {
    while (auto* const node = table_.anyOf(event.watch)) {
        WatchPublication& publication = *node->owner;
        if (node->parent == nullptr) {
            table_.release(*node);
            publication.isUnsettled = true;
            concern(publication);
        } else {
            publication.tree.drop(*node, table_);
        }
    }
}

/// Where a folder on the way is moved or removed, the way leads elsewhere, or nowhere.
void WatchTranslator::takeAbove(WatchPublication& publication, Event const& event) {
    if ((event.mask & (IN_MOVE_SELF | IN_DELETE_SELF)) != 0) {
        publication.isUnsettled = true;
        concern(publication);
    }
}

void WatchTranslator::takeAnchor(WatchPublication& publication, Event const& event) {
    if (event.name.empty()) {
        takeAbove(publication, event);
        return;
    }
    if (event.name != publication.awaited) {
        return;
    }
    bool const isAccess = (event.mask & IN_ATTRIB) != 0 && publication.tree.root() == nullptr;
    bool const isGone = (event.mask & (IN_DELETE | IN_MOVED_FROM)) != 0;
    bool const isNew = (event.mask & (IN_CREATE | IN_MOVED_TO)) != 0;
    if (!publication.isAnchoredAtParent) {
        publication.isUnsettled = true;
        concern(publication);
    } else if (publication.isFolder()) {
        if (isGone) {
            place_.lose(publication);
        } else if (isNew || isAccess) {
            place_.settle(publication);
            concern(publication);
        }
    } else {
        takeFile(publication, event);
    }
}

/// Of a published file.
void WatchTranslator::takeFile(WatchPublication& publication, Event const& event) {
    bool const isNew = (event.mask & (IN_CREATE | IN_MOVED_TO)) != 0;
    bool const isGone = isFolder(event) ? isNew // a folder has its name now
                                        : (event.mask & (IN_DELETE | IN_MOVED_FROM)) != 0;
    if (isGone) {
        if (std::exchange(publication.isPresent, false)) {
            reports_.addSelf(publication, Kind::Removed);
        }
    } else if (!isFolder(event)) {
        reports_.addSelf(publication, isNew ? Kind::Created : kindOfChange(event));
        publication.isPresent = publication.isPresent || isNew;
    }
}

void WatchTranslator::takeSelf(WatchNode& node, Event const& event) {
    WatchPublication& publication = *node.owner;
    if (!publication.tree.isRoot(node)) {
        return; // the folder above tells it
    }
    if ((event.mask & (IN_ATTRIB | IN_MODIFY)) != 0) {
        reports_.addSelf(publication, Kind::AttributesChanged);
    } else {
        publication.isUnsettled = true;
        concern(publication);
    }
}

void WatchTranslator::takeEntry(WatchNode& node, Event const& event) {
    if ((event.mask & IN_CREATE) != 0) {
        create(node, event);
    } else if ((event.mask & IN_DELETE) != 0) {
        remove(node, event);
    } else if ((event.mask & IN_MOVED_FROM) != 0) {
        depart(node, event);
    } else if ((event.mask & IN_MOVED_TO) != 0) {
        arrive(node, event);
    } else {
        change(node, event);
    }
}

void WatchTranslator::create(WatchNode& node, Event const& event) {
    WatchPublication& publication = *node.owner;
    bool const wasFound = reports_.wasFound(publication, node.watch, event.name);
    if (!wasFound) {
        reports_.add(publication, Kind::Created, node, event.name, typeOf(event));
    }
    if (isFolder(event) && !(wasFound && isWatched(node, event.name))) {
        publication.found(node.watch, event.name);
        enter(node, event.name);
    }
}

void WatchTranslator::remove(WatchNode& node, Event const& event) {
    WatchPublication& publication = *node.owner;
    reports_.wasFound(publication, node.watch, event.name);
    if (isFolder(event) && publication.scope == WatchScope::Tree) {
        if (auto* const child = publication.tree.child(node, event.name)) {
            publication.tree.drop(*child, table_);
        }
    }
    reports_.add(publication, Kind::Removed, node, event.name, typeOf(event));
}

void WatchTranslator::change(WatchNode& node, Event const& event) {
    WatchPublication& publication = *node.owner;
    if (isOfUnnamed(event.name) && isThere(event.watch, event.name) != WatchBatch::Answer::Yes) {
        return;
    }
    reports_.add(publication, kindOfChange(event), node, event.name, typeOf(event));
    if (isFolder(event) && publication.scope == WatchScope::Tree &&
        publication.tree.child(node, event.name) == nullptr) {
        enter(node, event.name); // it may be readable now
    }
}

void WatchTranslator::depart(WatchNode& node, Event const& event) {
    WatchPublication& publication = *node.owner;
    reports_.wasFound(publication, node.watch, event.name);
    if (isFolder(event) && publication.scope == WatchScope::Tree) {
        if (publication.isUnreported(node.watch, event.name)) {
            return; // it is created where it arrives
        }
        // An exchange puts another one there at the same time, and tells of that first.
        publication.miss(node.watch, event.name, WatchPublication::Reported::No);
        concern(publication);
    }
    auto const* const arrival = batch_->arrivalOf(event.cookie);
    auto* const to = arrival == nullptr ? nullptr : folderOf(arrival->watch, publication);
    auto* const moved = publication.tree.child(node, event.name);
    // A folder cannot move into itself: then one of the two was taken for another, and what is
    // where will be seen.
    if (to == nullptr || (moved != nullptr && publication.tree.isWithin(*to, *moved))) {
        remove(node, event);
        return;
    }
    auto* const replaced = publication.tree.child(*to, arrival->name);
    if (moved != nullptr && replaced != nullptr && replaced != moved &&
        replaced->firstChild != nullptr) {
        // None can be moved over a folder with something in it: another one was taken for it.
        reports_.add(publication, Kind::Removed, *to, arrival->name, Type::Folder);
    }
    departures_.insert_or_assign(
        {event.cookie, &publication},
        StorageIRI(publication.locationOf(node), fl::i18n::storageNameToUstring(event.name)));
    reports_.add(
        publication, Kind::Removed, node, event.name, typeOf(event),
        StorageIRI(publication.locationOf(*to), fl::i18n::storageNameToUstring(arrival->name)));
    if (isFolder(event) && publication.scope == WatchScope::Tree) {
        moveSubtree(node, event.name, *to, arrival->name);
    }
}

void WatchTranslator::arrive(WatchNode& node, Event const& event) {
    WatchPublication& publication = *node.owner;
    // Also where listing has found it: it may have come over what was found.
    reports_.wasFound(publication, node.watch, event.name);
    auto const departure = departures_.find({event.cookie, &publication});
    reports_.add(publication, Kind::Created, node, event.name, typeOf(event),
                 departure == departures_.end() ? std::optional<StorageIRI>() : departure->second);
    if (isFolder(event)) {
        publication.found(node.watch, event.name);
        enter(node, event.name);
    }
}

void WatchTranslator::moveSubtree(WatchNode& node, std::string_view name, WatchNode& to,
                                  std::string_view newName) {
    WatchPublication& publication = *node.owner;
    auto& tree = publication.tree;
    auto* const child = tree.child(node, name);
    auto* const replaced = tree.child(to, newName);
    if (child == nullptr || child == replaced) {
        return;
    }
    if (replaced != nullptr) {
        bool const goesToo = tree.isWithin(*child, *replaced);
        tree.drop(*replaced, table_);
        if (goesToo) {
            return;
        }
    }
    tree.move(*child, to, newName);
}

/// Watches a folder that has come, and reports what is in it; of one that came along with its
/// watch, only that it is the one.
void WatchTranslator::enter(WatchNode& node, std::string_view name) {
    WatchPublication& publication = *node.owner;
    if (publication.scope != WatchScope::Tree) {
        return;
    }
    FileDescriptor folder;
    int const error = openEntry(node, name, folder);
    if (error == notNow ||
        (error == 0 && !enter(node, name, std::move(folder), Reported::Yes, Attempt::First))) {
        publication.miss(node.watch, name, Reported::Yes);
    } else if (error != 0 && !isPassedOver(error)) { // else an event behind this one tells
        limit(publication);
    }
    if (publication.isLost || !publication.missed.empty()) {
        concern(publication);
    }
}

/// The same of one that is open. False where it is in its old place to all appearances.
bool WatchTranslator::enter(WatchNode& node, std::string_view name, FileDescriptor folder,
                            Reported isReported, Attempt attempt) {
    WatchPublication& publication = *node.owner;
    int const watch = table_.claim(folder.get(), publication.events());
    if (watch < 0) {
        limit(publication);
        return true;
    }
    auto* child = publication.tree.child(node, name);
    if (child != nullptr && child->watch == watch) {
        return true;
    }
    if (survey_.isOnItsWay(publication, watch, child)) {
        auto* const other = folderOf(watch, publication);
        if (attempt == Attempt::First || publication.tree.isWithin(node, *other)) {
            return false;
        }
        publication.tree.drop(*other, table_);
        child = publication.tree.child(node, name);
    }
    if (child != nullptr) {
        // What was reported of it was in another folder, which had the name for a moment.
        reports_.add(publication, Kind::Removed, node, name, Type::Folder);
        reports_.add(publication, Kind::Created, node, name, Type::Folder);
    } else {
        child = &publication.tree.addChild(node, name);
        if (isReported == Reported::No) {
            reports_.addFound(publication, node, name, Type::Folder);
        }
    }
    int const error =
        survey_.run(publication, *child, std::move(folder), WatchSurvey::Finds::Reported);
    if (child->watch == WatchNode::unwatched) {
        publication.tree.drop(*child, table_);
    }
    if (error != 0) {
        limit(publication);
    }
    return true;
}

/// Opens a subfolder of a watched folder. The error number, or 0.
int WatchTranslator::openEntry(WatchNode const& node, std::string_view name,
                               FileDescriptor& folder) {
    int const error = openParent(node);
    if (error != 0) {
        return isPassedOver(error) ? notNow : error;
    }
    std::string const text(name);
    folder = FileDescriptor(uninterrupted(
        [&] { return ::openat(parent_.get(), text.c_str(), readFolderFlags | O_NOFOLLOW); }));
    return folder ? 0 : errno;
}

void WatchTranslator::limit(WatchPublication& publication) noexcept {
    publication.limit();
    concern(publication);
}

bool WatchTranslator::isWatched(WatchNode const& node, std::string_view name) const noexcept {
    auto const* const child = node.owner->tree.child(node, name);
    return child != nullptr && child->watch != WatchNode::unwatched;
}

WatchNode* WatchTranslator::folderOf(int watch, WatchPublication const& publication) const {
    return table_.find(watch, [&](WatchNode const& node) {
        return node.owner == &publication && publication.isPublished(node);
    });
}

/// Whether there is an item of that name in a watched folder now.
WatchBatch::Answer WatchTranslator::isThere(int watch, std::string_view name) {
    std::string const text(name);
    struct stat item {};
    for (auto* const node : table_.nodesOf(watch)) {
        WatchPublication& publication = *node->owner;
        FileDescriptor anchor;
        int folder = -1;
        if (publication.isPublished(*node)) {
            folder = openParent(*node) == 0 ? parent_.get() : -1;
        } else {
            anchor = place_.openAnchor(publication, *node);
            folder = anchor.get();
        }
        if (folder >= 0) {
            int const error = statItem(folder, text.c_str(), false, item);
            return error == 0 ? WatchBatch::Answer::Yes : WatchBatch::Answer::No;
        }
    }
    return WatchBatch::Answer::Unknown;
}

/// The error number, or 0.
int WatchTranslator::openParent(WatchNode const& node) {
    if (parent_ && parentWatch_ == node.watch) {
        return 0;
    }
    parentWatch_ = node.watch;
    parent_.close();
    return openWatchedFolder(*node.owner, node, table_, parent_);
}

void WatchTranslator::closeParent() noexcept {
    parent_.close();
    parentWatch_ = WatchNode::unwatched;
}

} // namespace foundation::storage::provider::local::detail
