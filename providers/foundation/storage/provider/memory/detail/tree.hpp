#pragma once

#include <foundation/storage/provider/copy_file_options.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/memory/detail/changes.hpp>
#include <foundation/storage/provider/memory/detail/fair_shared_mutex.hpp>
#include <foundation/storage/provider/memory/detail/nodes.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <memory>
#include <optional>
#include <shared_mutex>
#include <string_view>
#include <utility>

namespace foundation::storage::provider::memory::detail {

/// What to do with a link in the last place of a path.
enum class LastLink { Keep, Follow };

/// Where a path leads. Valid while the tree is locked and the path's text lives.
struct Place {
    std::optional<ErrorCode> error; ///< set: the path leads nowhere, and this is why
    FolderNode* folder = nullptr;   ///< that holds the name; null for a folder by itself
    std::u16string_view name;       ///< empty where `folder` is null
    Node* node = nullptr;           ///< null: the name is free

    FileNode* file() const noexcept { return as<FileNode>(Node::Kind::File); }
    FolderNode* asFolder() const noexcept { return as<FolderNode>(Node::Kind::Folder); }
    LinkNode* link() const noexcept { return as<LinkNode>(Node::Kind::Link); }
    /// Neither an item nor a folder to put it in, or no item.
    bool isMissing() const noexcept {
        return error == ErrorCode::ResourceNotFound || (!error && !node);
    }

  private:
    template<class Type>
    Type* as(Node::Kind kind) const noexcept {
        return node && node->kind() == kind ? static_cast<Type*>(node) : nullptr;
    }
};

/// A name in a folder, held without the lock: what goes there goes into this folder, wherever it is
/// moved meanwhile.
struct Slot {
    explicit Slot(Place const& place)
        : folder(place.folder->shared_from_this()),
          name(place.name) {}

    std::shared_ptr<FolderNode> folder;
    ustring name;
};

/// The items of one store, from the root down. Everything but the content of files is guarded by
/// `mutex`, shared for looking and exclusive for changing. Shared by the provider and by streams
/// that have something to publish.
class Tree {
  public:
    explicit Tree(MemoryOptions const& options);
    Tree(Tree const&) = delete;
    Tree& operator=(Tree const&) = delete;

    /// Follows a path from `start`, and links in it up to 40 of them; more are a loop
    /// (InvalidLocation). A part that is missing, or is a file, gives ResourceNotFound.
    /// REQUIRES: the mutex is held.
    Place walk(FolderNode& start, std::u16string_view path, LastLink last) const;
    Place walk(std::u16string_view path, LastLink last) const { return walk(*root_, path, last); }

    FolderNode& root() const noexcept { return *root_; }
    /// Whether a folder is still in the tree. Only empty folders are taken out of it, so that one
    /// with a parent is. REQUIRES: the mutex is held.
    bool contains(FolderNode const& folder) const noexcept {
        return folder.parent() || &folder == root_.get();
    }

    /// A new item that is not in the tree yet. Throws provider::Exception with code NoSpaceLeft,
    /// naming `location`. Needs no lock.
    template<class Type, class... Arguments>
    std::shared_ptr<Type> make(StorageIRI const& location, Arguments&&... arguments) const {
        if (!space_->bytes.isExhausted()) {
            try {
                return std::make_shared<Type>(space_, std::forward<Arguments>(arguments)...);
            } catch (OutOfSpace const&) {
                // Told below: the store knows no locations.
            }
        }
        throw Exception(ErrorCode::NoSpaceLeft, location);
    }

    /// What a slot holds now; an error where its folder is no longer in the tree.
    /// REQUIRES: the mutex is held.
    Place placeIn(Slot const& slot) const;
    /// Puts a complete file or link into a slot that is free, or whose item the policy allows to be
    /// replaced. What was there before is handed out, to be destroyed when the lock is released.
    /// Throws provider::Exception naming `location`. REQUIRES: the mutex is held exclusively.
    std::shared_ptr<Node> publish(StorageIRI const& location, Slot const& slot,
                                  std::shared_ptr<Node> item, ReplacementPolicy policy);

    /// Notes that a file's bytes have changed. REQUIRES: the mutex is not held.
    void modified(FileNode const& file, Changes& changes) const {
        if (changes.isWatched()) {
            std::shared_lock const lock(mutex);
            changes.modified(file);
        }
    }

    mutable FairSharedMutex mutex;
    /// Who is told of changes. May outlive the tree.
    std::shared_ptr<Publications> const publications;

  private:
    std::shared_ptr<Space> const space_;
    std::shared_ptr<FolderNode> const root_;
};

/// The path of a location in a store. Throws provider::Exception with code InvalidLocation where
/// the location has none, or has anything that a store does not know: an authority, a query, an
/// inner location. The view is the location's own text.
std::u16string_view pathOf(StorageIRI const& location);

/// Whether a folder, which may be null, is `ancestor` or below it. REQUIRES: the mutex is held.
bool isInside(FolderNode const* folder, FolderNode const& ancestor) noexcept;

/// What a path leads to. Throws provider::Exception naming `location` where that is nothing.
/// REQUIRES: the mutex is held.
Place existing(Tree const& tree, StorageIRI const& location, LastLink last);

/// Refuses a destination that is neither free for a file nor to be replaced by one under the
/// policy: ResourceAlreadyExists, PermissionDenied for a read-only file, InvalidLocation for a
/// folder, and what stands in the way of a place. Throws provider::Exception naming `location`.
void checkReplaceable(StorageIRI const& location, Place const& place, ReplacementPolicy policy);

/// Refuses a folder that takes no entries and gives none away. Throws PermissionDenied.
void checkWritable(StorageIRI const& location, FolderNode const& folder);

} // namespace foundation::storage::provider::memory::detail
