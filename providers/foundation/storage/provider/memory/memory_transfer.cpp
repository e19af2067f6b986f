// What takes a file or folder from one place to another: copies, moves and replacing streams.

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/memory/detail/tree.hpp>
#include <foundation/storage/provider/memory/memory_provider.hpp>
#include <foundation/storage/provider/memory/memory_stream.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/provider/streaming_copy.hpp>

#include <mutex>
#include <shared_mutex>
#include <utility>
#include <vector>

namespace foundation::storage::provider::memory {

using detail::Changes;
using detail::existing;
using detail::FileNode;
using detail::FolderNode;
using detail::LastLink;
using detail::LinkNode;
using detail::Node;
using detail::pathOf;
using detail::Place;
using detail::Tree;

namespace {

/// What a path leads to in the end, links followed; a link that leads nowhere itself.
Node const* finalNode(Tree const& tree, std::u16string_view path) {
    Place const followed = tree.walk(path, LastLink::Follow);
    return followed.node ? followed.node : tree.walk(path, LastLink::Keep).node;
}

/// Two names of one item: acting on the one would destroy what the other shows. Of two links, what
/// they lead to stays as it is.
void refuseSameItem(Tree const& tree, StorageIRI const& source, StorageIRI const& destination) {
    Place const from = tree.walk(pathOf(source), LastLink::Keep);
    Place const to = tree.walk(pathOf(destination), LastLink::Keep);
    if (from.link() && to.link() && from.node != to.node) {
        return;
    }
    Node const* const node = finalNode(tree, pathOf(source));
    if (node && node == finalNode(tree, pathOf(destination))) {
        throw Exception(ErrorCode::InvalidLocation, source);
    }
}

void refuseOtherStore(StorageIRI const& source, StorageIRI const& destination) {
    if (source.getSchemeView() != destination.getSchemeView() ||
        source.getAuthorityView() != destination.getAuthorityView()) {
        throw Exception(ErrorCode::UnsupportedOperation, destination);
    }
}

/// Whether one of two folders lies in the other so that a copy of the tree, with links followed,
/// would write into what it copies: the destination lies in the source; or it is above the source,
/// and there is a folder in the source that the copy would take for the source itself, like a/b/b
/// where a/b is copied to a.
bool wouldCopyIntoItself(Tree const& tree, StorageIRI const& source,
                         StorageIRI const& destination) {
    FolderNode const* const from = tree.walk(pathOf(source), LastLink::Keep).asFolder();
    FolderNode const* const to = tree.walk(pathOf(destination), LastLink::Follow).asFolder();
    FolderNode const* const inFolder =
        to ? to : tree.walk(pathOf(destination), LastLink::Keep).folder;
    if (!from || isInside(inFolder, *from)) {
        return from != nullptr;
    }
    if (!to || !isInside(from, *to)) {
        return false;
    }
    std::vector<std::u16string_view> names;
    for (FolderNode const* at = from; at != to; at = at->parent()) {
        names.push_back(at->name());
    }
    Node const* again = from;
    for (; again && again->isFolder() && !names.empty(); names.pop_back()) {
        again = static_cast<FolderNode const*>(again)->find(names.back());
    }
    return again && again->isFolder();
}

/// Whether a caller may answer a refusal by copying the tree and removing the source.
bool invitesCopy(ErrorCode code) noexcept {
    return code == ErrorCode::UnsupportedOperation || code == ErrorCode::ResourceAlreadyExists ||
           code == ErrorCode::FolderNotEmpty || code == ErrorCode::PermissionDenied;
}

struct Transfer {
    Place from;
    Place to;
};

/// A file or link that is to be taken elsewhere, and a place for it.
Transfer fileTransfer(Tree const& tree, StorageIRI const& source, StorageIRI const& destination,
                      ReplacementPolicy policy) {
    Place const from = existing(tree, source, LastLink::Keep);
    if (from.node->isFolder()) {
        throw Exception(ErrorCode::InvalidLocation, source);
    }
    refuseSameItem(tree, source, destination);
    Place const to = tree.walk(pathOf(destination), LastLink::Keep);
    checkReplaceable(destination, to, policy);
    return {from, to};
}

/// A folder that is to be moved, and a place for it.
Transfer folderTransfer(Tree const& tree, StorageIRI const& source, StorageIRI const& destination,
                        ReplacementPolicy policy) {
    Place const from = existing(tree, source, LastLink::Keep);
    FolderNode const* const folder = from.asFolder();
    if (!folder) {
        throw Exception(ErrorCode::InvalidLocation, source);
    }
    refuseSameItem(tree, source, destination);
    Place const to = tree.walk(pathOf(destination), LastLink::Keep);
    if (to.error) {
        throw Exception(*to.error, destination);
    }
    FolderNode const* const old = to.asFolder();
    if (to.node) {
        if (!replaces(policy)) {
            throw Exception(ErrorCode::ResourceAlreadyExists, destination);
        }
        if (!old) {
            throw Exception(ErrorCode::InvalidLocation, destination);
        }
        if (!old->isWritable()) {
            throw Exception(ErrorCode::PermissionDenied, destination);
        }
    }
    if (!from.folder || !to.folder) { // the root stays
        throw Exception(ErrorCode::ResourceInUse, destination);
    }
    if (isInside(to.folder, *folder)) {
        throw Exception(ErrorCode::InvalidLocation, destination);
    }
    if (old && isInside(from.folder, *old)) {
        throw Exception(ErrorCode::FolderNotEmpty, destination);
    }
    checkWritable(source, *from.folder);
    checkWritable(destination, *to.folder);
    if (from.folder != to.folder) {
        checkWritable(destination, *folder); // its `..` changes
    }
    if (old && !old->children().empty()) {
        throw Exception(ErrorCode::FolderNotEmpty, destination);
    }
    return {from, to};
}

} // namespace

CopyStatus MemoryProvider::copyFile(StorageIRI const& source, StorageItem const& destination,
                                    CopyFileOptions const& options) {
    if (destination.getProvider().get() != this) {
        return copyFileByStreams(*this, source, destination, options);
    }
    StorageIRI const target = destination.getLocation();
    std::shared_ptr<FileNode> original;
    std::shared_ptr<Node> copy;
    auto const slot = [&] {
        std::shared_lock const lock(tree_->mutex);
        auto const [from, to] = fileTransfer(*tree_, source, target, options.policy);
        checkWritable(target, *to.folder);
        if (LinkNode const* const link = from.link()) {
            copy = tree_->make<LinkNode>(target, *link);
        } else {
            original = std::static_pointer_cast<FileNode>(from.folder->share(from.name));
        }
        return detail::Slot(to);
    }();
    std::uint64_t size = 0;
    if (original) {
        auto file = tree_->make<FileNode>(target, *original);
        size = file->size();
        copy = std::move(file);
    }
    if (options.progress && !options.progress(size, size)) {
        throw Exception(ErrorCode::IOError, target);
    }
    Changes changes(tree_->publications);
    std::shared_ptr<Node> replaced; // destroyed behind the lock
    std::unique_lock const lock(tree_->mutex);
    if (original && tree_->placeIn(slot).node == original.get()) {
        throw Exception(ErrorCode::InvalidLocation, source); // it was moved there in between
    }
    replaced = tree_->publish(target, slot, copy, options.policy);
    changes.created(*copy);
    // Where the caller unlocked what stood there, it locks a copy that needs nothing more again,
    // and that would lock what a new link leads to.
    return !original && options.policy == ReplacementPolicy::ReplaceReadOnly
               ? CopyStatus::Copied
               : CopyStatus::CopiedWithTimes;
}

void MemoryProvider::moveFile(StorageIRI const& source, StorageIRI const& destination,
                              ReplacementPolicy const& policy) {
    refuseOtherStore(source, destination);
    Changes changes(tree_->publications);
    std::shared_ptr<Node> replaced; // destroyed behind the lock
    std::unique_lock const lock(tree_->mutex);
    auto const [from, to] = fileTransfer(*tree_, source, destination, policy);
    checkWritable(source, *from.folder);
    checkWritable(destination, *to.folder);
    replaced = from.folder->moveTo(*to.folder, from.name, ustring(to.name));
    changes.moved(*from.folder, from.name, *from.node, replaced.get());
}

void MemoryProvider::moveFolder(StorageIRI const& source, StorageIRI const& destination,
                                ReplacementPolicy const& policy) {
    refuseOtherStore(source, destination);
    Changes changes(tree_->publications);
    std::shared_ptr<Node> replaced; // destroyed behind the lock
    std::unique_lock const lock(tree_->mutex);
    Transfer const transfer = [&] {
        try {
            return folderTransfer(*tree_, source, destination, policy);
        } catch (Exception const& e) {
            if (invitesCopy(e.getErrorCode()) && wouldCopyIntoItself(*tree_, source, destination)) {
                throw Exception(ErrorCode::InvalidLocation, destination);
            }
            throw;
        }
    }();
    auto const& [from, to] = transfer;
    replaced = from.folder->moveTo(*to.folder, from.name, ustring(to.name));
    changes.moved(*from.folder, from.name, *from.node, replaced.get());
}

std::unique_ptr<ByteStream> MemoryProvider::openReplacement(StorageIRI const& location,
                                                            ReplacementPolicy const& policy) {
    std::shared_lock const lock(tree_->mutex);
    Place const place = tree_->walk(pathOf(location), LastLink::Keep);
    checkReplaceable(location, place, policy);
    checkWritable(location, *place.folder);
    auto file = tree_->make<FileNode>(location, detail::newFileMode);
    if (place.file()) {
        file->takeModeOf(*place.file());
    }
    return std::make_unique<MemoryReplacement>(tree_, location, detail::Slot(place), policy,
                                               std::move(file));
}

} // namespace foundation::storage::provider::memory
