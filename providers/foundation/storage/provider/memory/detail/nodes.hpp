#pragma once

#include <foundation/storage/provider/attributes.hpp>
#include <foundation/storage/provider/memory/detail/block.hpp>
#include <foundation/storage/provider/memory/detail/fair_shared_mutex.hpp>

#include <fl/i18n/ustring.hpp>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string_view>
#include <utility>

namespace foundation::storage::provider::memory::detail {

using fl::i18n::ustring;

/// The time now, to the nanosecond.
Timestamp now() noexcept;

/// Permission bits: the owner's write bit decides whether an item is writable.
constexpr std::uint32_t ownerMayWrite = 0200;
constexpr std::uint32_t anybodyMayWrite = 0222;
constexpr std::uint32_t newFileMode = 0644;
constexpr std::uint32_t newFolderMode = 0755;

/// Thrown where the store's space does not suffice for one more entry.
struct OutOfSpace {};

class FolderNode;

/// One item of a store. Takes an entry of the space while it lives; construction throws OutOfSpace.
class Node {
  public:
    enum class Kind : std::uint8_t { File, Folder, Link };

    Node(Node const&) = delete;
    Node& operator=(Node const&) = delete;

    Kind kind() const noexcept { return kind_; }
    bool isFolder() const noexcept { return kind_ == Kind::Folder; }

    /// Null for the root, and for an item that is not in the tree, or no longer. REQUIRES: the lock
    /// of the tree is held; so does the name.
    FolderNode* parent() const noexcept { return parent_; }
    /// REQUIRES: there is a parent.
    ustring const& name() const noexcept { return *name_; }

  protected:
    Node(Kind kind, std::shared_ptr<Space> space);
    ~Node() { space_->entries.giveBack(1); }
    std::shared_ptr<Space> const& space() const noexcept { return space_; }

  private:
    friend FolderNode; // knows where its children are

    Kind const kind_;
    std::shared_ptr<Space> const space_;
    // guarded by the lock of the tree:
    FolderNode* parent_ = nullptr;
    ustring const* name_ = nullptr; // the key in the parent
};

enum class Truncation : std::uint8_t { Refused, WasEmpty, Done };

/// A file. Safe on any number of threads: content and attributes have a lock of their own, so that
/// streams need the lock of the tree only to open. Taken after the lock of the tree, never before.
class FileNode final : public Node {
  public:
    FileNode(std::shared_ptr<Space> space, std::uint32_t mode);
    /// A second file with the content, mode and time of `source`, sharing its blocks.
    FileNode(std::shared_ptr<Space> space, FileNode const& source);

    /// The bytes read; 0 at and behind the end.
    std::size_t read(std::uint64_t position, char* buffer, std::size_t count) const;
    /// False where the space does not suffice; what came before stays written.
    /// REQUIRES: position + count does not overflow.
    bool write(std::uint64_t position, char const* data, std::size_t count);
    /// Writes at the end, and gives the new end in `end`; false as above.
    bool append(char const* data, std::size_t count, std::uint64_t& end);
    /// Drops the content unless the file is read-only.
    Truncation truncateIfWritable();

    std::uint64_t size() const;
    bool isWritable() const;
    AttributeValues attributes() const;
    void setLastModified(Timestamp time);
    void setWritable(bool writable);
    void takeModeOf(FileNode const& other);

  private:
    using Blocks = std::map<std::uint64_t, BlockPtr>; // by index; what is missing is a hole

    std::size_t capacityFor(Blocks::iterator block, std::size_t end) const;
    bool writeLocked(std::uint64_t position, char const* data, std::size_t count);
    bool writeBlock(Blocks::iterator block, std::size_t offset, char const* data,
                    std::size_t count);

    mutable FairSharedMutex mutex_;
    // guarded by mutex_:
    Blocks blocks_;
    std::uint64_t size_ = 0;
    Timestamp lastModified_;
    Timestamp created_;
    std::uint32_t mode_;
};

/// A symbolic link. Its time is guarded by the lock of the tree; the rest never changes.
class LinkNode final : public Node {
  public:
    LinkNode(std::shared_ptr<Space> space, ustring target);
    /// A second link with the target and the time of `source`.
    LinkNode(std::shared_ptr<Space> space, LinkNode const& source);

    ustring const& target() const noexcept { return target_; }
    AttributeValues attributes() const;
    void setLastModified(Timestamp time) noexcept { lastModified_ = time; }

  private:
    ustring const target_;
    Timestamp const created_;
    Timestamp lastModified_;
};

/// A folder. Everything in it is guarded by the lock of the tree.
class FolderNode final : public Node, public std::enable_shared_from_this<FolderNode> {
  public:
    /// Ordered by name, so that a listing can go on behind any name.
    using Children = std::map<ustring, std::shared_ptr<Node>, std::less<>>;

    FolderNode(std::shared_ptr<Space> space, std::uint32_t mode);
    /// Takes a tree apart without recursion, however deep it is.
    ~FolderNode();

    Node* find(std::u16string_view name) const;
    /// The new entry. REQUIRES: there is nothing under the name.
    Node& add(ustring name, std::shared_ptr<Node> node);
    /// REQUIRES: there is something under the name; so do the next three. What they take out of the
    /// tree is no folder with content.
    std::shared_ptr<Node> share(std::u16string_view name) const;
    std::shared_ptr<Node> remove(std::u16string_view name);
    /// Puts a file in the place of what was there, which is handed out.
    std::shared_ptr<Node> replace(std::u16string_view name, std::shared_ptr<Node> node);
    /// Moves an entry to a folder, this one or another, and hands out what had the name there.
    /// Moves or throws, and throws before it changes anything.
    std::shared_ptr<Node> moveTo(FolderNode& folder, std::u16string_view oldName, ustring newName);
    Children const& children() const noexcept { return children_; }

    AttributeValues attributes() const;
    bool isWritable() const noexcept { return (mode_ & ownerMayWrite) != 0; }
    void setLastModified(Timestamp time) noexcept { lastModified_ = time; }
    void setWritable(bool writable) noexcept;
    /// Permission bits and the sticky bit.
    void setMode(std::uint32_t mode) noexcept { mode_ = mode & 01777u; }

  private:
    void attach(Children::value_type const& child) noexcept;
    static void detach(Node& node) noexcept;

    Children children_;
    Timestamp lastModified_;
    Timestamp created_;
    std::uint32_t mode_;
};

} // namespace foundation::storage::provider::memory::detail
