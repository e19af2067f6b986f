// What takes items out of the tree.

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/memory/detail/tree.hpp>
#include <foundation/storage/provider/memory/memory_provider.hpp>

#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace foundation::storage::provider::memory {

using detail::Changes;
using detail::existing;
using detail::FolderNode;
using detail::LastLink;
using detail::Node;
using detail::Place;
using detail::Tree;

namespace {

/// After so many steps of a removal others have their turn at the tree.
constexpr std::size_t stepsInOneTurn = 1024;

/// The location of an entry of `folder`, which is `root` or below it; `location` is that of `root`.
StorageIRI locationIn(FolderNode const& folder, std::u16string_view name, FolderNode const& root,
                      StorageIRI const& location) {
    std::vector<std::u16string_view> names{name};
    for (FolderNode const* at = &folder; at != &root; at = at->parent()) {
        names.push_back(at->name());
    }
    ustring path;
    for (; !names.empty(); names.pop_back()) {
        path += names.back();
        path += u'/';
    }
    path.pop_back();
    return StorageIRI(location, path);
}

/// Takes a tree out of the store, an entry at a time and from below, as anybody could do it: so all
/// that others hold of it stays what it is for any removal. For one thread.
class TreeRemoval {
  public:
    TreeRemoval(std::shared_ptr<Tree> tree, StorageIRI const& location)
        : tree_(std::move(tree)),
          location_(location) {
        removed_.reserve(stepsInOneTurn);
    }

    /// Some of the steps; false where there are no more. What is made in the tree between two turns
    /// goes too. Nobody makes a thousand entries in that time, so there is an end.
    bool takeTurn();

  private:
    std::shared_ptr<Tree> const tree_; ///< of our own: who hears of the removal may end the store
    StorageIRI const location_;
    std::shared_ptr<FolderNode> at_;             ///< the folder that the last step was in
    std::vector<std::shared_ptr<Node>> removed_; ///< destroyed behind the lock
};

bool TreeRemoval::takeTurn() {
    removed_.clear();
    Changes changes(tree_->publications);
    std::unique_lock const lock(tree_->mutex);
    Place const place = existing(*tree_, location_, LastLink::Keep);
    if (place.node == &tree_->root()) {
        throw Exception(ErrorCode::ResourceInUse, location_);
    }
    FolderNode* const root = place.asFolder();
    if (!root) {
        checkWritable(location_, *place.folder);
        throw Exception(ErrorCode::ResourceNotFound, location_);
    }
    // It may have been removed or moved away meanwhile, and another folder come in place of the
    // tree.
    FolderNode* at = at_ && isInside(at_.get(), *root) ? at_.get() : root;
    for (std::size_t step = 0; step < stepsInOneTurn; ++step) {
        FolderNode::Children const& children = at->children();
        if (!children.empty()) {
            auto const& [name, child] = *children.begin();
            if (child->isFolder()) {
                at = static_cast<FolderNode*>(child.get());
                continue;
            }
            if (!at->isWritable()) {
                throw Exception(ErrorCode::PermissionDenied,
                                locationIn(*at, name, *root, location_));
            }
            changes.removed(*child);
            removed_.push_back(at->remove(name));
        } else if (at == root) {
            checkWritable(location_, *place.folder);
            changes.removed(*at);
            removed_.push_back(place.folder->remove(place.name));
            return false;
        } else {
            FolderNode* const above = at->parent();
            if (!above->isWritable()) {
                throw Exception(ErrorCode::PermissionDenied,
                                locationIn(*above, at->name(), *root, location_));
            }
            changes.removed(*at);
            removed_.push_back(above->remove(at->name()));
            at = above;
        }
    }
    at_ = at->shared_from_this();
    return true;
}

} // namespace

void MemoryProvider::removeFile(StorageIRI const& location) {
    Changes changes(tree_->publications);
    std::shared_ptr<Node> removed; // destroyed behind the lock
    std::unique_lock const lock(tree_->mutex);
    Place const place = existing(*tree_, location, LastLink::Keep);
    if (place.folder) {
        checkWritable(location, *place.folder);
    }
    if (place.node->isFolder()) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    changes.removed(*place.node);
    removed = place.folder->remove(place.name);
}

void MemoryProvider::removeFolder(StorageIRI const& location) {
    Changes changes(tree_->publications);
    std::shared_ptr<Node> removed;
    std::unique_lock const lock(tree_->mutex);
    Place const place = existing(*tree_, location, LastLink::Keep);
    if (place.node == &tree_->root()) {
        throw Exception(ErrorCode::ResourceInUse, location);
    }
    checkWritable(location, *place.folder);
    FolderNode const* const folder = place.asFolder();
    if (!folder) {
        throw Exception(ErrorCode::ResourceNotFound, location);
    }
    if (!folder->children().empty()) {
        throw Exception(ErrorCode::FolderNotEmpty, location);
    }
    changes.removed(*place.node);
    removed = place.folder->remove(place.name);
}

void MemoryProvider::removeFolderRecursively(StorageIRI const& location) {
    TreeRemoval removal(tree_, location);
    while (removal.takeTurn()) {
    }
}

} // namespace foundation::storage::provider::memory
