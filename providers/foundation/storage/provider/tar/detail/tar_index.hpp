#pragma once

#include <foundation/storage/provider/attributes.hpp>
#include <foundation/storage/provider/container/entry_kind.hpp>
#include <foundation/storage/provider/tar/detail/blocks.hpp>
#include <foundation/storage/provider/tar/tar_options.hpp>
#include <foundation/storage/provider/timestamp.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace foundation::storage::provider::tar::detail {

/// How the content of a member is reached.
enum class Access : std::uint8_t {
    Direct,    ///< in one piece at `place`, in the archive as it is before compression
    AtHeader,  ///< by the format's reader, from the header at `place` on
    ByNumber,  ///< by the format's reader, as the member with the number `place`
    Missing,   ///< a hard link that leads to nothing, or the target of a link that is too long
    Encrypted, ///< not at all
    TooLarge,  ///< not at all: with holes that are more than is allowed
};

/// What a header says of a member, apart from its name. Without gaps, since there may be a million.
struct Member {
    std::uint64_t size = 0;
    std::uint64_t place = 0;
    std::int64_t seconds = 0; ///< of the time of the last change
    std::int32_t nanoseconds = 0;
    std::uint16_t mode = 0; ///< permission bits as chmod(2) takes them
    container::EntryKind kind = container::EntryKind::File;
    Access access = Access::Direct;
};
static_assert(sizeof(Member) == 32);

/// The folders and files of an archive. Immutable once it is filled, and then safe on any thread.
///
/// An entry is a number, the root 0. The children of a folder stand in the archive's order. What an
/// entry is stands apart, since hard links have it in common.
class TarIndex {
  public:
    using Number = std::uint32_t;
    using Handle = Number; ///< what walk() goes by
    static constexpr Number root = 0;
    static constexpr Number none = 0xFFFFFFFF;

    /// What a member and its folders came to; TooMany where they go beyond a bound.
    enum class Added { Yes, LeftOut, TooMany };

    explicit TarIndex(TarOptions const& options);
    /// Enters a member and the folders above it; `target` is that of a link. A second member of a
    /// path replaces the first, and a member is left out that no folder tree can hold: below a
    /// file, in the place of a folder, with an empty name in its path, or `..`. A folder with the
    /// empty path is the root.
    Added add(std::string_view path, Member const& member, std::string_view target);
    /// The same with what another path has: a hard link. One to a folder is left out. Where it
    /// comes with content, that is the content of all links to it.
    Added addHardLink(std::string_view path, std::string_view to, Member const& member);
    /// That the content of the member that was added last is not where it was told to be.
    void changeLast(Access access, std::uint64_t place) noexcept;
    /// That a member came to nothing.
    void countLeftOut() noexcept { ++leftOut_; }
    std::uint32_t leftOut() const noexcept { return leftOut_; }
    /// How many files and links a later one of the same path took the place of.
    std::uint32_t replaced() const noexcept { return replaced_; }
    /// Behind the last add(): children get the archive's order.
    void finish();

    Number child(Number folder, std::string_view name) const noexcept;
    Number rootHandle() const noexcept { return root; }
    Number parentOf(Number entry) const noexcept { return entries_[entry].parent; }
    Number firstChildOf(Number folder) const noexcept {
        return static_cast<Number>(memberOf(folder).place);
    }
    Number nextOf(Number entry) const noexcept { return entries_[entry].next; }
    container::EntryKind kindOf(Number entry) const noexcept { return memberOf(entry).kind; }
    bool isFolder(Number entry) const noexcept {
        return kindOf(entry) == container::EntryKind::Folder;
    }
    std::string_view nameOf(Number entry) const noexcept { return names_[entries_[entry].name]; }
    std::string_view targetOf(Number link) const noexcept {
        return names_[static_cast<std::uint32_t>(memberOf(link).place)];
    }
    Member const& memberOf(Number entry) const noexcept { return members_[entries_[entry].member]; }
    AttributeValues attributesOf(Number entry) const;

  private:
    struct Entry {
        std::uint32_t name = 0;
        Number parent = none;
        Number next = none;
        std::uint32_t member = 0;
    };
    static_assert(sizeof(Entry) == 16);

    /// Where a member is to stand, or stands.
    struct Spot {
        Number folder = none;
        std::string_view name = {};
        Number entry = none; ///< that is there already
    };

    Number folderFor(std::string_view path, Added& result);
    Spot spotFor(std::string_view path, bool isFolder, Added& result);
    Number find(std::string_view path) const;
    Added putAt(Spot const& spot, std::uint32_t member);
    Added enter(Spot const& spot, std::uint32_t member);
    std::uint32_t append(Member const& member);
    std::uint64_t memory() const noexcept;
    bool hasRoomFor(std::uint64_t bytes) const noexcept;
    bool growTable();
    void enterInTable(Number entry, std::string_view name);
    std::size_t slotOf(std::uint64_t hash) const noexcept;
    std::size_t behind(std::size_t slot) const noexcept {
        return slot + 1 == table_.size() ? 0 : slot + 1;
    }

    TarOptions const options_;
    Blocks<Entry> entries_;
    Blocks<Member> members_; ///< `place` is the first child of a folder, the target of a link
    Texts names_;            ///< and targets
    /// By hash of folder and name, open addressing: a number in as many bits as it may need, and
    /// bits of the hash above them, so that few that are not meant are looked at.
    std::vector<std::uint32_t> table_;
    std::uint32_t const hashBits_;
    std::string lastFolder_; ///< of the member that was added last; the next is often beside it
    Number lastFolderNumber_ = root;
    std::uint32_t lastMember_ = none;
    std::uint32_t leftOut_ = 0;
    std::uint32_t replaced_ = 0;
};

} // namespace foundation::storage::provider::tar::detail
