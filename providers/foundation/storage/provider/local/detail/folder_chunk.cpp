#include <foundation/storage/provider/local/detail/folder_chunk.hpp>

#include <foundation/storage/provider/local/detail/file_descriptor.hpp>
#include <foundation/storage/provider/local/detail/local_attributes.hpp>
#include <foundation/storage/provider/wildcard.hpp>

#include <fl/i18n/conversion.hpp>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <new>
#include <type_traits>

namespace foundation::storage::provider::local::detail {

namespace {

/// Larger ones gain nothing. With attributes the calls do not count, and less is read ahead.
constexpr std::size_t namesBuffer = 32 * 1024;
constexpr std::size_t attributesBuffer = 8 * 1024;
/// The longest names are those of file systems in user space, with 1024 bytes; behind a name stand
/// a NUL and what fills the record up to the alignment of the next.
constexpr std::size_t largestRecord =
    (offsetof(dirent64, d_name) + 1024 + 1 + alignof(dirent64) - 1) / alignof(dirent64) *
    alignof(dirent64);
static_assert(largestRecord == 1048);

static_assert(std::is_trivially_copyable_v<AttributeValues>);

bool isEntryName(std::string_view name) noexcept {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos;
}

} // namespace

class FolderChunkReader {
  public:
    FolderChunkReader(int folder, ListingQuery const& query) noexcept
        : folder_(folder),
          query_(query),
          withAttributes_(query.details == ListingQuery::Details::Attributes) {}

    int read(FolderChunkPtr& result) {
        do {
            if (int const error = fill()) {
                return error;
            }
            pack();
            if (bytes_ != 0 || last_) {
                result = makeChunk();
            }
        } while (!last_ && (bytes_ == 0 || result->size() == 0));
        return 0;
    }

  private:
    using Packed = FolderChunk::Packed;
    // A record of the kernel can be packed in its own place.
    static_assert(Packed::sizeFor(0) <= offsetof(dirent64, d_name));

    /// Asks as long as another record of any size fits, so that a small folder is read to its end.
    int fill() noexcept {
        filled_ = 0;
        while (capacity_ - filled_ >= largestRecord) {
            ssize_t const got = uninterrupted(
                [&] { return ::getdents64(folder_, buffer_ + filled_, capacity_ - filled_); });
            if (got < 0) {
                // What was got is delivered; whoever asks again meets the failure again.
                return filled_ == 0 ? errno : 0;
            }
            if (got == 0) {
                last_ = true;
                return 0;
            }
            filled_ += static_cast<std::size_t>(got);
        }
        return 0;
    }

    /// Turns the kernel's records into entries, those that are not wanted left out.
    void pack() {
        char* out = startAt(buffer_);
        unsure_ = 0;
        count_ = 0;
        for (char* in = buffer_, * const end = buffer_ + filled_; in < end;) {
            auto const* const record = reinterpret_cast<dirent64 const*>(in);
            char const* const begin = in + offsetof(dirent64, d_name); // may be longer than d_name
            in += record->d_reclen;
            resumeAt_ = record->d_off;
            std::string_view const name(begin,
                                        ::strnlen(begin, static_cast<std::size_t>(in - begin)));
            std::uint16_t const flags = isEntryName(name) ? flagsOf(record->d_type, name) : dropped;
            if (flags == dropped) {
                continue;
            }
            unsure_ += (flags & Packed::unsure) != 0;
            ++count_;
            out = place(out, name, {static_cast<std::uint16_t>(name.size()), flags, 0});
        }
        bytes_ = static_cast<std::size_t>(out - buffer_);
    }

    static constexpr std::uint16_t dropped = 0xFFFF;

    std::uint16_t flagsOf(unsigned char type, std::string_view name) {
        bool const unsure = type == DT_UNKNOWN || (type == DT_LNK && query_.followLinks);
        bool const folder = type == DT_DIR;
        if (!unsure && !isWanted(folder)) {
            return dropped;
        }
        unsigned flags = (folder ? Packed::folder : 0U) | (type == DT_LNK ? Packed::link : 0U) |
                         (unsure ? Packed::unsure : 0U);
        if (!matches(name)) {
            if (query_.depth == ListingQuery::Depth::Folder || !(folder || unsure)) {
                return dropped;
            }
            flags |= Packed::hidden;
        }
        return static_cast<std::uint16_t>(flags);
    }

    bool isWanted(bool folder) const noexcept {
        return query_.kinds == ListingQuery::Kinds::All ||
               (query_.kinds == ListingQuery::Kinds::Folders) == folder;
    }

    bool matches(std::string_view name) {
        if (query_.pattern.empty()) {
            return true;
        }
        converted_.clear();
        fl::i18n::appendStorageName(converted_, name);
        return matchesWildcard(query_.pattern, converted_);
    }

    char* startAt(char* first) noexcept {
        first_ = first;
        behindShown_ = 0;
        behindFolders_ = 0;
        return first;
    }

