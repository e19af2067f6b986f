#pragma once

#include <foundation/storage/provider/folder_entry.hpp>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <sys/types.h>
#include <utility>

namespace foundation::storage::provider::local::detail {

/// What a listing was asked for.
struct ListingQuery {
    enum class Kinds { All, Files, Folders };
    enum class Details { Names, Attributes };
    enum class Depth { Folder, Tree };

    Kinds kinds = Kinds::All;
    Details details = Details::Names;
    /// A link to a folder is a folder, with the attributes of what it leads to.
    bool followLinks = false;
    fl::i18n::ustring pattern; ///< empty for all
    /// In a tree, folders that do not match are kept, unshown, because they are entered.
    Depth depth = Depth::Folder;
};

/// A run of entries of one folder, as one or a few getdents64(2) gave them, filtered, and with
/// attributes where these were asked for. Immutable and reference-counted, so that any number of
/// cursors may stand in it, on any threads. Entries are addressed by their offset; the first one
/// has offset 0, and offsets below size() are got by going from entry to entry.
class FolderChunk {
  public:
    struct Entry {
        std::string_view name; ///< with a NUL behind it
        bool isFolder;
        bool isLink;                       ///< also where it counts as a folder
        AttributeValues const* attributes; ///< null where there are none

        /// `shownAs` is the name that the listing delivers.
        FolderEntry toFolderEntry(fl::i18n::ustring&& shownAs) const;
    };

    FolderChunk(FolderChunk const&) = delete;
    FolderChunk& operator=(FolderChunk const&) = delete;

    std::uint32_t size() const noexcept { return size_; }
    Entry at(std::uint32_t offset) const noexcept;
    std::uint32_t next(std::uint32_t offset) const noexcept {
        return offset + static_cast<std::uint32_t>(Packed::sizeFor(packedAt(offset).nameSize));
    }
    bool isFolder(std::uint32_t offset) const noexcept {
        return (packedAt(offset).flags & Packed::folder) != 0;
    }
    /// Else it is here to be entered only.
    bool isShown(std::uint32_t offset) const noexcept {
        return (packedAt(offset).flags & Packed::hidden) == 0;
    }

    /// Whether an entry at `offset` or behind it is shown, or a folder.
    bool showsFrom(std::uint32_t offset) const noexcept { return offset < behindShown_; }
    bool hasFolderFrom(std::uint32_t offset) const noexcept { return offset < behindFolders_; }

    /// Whether the folder ends with this chunk.
    bool isLast() const noexcept { return last_; }
    /// Where the next chunk begins, for lseek(2).
    off_t resumeAt() const noexcept { return resumeAt_; }

  private:
    friend class FolderChunkReader;
    friend void intrusive_ptr_add_ref(FolderChunk const* chunk) noexcept;
    friend void intrusive_ptr_release(FolderChunk const* chunk) noexcept;

    /// How an entry stands in the chunk: this, the name, a NUL, and one more byte where the size
    /// would be odd.
    struct Packed {
        static constexpr unsigned folder = 1;
        static constexpr unsigned link = 2;
        static constexpr unsigned hidden = 4;
        static constexpr unsigned unsure = 8; ///< what it is has to be asked; in a chunk no more

        std::uint16_t nameSize;
        std::uint16_t flags;
        std::uint16_t attributes; ///< the number of those up to its own; 0 where it has none

        static constexpr std::size_t sizeFor(std::size_t nameSize) noexcept {
            return (sizeof(Packed) + nameSize + 1 + 1) & ~std::size_t{1};
        }
        static Packed from(char const* place) noexcept {
            Packed entry;
            std::memcpy(&entry, place, sizeof entry);
            return entry;
        }
        std::string_view nameAt(char const* place) const noexcept {
            return {place + sizeof(Packed), nameSize};
        }
    };
    Packed packedAt(std::uint32_t offset) const noexcept {
        return Packed::from(entrySpace() + offset);
    }

    /// Behind the object stand the attributes, and behind these the entries.
    explicit FolderChunk(std::uint32_t attributesSpace) noexcept;
    ~FolderChunk() = default;

    char* space() const noexcept {
        return reinterpret_cast<char*>(const_cast<FolderChunk*>(this) + 1);
    }
    AttributeValues* attributeSpace() const noexcept {
        return reinterpret_cast<AttributeValues*>(space());
    }
    char* entrySpace() const noexcept { return space() + attributesSpace_; }

    mutable std::atomic<std::uint32_t> references_ = 0;
    std::uint32_t const attributesSpace_; ///< in bytes
    std::uint32_t size_ = 0;
    std::uint32_t behindShown_ = 0;
    std::uint32_t behindFolders_ = 0;
    bool last_ = false;
    off_t resumeAt_ = 0;
};

inline FolderChunk::Entry FolderChunk::at(std::uint32_t offset) const noexcept {
    char const* const place = entrySpace() + offset;
    Packed const entry = Packed::from(place);
    return {entry.nameAt(place), (entry.flags & Packed::folder) != 0,
            (entry.flags & Packed::link) != 0,
            entry.attributes == 0 ? nullptr : attributeSpace() + (entry.attributes - 1)};
}

inline FolderEntry FolderChunk::Entry::toFolderEntry(fl::i18n::ustring&& shownAs) const {
    if (attributes == nullptr) {
        return FolderEntry(std::move(shownAs), !isFolder);
    }
    return isFolder ? FolderEntry(std::move(shownAs), FolderAttributes(*attributes))
                    : FolderEntry(std::move(shownAs), FileAttributes(*attributes));
}

using FolderChunkPtr = boost::intrusive_ptr<FolderChunk const>;

/// The next chunk of an open folder; empty only where it is the last one. The error number, or 0.
/// Throws std::bad_alloc, and then the descriptor has lost its position.
int readFolderChunk(int folder, ListingQuery const& query, FolderChunkPtr& result);

} // namespace foundation::storage::provider::local::detail
