#pragma once

#include <foundation/storage/provider/attributes.hpp>
#include <foundation/storage/provider/container/entry_kind.hpp>
#include <foundation/storage/provider/zip/detail/member.hpp>
#include <foundation/storage/provider/zip/zip_options.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace foundation::storage::provider::zip::detail {

using container::EntryKind;

/// When a member was last modified: seconds from 1970, or a DOS date and time of the place where
/// the archive is read, as most tools take it.
struct MemberTime {
    std::uint32_t value = 0;
    bool isDos = false;
    bool isLate = false; ///< of seconds: behind 2038, and not before 1970
};

/// What a central header says of a member, apart from its name.
struct MemberFacts {
    Member member;
    EntryKind kind = EntryKind::File;
    std::uint16_t mode = 0; ///< permission bits as chmod(2) takes them
    MemberTime time;
    bool isLonger = false; ///< the path than the name that the archive has
};

/// How much a directory is, as it is held against the bounds of whoever reads it.
struct DirectorySize {
    std::uint64_t entries = 0; ///< members, and folders that only the names of others imply
    std::uint64_t headers = 0; ///< of all members, that of the root included
    std::uint64_t nameBytes = 0;
    std::uint64_t large = 0; ///< entries with a number of more than 32 bits

    DirectorySize& operator+=(DirectorySize const& more) noexcept;
    DirectorySize& operator-=(DirectorySize const& less) noexcept;
    /// Whether an archive like this is read.
    bool fits(ZipOptions const& options) const noexcept;
    /// Whether nothing of it is more than in another.
    bool isWithin(DirectorySize const& other) const noexcept;
};

/// The folders and files of an archive. Immutable once it is filled, and then safe on any thread.
///
/// An entry is a number, the root 0. The children of a folder stand in the archive's order. An
/// entry takes 48 bytes, its name, and 6 to 12 bytes of a hash table.
class ArchiveIndex {
  public:
    using Number = std::uint32_t;
    using Handle = Number; ///< what walk() goes by
    static constexpr Number root = 0;
    static constexpr Number none = 0xFFFFFFFF;

    /// What a member and its folders came to; TooMany where they go beyond a bound.
    enum class Added { Yes, LeftOut, TooMany };

    explicit ArchiveIndex(ZipOptions const& options);
    /// Room for as many members as a directory of this size may have, of which it tells so many.
    void reserve(std::uint64_t directorySize, std::uint64_t told);
    /// Enters a member and the folders above it. A second member of a path replaces the first, and
    /// a member is left out that no folder tree can hold: below a file, in the place of a folder,
    /// with an empty name in its path, or `.`, `..`, or one with a NUL in it. A folder with the
    /// empty path is the root.
    Added add(std::string_view path, MemberFacts const& facts);
    /// That a member came to nothing.
    void countLeftOut() noexcept { ++leftOut_; }
    std::uint32_t leftOut() const noexcept { return leftOut_; }
    /// Behind the last add(): children get the archive's order. False where the bytes of two
    /// members overlap, which is nothing but a way to make a little archive large.
    bool finish();

    Number child(Number folder, std::string_view name) const noexcept;
    Number rootHandle() const noexcept { return root; }
    Number parentOf(Number entry) const noexcept { return entries_[entry].parent; }
    Number firstChildOf(Number folder) const noexcept { return entries_[folder].firstChildOrCrc; }
    Number nextOf(Number entry) const noexcept { return entries_[entry].next; }
    EntryKind kindOf(Number entry) const noexcept { return entries_[entry].kind; }
    bool isFolder(Number entry) const noexcept { return kindOf(entry) == EntryKind::Folder; }
    std::string_view nameOf(Number entry) const noexcept {
        return std::string_view(names_).substr(entries_[entry].name, entries_[entry].nameSize);
    }
    /// A folder of which only the names of other members tell.
    bool isImplied(Number entry) const noexcept { return entries_[entry].isImplied; }
    Member memberOf(Number file) const noexcept;
    AttributeValues attributesOf(Number entry) const;
    std::uint16_t modeOf(Number entry) const noexcept { return entries_[entry].mode; }
    std::size_t size() const noexcept { return entries_.size(); }
    /// What one entry adds to the size of the directory.
    DirectorySize sizeOf(Number entry) const noexcept;

  private:
    friend struct DirectorySize;

    /// A field of 32 bits is an index into large_ where the member needs more.
    struct Entry {
        std::uint32_t headerOffset = 0;
        std::uint32_t compressedSize = 0;
        std::uint32_t size = 0;
        std::uint32_t nameHash = 0;
        std::uint32_t time = 0;
        std::uint32_t name = 0;
        Number parent = none;
        Number next = none;
        std::uint32_t firstChildOrCrc = none; ///< of a folder, or of anything else
        std::uint16_t nameSize = 0;
        std::uint16_t method = 0;
        std::uint16_t mode = 0;
        EntryKind kind = EntryKind::Folder;
        bool isDosTime : 1 = false;
        bool isLateTime : 1 = false;
        bool isLarge : 1 = false;
        bool isEncrypted : 1 = false;
        bool hasDescriptor : 1 = false;
        bool isImplied : 1 = false;
        bool isLonger : 1 = false;
    };
    struct Large {
        std::uint64_t headerOffset;
        std::uint64_t compressedSize;
        std::uint64_t size;
    };

    Number folderFor(std::string_view path, Added& result);
    Number enter(Number folder, std::string_view name);
    static std::size_t slotsFor(std::uint64_t entries) noexcept;
    static std::uint64_t memoryOf(DirectorySize const& size, std::size_t slots) noexcept;
    std::uint64_t endOf(Number number) const noexcept;
    bool hasOverlap();
    void describe(Entry& entry, MemberFacts const& facts);
    void makeTable(std::size_t slots);

    ZipOptions const options_;
    std::vector<Entry> entries_;
    std::vector<Large> large_;
    std::string names_;
    std::vector<Number> table_; ///< by hash of folder and name, open addressing
    std::string lastFolder_;    ///< of the member that was added last; the next is often beside it
    Number lastFolderNumber_ = root;
    std::uint32_t leftOut_ = 0;
};

} // namespace foundation::storage::provider::zip::detail
