#include <foundation/storage/provider/tar/detail/headers.hpp>

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/container/member_path.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/tar/detail/ratio.hpp>

#include <archive.h>
#include <archive_entry.h>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

namespace foundation::storage::provider::tar::detail {

using container::EntryKind;

namespace {

/// As long as a path may be for the kernel.
constexpr std::size_t longestTarget = 4096;
/// What follows content may be rounded up to a block of tar.
constexpr std::uint64_t largestPadding = 512;

EntryKind kindOf(archive_entry& entry) {
    switch (::archive_entry_filetype(&entry)) {
    case AE_IFDIR:
        return EntryKind::Folder;
    case AE_IFLNK:
        return EntryKind::Link;
    case AE_IFREG:
    case 0: // a hard link of some formats
        return EntryKind::File;
    default:
        return EntryKind::Other;
    }
}

class HeaderReader {
  public:
    HeaderReader(ArchiveSource& source, TarOptions const& options)
        : source_(source),
          options_(options),
          index_(std::make_shared<TarIndex>(options)) {}

    Headers read() {
        start(Charset::Bytes);
        bool isMore = reader_->next();
        int const format = reader_->format();
        if (format == ARCHIVE_FORMAT_7ZIP || format == ARCHIVE_FORMAT_ISO9660) {
            start(Charset::Utf8);
            isMore = reader_->next();
        }
        isInOnePiece_ = format == ARCHIVE_FORMAT_TAR || format == ARCHIVE_FORMAT_CPIO ||
                        format == ARCHIVE_FORMAT_AR;
        for (std::uint64_t headers = 1; isMore; ++headers) {
            if (headers > options_.maximumEntries) { // also those that come to nothing
                fail(ErrorCode::FileTooLarge);
            }
            add();
            isMore = reader_->next();
            checkPlace();
        }
        index_->finish();
        std::string const name = reader_->formatName();
        readOn();
        return {index_, charset_, name};
    }

  private:
    [[noreturn]] void fail(ErrorCode code) const {
        throw Exception(code, source_.item().getLocation());
    }

    void start(Charset charset) {
        reader_.reset(); // its bytes are lent again
        reader_.emplace(source_.lend(0), 0, charset);
        charset_ = charset;
    }

    /// An archive ends before its compressed bytes do, and before the check sum behind them.
    void readOn() {
        if (source_.compression() != Compression::None) {
            constexpr std::uint64_t end = std::numeric_limits<std::uint64_t>::max();
            reader_.reset(); // its bytes are lent again
            source_.lend(end)->reach(end);
        }
    }

    void add() {
        archive_entry& entry = reader_->entry();
        last_.reset();
        char const* const name = ::archive_entry_pathname(&entry);
        if (name == nullptr) {
            index_->countLeftOut();
            return;
        }
        std::string_view const path = container::withoutDots(name, withoutDots_);
        Member member = memberOf(entry);
        switch (enter(entry, path, member)) {
        case TarIndex::Added::TooMany:
            fail(ErrorCode::FileTooLarge);
        case TarIndex::Added::LeftOut:
            index_->countLeftOut();
            break;
        case TarIndex::Added::Yes:
            if (member.access == Access::Direct && member.kind == EntryKind::File) {
                last_ = {reader_->headerPosition(), member.place, member.size,
                         ::archive_entry_sparse_count(&entry) != 0};
            }
        }
    }

    Member memberOf(archive_entry& entry) const {
        Member member;
        member.kind = kindOf(entry);
        member.mode = static_cast<std::uint16_t>(::archive_entry_perm(&entry) & 07777U);
        Timestamp const time = timeOf(entry);
        member.seconds = time.seconds;
        member.nanoseconds = time.nanoseconds;
        if (member.kind == EntryKind::File && ::archive_entry_size(&entry) > 0) {
            member.size = static_cast<std::uint64_t>(::archive_entry_size(&entry));
        }
        member.access = isInOnePiece_ ? Access::Direct : Access::ByNumber;
        member.place = isInOnePiece_ ? reader_->dataPosition() : reader_->number();
        if (::archive_entry_is_encrypted(&entry) != 0) {
            member.access = Access::Encrypted;
        }
        return member;
    }

    /// libarchive takes the sign of pax's decimal seconds for that of the whole seconds alone.
    /// Where those are 0, it is lost.
    Timestamp timeOf(archive_entry& entry) const {
        constexpr std::int32_t second = 1'000'000'000;
        Timestamp const time{::archive_entry_mtime(&entry),
                             static_cast<std::int32_t>(::archive_entry_mtime_nsec(&entry))};
        bool const isTaken = reader_->format() == ARCHIVE_FORMAT_TAR && time.seconds < 0 &&
                             time.nanoseconds > 0 && time.nanoseconds < second &&
                             time.seconds > std::numeric_limits<std::int64_t>::min();
        return isTaken ? Timestamp{time.seconds - 1, second - time.nanoseconds} : time;
    }

    TarIndex::Added enter(archive_entry& entry, std::string_view path, Member& member) {
        if (char const* const to = ::archive_entry_hardlink(&entry)) {
            std::string buffer;
            return index_->addHardLink(path, container::withoutDots(to, buffer), member);
        }
        if (member.kind != EntryKind::Link) {
            return index_->add(path, member, {});
        }
        char const* const target = ::archive_entry_symlink(&entry);
        std::string_view text = target != nullptr ? target : "";
        member.size = text.size();
        if (text.size() > longestTarget) {
            member.access = Access::Missing;
            text = {};
        }
        return index_->add(path, member, text);
    }

    /// Behind content in one piece comes the next header. Else it has holes, or is stored
    /// otherwise.
    void checkPlace() {
        if (!last_) {
            return;
        }
        std::uint64_t const next = reader_->headerPosition();
        bool const isThere = last_->place <= next && last_->size <= next - last_->place &&
                             next - last_->place - last_->size < largestPadding;
        if (last_->hasHoles || (!isThere && last_->size != 0)) {
            index_->changeLast(mayHave(last_->size) ? Access::AtHeader : Access::TooLarge,
                               last_->header);
        }
    }

    /// Of all that says to have holes together: each may take no more than a header.
    bool mayHave(std::uint64_t size) {
        std::uint64_t together = 0;
        if (__builtin_add_overflow(withHoles_, size, &together) ||
            isMoreThanRatio(together, source_.size(), options_)) {
            return false;
        }
        withHoles_ = together;
        return true;
    }

    struct Last {
        std::uint64_t header;
        std::uint64_t place;
        std::uint64_t size;
        bool hasHoles;
    };

    ArchiveSource& source_;
    TarOptions const options_;
    std::shared_ptr<TarIndex> index_;
    std::optional<ArchiveReader> reader_;
    Charset charset_ = Charset::Bytes;
    bool isInOnePiece_ = false;
    std::optional<Last> last_;    ///< where the content of the last member is expected to be
    std::uint64_t withHoles_ = 0; ///< the sizes of all that have them
    std::string withoutDots_;
};

} // namespace

Headers readHeaders(ArchiveSource& source, TarOptions const& options) {
    StorageIRI const& location = source.item().getLocation();
    try {
        return HeaderReader(source, options).read();
    } catch (ByteStreamFailure const& failure) {
        throw Exception(failure.getErrorCode(), location);
    } catch (container::DecodingFailure const& failure) {
        throw Exception(failure.getErrorCode(), location);
    }
}

} // namespace foundation::storage::provider::tar::detail