    /// `name` may overlap with the place, behind its beginning.
    char* place(char* out, std::string_view name, Packed entry) noexcept {
        std::memmove(out + sizeof entry, name.data(), name.size());
        std::memcpy(out, &entry, sizeof entry);
        out[sizeof entry + name.size()] = '\0';
        out += Packed::sizeFor(name.size());
        auto const behind = static_cast<std::uint32_t>(out - first_);
        behindShown_ = (entry.flags & Packed::hidden) == 0 ? behind : behindShown_;
        behindFolders_ = (entry.flags & Packed::folder) != 0 ? behind : behindFolders_;
        return out;
    }

    FolderChunkPtr makeChunk() {
        auto const attributes = withAttributes_ ? count_ : 0;
        auto const attributesSpace =
            static_cast<std::uint32_t>(attributes * sizeof(AttributeValues));
        void* const memory = ::operator new(sizeof(FolderChunk) + attributesSpace + bytes_);
        auto* const chunk = new (memory) FolderChunk(attributesSpace);
        FolderChunkPtr result(chunk);
        chunk->last_ = last_;
        chunk->resumeAt_ = resumeAt_;
        char* out = chunk->entrySpace();
        if (attributes == 0 && unsure_ == 0) {
            std::memcpy(out, buffer_, bytes_);
            out += bytes_;
        } else {
            startAt(out);
            AttributeValues* values = chunk->attributeSpace();
            for (char const* in = buffer_; in < buffer_ + bytes_;) {
                Packed entry = Packed::from(in);
                std::string_view const name = entry.nameAt(in);
                in += Packed::sizeFor(entry.nameSize);
                if (look(entry, name.data(), chunk->attributeSpace(), values)) {
                    out = place(out, name, entry);
                }
            }
        }
        chunk->size_ = static_cast<std::uint32_t>(out - chunk->entrySpace());
        chunk->behindShown_ = behindShown_;
        chunk->behindFolders_ = behindFolders_;
        return result;
    }

    /// Asks the kernel what `name` is. False where it is not wanted after all.
    bool look(Packed& entry, char const* name, AttributeValues* first,
              AttributeValues*& values) const noexcept {
        bool const unsure = (entry.flags & Packed::unsure) != 0;
        bool const wantsAttributes = withAttributes_ && (entry.flags & Packed::hidden) == 0;
        if (!unsure && !wantsAttributes) {
            return true;
        }
        unsigned const mask = wantsAttributes ? attributesMask : STATX_TYPE;
        bool link = (entry.flags & Packed::link) != 0;
        struct statx item;
        int error = 0;
        if (!link || !query_.followLinks) {
            error = ask(name, AT_SYMLINK_NOFOLLOW, mask, item);
            link = error == 0 ? S_ISLNK(item.stx_mode) : link;
        }
        if (link && query_.followLinks) {
            error = ask(name, 0, mask, item);
            if (error != 0 && error != EACCES) {
                // It leads nowhere, and is an item of its own.
                error = ask(name, AT_SYMLINK_NOFOLLOW, mask, item);
            }
        }
        // Of what cannot be asked, what the kernel said in passing is all that is known.
        bool const folder =
            error == 0 ? S_ISDIR(item.stx_mode) : (entry.flags & Packed::folder) != 0;
        unsigned const hidden = entry.flags & Packed::hidden;
        if (!isWanted(folder) || (hidden != 0 && !folder)) {
            return false;
        }
        entry.flags = static_cast<std::uint16_t>((folder ? Packed::folder : 0U) |
                                                 (link ? Packed::link : 0U) | hidden);
        if (error == 0 && wantsAttributes) {
            std::construct_at(values++, attributeValuesOf(item));
            entry.attributes = static_cast<std::uint16_t>(values - first);
        }
        return true;
    }

    int ask(char const* name, int flags, unsigned mask, struct statx& item) const noexcept {
        return uninterrupted([&] { return ::statx(folder_, name, flags, mask, &item); }) == 0
                   ? 0
                   : errno;
    }

    int const folder_;
    ListingQuery const& query_;
    bool const withAttributes_;
    std::size_t const capacity_ = withAttributes_ ? attributesBuffer : namesBuffer;
    std::size_t filled_ = 0; ///< by the kernel
    std::size_t bytes_ = 0;  ///< of entries
    std::size_t count_ = 0;
    std::size_t unsure_ = 0;
    char* first_ = buffer_; ///< where the entries begin, and what is known of them:
    std::uint32_t behindShown_ = 0;
    std::uint32_t behindFolders_ = 0;
    bool last_ = false;
    off_t resumeAt_ = 0;
    fl::i18n::ustring converted_;
    alignas(dirent64) char buffer_[namesBuffer];
};

FolderChunk::FolderChunk(std::uint32_t attributesSpace) noexcept
    : attributesSpace_(attributesSpace) {}

void intrusive_ptr_add_ref(FolderChunk const* chunk) noexcept {
    chunk->references_.fetch_add(1, std::memory_order_relaxed);
}

void intrusive_ptr_release(FolderChunk const* chunk) noexcept {
    if (chunk->references_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        chunk->~FolderChunk();
        ::operator delete(const_cast<FolderChunk*>(chunk));
    }
}

int readFolderChunk(int folder, ListingQuery const& query, FolderChunkPtr& result) {
    return FolderChunkReader(folder, query).read(result);
}

} // namespace foundation::storage::provider::local::detail
