#pragma once

#include <foundation/storage/provider/tar/detail/archive_source.hpp>

#include <cstdint>
#include <exception>
#include <memory>
#include <span>
#include <string_view>

struct archive;
struct archive_entry;

namespace foundation::storage::provider::tar::detail {

/// What becomes of names that the format has in a charset of its own. As the archive has them, byte
/// by byte, where it spells them in bytes; in UTF-8 where it spells them in UTF-16.
enum class Charset { Bytes, Utf8 };

/// One pass of libarchive over the members of an archive, from a header on. For one thread at a
/// time, whatever its locale. Failures are those of the bytes, and container::DecodingFailure.
class ArchiveReader {
  public:
    ArchiveReader(ArchiveSource::Lent bytes, std::uint64_t begin, Charset charset);
    ArchiveReader(ArchiveReader const&) = delete;
    ArchiveReader& operator=(ArchiveReader const&) = delete;
    ~ArchiveReader() = default;

    /// Ends it, for another one over the same bytes.
    ArchiveSource::Lent takeBytes() noexcept;
    /// As of the bytes, where they were not taken.
    void rest() noexcept;
    /// Goes to the next header; false at the end.
    bool next();
    /// Whether next() has not come to the end or a failure, nor read() to the latter.
    bool isGood() const noexcept { return isGood_; }
    /// How many headers there were before this one.
    std::uint64_t number() const noexcept { return headers_ - 1; }
    archive_entry& entry() const noexcept { return *entry_; }
    /// Where the header begins, or behind the last one what follows all of them.
    std::uint64_t headerPosition() const;
    /// Where what follows the header begins. REQUIRES: nothing was read of it.
    std::uint64_t dataPosition() const;
    /// ARCHIVE_FORMAT_TAR, for example.
    int format() const;
    char const* formatName() const;

    /// Whether read() can still give what lies at `position` of the member.
    bool isBefore(std::uint64_t position) const noexcept { return position >= blockBegin_; }
    /// Reads all of it. REQUIRES: isBefore(position), and that it lies within the member.
    void read(std::uint64_t position, std::span<unsigned char> buffer);

  private:
    struct Free {
        void operator()(archive* reader) const noexcept;
    };
    struct Callbacks;

    void openArchive();
    [[noreturn]] void fail(char const* otherwise);
    void nextBlock();

    ArchiveSource::Lent bytes_;
    std::uint64_t const begin_;
    Charset const charset_;
    std::uint64_t position_;     ///< of what libarchive reads next
    std::exception_ptr failure_; ///< of a callback
    std::unique_ptr<archive, Free> archive_;
    archive_entry* entry_ = nullptr;
    std::uint64_t headers_ = 0;
    std::span<unsigned char const> block_; ///< of the content
    std::uint64_t blockBegin_ = 0;
    bool isEnd_ = false; ///< of the content
    bool isGood_ = true;
};

} // namespace foundation::storage::provider::tar::detail
