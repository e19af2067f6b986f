// Who is told of changes of the store.

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/memory/detail/publications.hpp>
#include <foundation/storage/provider/memory/detail/tree.hpp>
#include <foundation/storage/provider/memory/memory_provider.hpp>

#include <shared_mutex>
#include <utility>

namespace foundation::storage::provider::memory {

using detail::EntryType;
using detail::Kind;
using detail::LastLink;
using detail::Publication;
using detail::Scope;
using detail::Tree;

namespace {

std::uint32_t bitsOf(ChangeKinds const& kinds) noexcept {
    std::uint32_t bits = 0;
    for (Kind const kind : kinds) {
        if (auto const number = static_cast<std::uint32_t>(kind); number < 32) {
            bits |= 1U << number;
        }
    }
    return bits;
}

/// By what a publication is stopped: the spelling of its location does not matter.
ustring keyOf(StorageIRI const& location) {
    return ustring(detail::pathOf(location));
}

void publish(Tree& tree, StorageIRI const& location, Scope scope, ChangeCallback callback,
             ChangeKinds const& kinds) {
    ustring const key = keyOf(location);
    // Before the lock: where it cannot stay, its callback is destroyed behind it.
    auto const publication = std::make_shared<Publication>(
        Publication{location, {}, scope, bitsOf(kinds), std::move(callback)});
    std::shared_lock const lock(tree.mutex);
    // A link is a file; a folder may be reached through one, and is then watched where it is.
    LastLink const last = publication->isOfFolder() ? LastLink::Follow : LastLink::Keep;
    detail::Node const& node = *existing(tree, location, last).node;
    if (node.isFolder() != publication->isOfFolder()) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    publication->path = pathOf(node);
    if (!tree.publications->add(publication, key)) {
        throw ChangeEventsSubscriptionException(location);
    }
}

} // namespace

void MemoryProvider::publishFileEvents(StorageIRI const& location, ChangeCallback callback,
                                       ChangeKinds const& kinds) {
    publish(*tree_, location, Scope::File, std::move(callback), kinds);
}

void MemoryProvider::publishFolderEvents(StorageIRI const& location, ChangeCallback callback,
                                         ChangeKinds const& kinds,
                                         RecursiveFileWatching recursive) {
    Scope const scope = recursive == RecursiveFileWatching::Recursive ? Scope::Tree : Scope::Folder;
    publish(*tree_, location, scope, std::move(callback), kinds);
}

void MemoryProvider::stopPublishingFileEvents(StorageIRI const& location) {
    ustring const key = keyOf(location);
    auto const publications = tree_->publications; // what ends here may own the provider
    publications->stopOldest(EntryType::File, key);
}

void MemoryProvider::stopPublishingFolderEvents(StorageIRI const& location) {
    ustring const key = keyOf(location);
    auto const publications = tree_->publications;
    publications->stopOldest(EntryType::Folder, key);
}

void MemoryProvider::endPublishing() noexcept {
    auto const publications = tree_->publications;
    publications->close();
}

} // namespace foundation::storage::provider::memory
