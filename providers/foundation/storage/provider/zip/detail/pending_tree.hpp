#pragma once

#include <foundation/storage/provider/attributes.hpp>
#include <foundation/storage/provider/copy_file_options.hpp>
#include <foundation/storage/provider/storage_iri.hpp>
#include <foundation/storage/provider/zip/detail/archive_index.hpp>
#include <foundation/storage/provider/zip/detail/archive_walk.hpp>
#include <foundation/storage/provider/zip/detail/pending_content.hpp>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace foundation::storage::provider::zip::detail {

/// The owner's write bit decides whether an item is writable.
constexpr std::uint16_t ownerMayWrite = 0200;
constexpr std::uint16_t newFileMode = 0644;
constexpr std::uint16_t newFolderMode = 0755;
constexpr std::uint16_t linkMode = 0777;

/// An item of an archive that is changed. Everything in it is guarded by the tree's mutex.
struct PendingNode {
    using Children = std::map<std::string, std::shared_ptr<PendingNode>, std::less<>>;

    EntryKind kind = EntryKind::File;
    /// What it is otherwise than the archive has it, or all of it where that has it not.
    bool hasNewFacts = false;
    bool hasNewName = false;
    bool isImplied = false; ///< a folder that gets no member of its own while it has children
    std::uint16_t mode = 0;
    std::int64_t lastModified = 0; ///< of what has no content of its own
    /// The member that it is in the archive, or was copied from.
    ArchiveIndex::Number base = ArchiveIndex::none;
    /// Where it stands in the archive to come: as in the old one, and new ones behind these.
    std::uint64_t order = 0;
    PendingNode* parent = nullptr; ///< null for the root, and for what is not in the tree any more
    std::string const* name = nullptr;       ///< the key in the parent
    std::shared_ptr<PendingContent> content; ///< of a file; null where it is that of `base`
    std::string target;                      ///< of a link without a `base`
    Children children;

    bool isFolder() const noexcept { return kind == EntryKind::Folder; }
    bool isWritable() const noexcept { return (mode & ownerMayWrite) != 0; }
};

/// What an archive holds and is to hold: the folders and files of its index, and all changes that
/// were not written yet. Safe on any thread as far as `mutex` is held.
class PendingTree {
  public:
    using Handle = PendingNode*;
    using Place = ArchivePlace<PendingTree>;
    static constexpr Handle none = nullptr;

    /// `location` is that of the root.
    PendingTree(std::shared_ptr<ArchiveIndex const> index, StorageIRI location,
                ZipOptions const& options, std::shared_ptr<PendingSpace> space);
    ~PendingTree();
    PendingTree(PendingTree const&) = delete;
    PendingTree& operator=(PendingTree const&) = delete;

    ArchiveIndex const& index() const noexcept { return *index_; }
    StorageIRI const& location() const noexcept { return location_; }
    std::shared_ptr<PendingSpace> const& space() const noexcept { return space_; }

    Handle rootHandle() const noexcept { return root_.get(); }
    Handle child(Handle folder, std::string_view name) const;
    Handle parentOf(Handle node) const noexcept { return node->parent; }
    EntryKind kindOf(Handle node) const noexcept { return node->kind; }
    bool isFolder(Handle node) const noexcept { return node->isFolder(); }
    std::string_view nameOf(Handle node) const noexcept { return *node->name; }
    AttributeValues attributesOf(Handle node) const;
    /// The path from the root, with `/` between names.
    std::string pathOf(PendingNode const& node) const;
    /// REQUIRES: the node is in the tree.
    std::shared_ptr<PendingNode> share(Handle node) const;
    bool contains(PendingNode const& node) const noexcept {
        return node.parent != nullptr || &node == root_.get();
    }
    /// Of the archive to come, with as many large numbers as there are in the one that is.
    DirectorySize const& directorySize() const noexcept { return size_; }

    std::shared_ptr<PendingNode> makeFile() const;
    std::shared_ptr<PendingNode> makeFolder() const;
    std::shared_ptr<PendingNode> makeLink(std::string target) const;
    /// A second item like a file or a link, with its bytes, mode and time.
    std::shared_ptr<PendingNode> makeCopy(PendingNode const& source) const;

    /// Whether a file could be added in a free place; throws as add() does.
    void checkNew(Place const& place, StorageIRI const& location) const;
    /// Puts an item that is not in the tree into a free place. Throws provider::Exception naming
    /// `location`: InvalidLocation where no archive can hold such a path, NoSpaceLeft beyond
    /// what a reader with the same options takes, PermissionDenied in a read-only folder.
    PendingNode& add(Place const& place, std::shared_ptr<PendingNode> node,
                     StorageIRI const& location);
    /// The same over a file or link that the policy allows to be replaced; `place` may be free.
    void publish(Place const& place, std::shared_ptr<PendingNode> node, ReplacementPolicy policy,
                 StorageIRI const& location);
    void remove(PendingNode& node, StorageIRI const& location);
    /// Moves an item to a place, which is free or has what it replaces.
    void move(PendingNode& node, Place const& to, StorageIRI const& source,
              StorageIRI const& destination);

    /// Both throw NoSpaceLeft for a folder that gets a member of its own, where that is one too
    /// many; the first UnsupportedOperation for content that was encrypted with its time.
    void setLastModified(PendingNode& node, std::int64_t time, StorageIRI const& location);
    void setMode(PendingNode& node, std::uint16_t mode, StorageIRI const& location);
    /// That a file has content of its own from now on. REQUIRES: it has none.
    void setContent(PendingNode& node, std::shared_ptr<PendingContent> content);

    std::mutex mutex;

  private:
    void build();
    void touch(PendingNode& folder);
    void beMember(PendingNode& node);
    void changed();
    void checkRoom(DirectorySize const& after, StorageIRI const& location) const;
    DirectorySize sizeOf(PendingNode const& node, std::size_t nameSize) const;
    DirectorySize sizeOfAll(PendingNode const& node) const;
    DirectorySize touched(DirectorySize size, PendingNode const& folder) const noexcept;
    void checkPath(PendingNode const& folder, std::string_view name, PendingNode const& node,
                   StorageIRI const& location) const;
    void detach(PendingNode& node);

    std::shared_ptr<ArchiveIndex const> const index_;
    StorageIRI const location_;
    ZipOptions const options_;
    std::shared_ptr<PendingSpace> const space_;
    std::shared_ptr<PendingNode> const root_;
    std::uint64_t nextOrder_;
    DirectorySize size_;
};

/// Whether a folder is `ancestor` or below it.
bool isInside(PendingNode const* folder, PendingNode const& ancestor) noexcept;

/// Refuses a destination that is neither free for a file nor to be replaced by one under the
/// policy: ResourceAlreadyExists, PermissionDenied for a read-only file, InvalidLocation for a
/// folder, and what stands in the way of a place. Throws provider::Exception naming `location`.
void checkReplaceable(PendingTree::Place const& place, ReplacementPolicy policy,
                      StorageIRI const& location);

/// Refuses a folder that takes no entries and gives none away. Throws PermissionDenied.
void checkWritable(PendingNode const& folder, StorageIRI const& location);

/// What an archive can tell of a time: seconds from 1901 to 2106. The nearest one.
std::int64_t storableTime(std::int64_t seconds) noexcept;

} // namespace foundation::storage::provider::zip::detail
