#include <foundation/storage/provider/zip/detail/central_directory.hpp>

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/container/item_bytes.hpp>
#include <foundation/storage/provider/container/member_path.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/zip/detail/extra_field.hpp>
#include <foundation/storage/provider/zip/detail/little_endian.hpp>
#include <foundation/storage/provider/zip/detail/member_headers.hpp>
#include <foundation/storage/provider/zip/detail/member_name.hpp>

#include <algorithm>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace foundation::storage::provider::zip::detail {

namespace {

constexpr std::uint32_t digitalSignature = 0x05054B50;

constexpr std::size_t endSize = 22;
constexpr std::size_t end64Size = 56;
constexpr std::size_t end64LocatorSize = 20;
constexpr std::size_t longestComment = 0xFFFF;

/// The longest central header there can be fits, and much more than one.
constexpr std::size_t windowSize = std::size_t{1024} * 1024;

constexpr std::uint16_t is16 = 0xFFFF;
constexpr std::uint32_t is32 = 0xFFFFFFFF;

std::string_view textOf(unsigned char const* bytes, std::size_t size) noexcept {
    return {reinterpret_cast<char const*>(bytes), size};
}

/// Where the directory lies, in the item.
struct Extent {
    std::uint64_t begin = 0;
    std::uint64_t size = 0;
    std::uint64_t members = 0;
    std::uint64_t shift = 0; ///< what stands before the archive, for all its offsets
};

class DirectoryReader {
  public:
    DirectoryReader(container::ItemStreams& streams, ZipOptions const& options)
        : location_(streams.item().getLocation()),
          maximumHeaders_(options.maximumEntries),
          item_(streams.lend()),
          index_(std::make_shared<ArchiveIndex>(options)) {}

    /// Goes through the headers alone.
    DirectoryFacts visit(HeaderVisitor const& visitor) {
        visitor_ = &visitor;
        size_ = item_->size();
        if (size_ != 0) {
            Extent const extent = findDirectory();
            facts_.firstMember = extent.begin; // where there is none
            readMembers(extent);
        }
        return std::move(facts_);
    }

    std::shared_ptr<ArchiveIndex const> read() {
        size_ = item_->size();
        if (size_ != 0) {
            readMembers(findDirectory());
        }
        window_ = {};
        if (!index_->finish()) {
            fail();
        }
        return index_;
    }

  private:
    [[noreturn]] void fail(ErrorCode code = ErrorCode::IOError) const {
        throw Exception(code, location_);
    }

    void readExactly(std::uint64_t position, std::span<unsigned char> buffer) {
        if (item_->readAt(position, buffer) != buffer.size()) {
            fail();
        }
    }

    Extent findDirectory() {
        std::size_t const tailSize = static_cast<std::size_t>(
            std::min<std::uint64_t>(size_, end64LocatorSize + endSize + longestComment));
        window_.resize(std::max(tailSize, end64Size));
        windowBegin_ = size_ - tailSize;
        windowSize_ = tailSize;
        readExactly(windowBegin_, std::span(window_).first(tailSize));
        // From the end, so that an archive that is stored in an archive is not taken. A record
        // whose comment ends where the item does goes before one that stands in that comment, or
        // has something behind it.
        std::optional<std::size_t> last;
        for (std::size_t at = tailSize < endSize ? 0 : tailSize - endSize + 1; at-- > 0;) {
            unsigned char const* const end = window_.data() + at;
            if (read32(end) != endSignature) {
                continue;
            }
            std::size_t const behind = at + endSize + read16(end + 20);
            if (behind == tailSize) {
                return directoryOf(at);
            }
            if (behind < tailSize && !last) {
                last = at;
            }
        }
        if (!last) {
            fail();
        }
        return directoryOf(*last);
    }

    /// By the end record at a place in the window.
    Extent directoryOf(std::size_t at) {
        unsigned char const* const end = window_.data() + at;
        if (visitor_ != nullptr) {
            std::size_t const behind = windowSize_ - at - endSize;
            facts_.comment = textOf(end + endSize, std::min<std::size_t>(read16(end + 20), behind));
        }
        std::uint64_t endOfDirectory = windowBegin_ + at;
        bool const isVolume = (read16(end + 4) != 0 && read16(end + 4) != is16) ||
                              (read16(end + 6) != 0 && read16(end + 6) != is16);
        Extent extent{read32(end + 16), read32(end + 12), read16(end + 10), 0};
        if (isVolume) {
            fail(ErrorCode::UnsupportedOperation);
        }
        if (at >= end64LocatorSize && read32(end - end64LocatorSize) == end64LocatorSignature) {
            endOfDirectory = readEnd64(endOfDirectory - end64LocatorSize,
                                       read64(end - end64LocatorSize + 8), extent);
        } else if (extent.begin == is32 || extent.size == is32) {
            fail();
        }
        if (extent.size > endOfDirectory || extent.begin > endOfDirectory - extent.size) {
            fail();
        }
        extent.shift = endOfDirectory - extent.size - extent.begin;
        if (extent.shift != 0 && !beginsAt(extent.begin + extent.shift) && beginsAt(extent.begin)) {
            extent.shift = 0; // something stands behind the directory instead
        }
        extent.begin += extent.shift;
        return extent;
    }

    /// Takes the numbers of the record for large archives; where it begins.
    std::uint64_t readEnd64(std::uint64_t locator, std::uint64_t told, Extent& extent) {
        unsigned char record[end64Size];
        // Where something stands before the archive, it is not where the locator says.
        for (std::uint64_t const at : {told, locator - end64Size}) {
            if (locator < end64Size || at > locator - end64Size) {
                continue;
            }
            readExactly(at, record);
            if (read32(record) == end64Signature) {
                if (read32(record + 16) != 0 || read32(record + 20) != 0) {
                    fail(ErrorCode::UnsupportedOperation);
                }
                extent.members = read64(record + 32);
                extent.size = read64(record + 40);
                extent.begin = read64(record + 48);
                return at;
            }
        }
        fail();
    }

    bool beginsAt(std::uint64_t position) {
        unsigned char signature[4];
        return item_->readAt(position, signature) == sizeof signature &&
               read32(signature) == centralHeaderSignature;
    }

    void readMembers(Extent const& extent) {
        if (visitor_ == nullptr) {
            index_->reserve(extent.size, extent.members);
        }
        std::uint64_t const end = extent.begin + extent.size;
        std::uint64_t position = extent.begin;
        if (position < windowBegin_) {
            windowSize_ = 0; // else the tail of the item holds all of it
        }
        while (position < end) {
            std::span<unsigned char const> const rest = see(position, end);
            if (rest.size() >= 4 && read32(rest.data()) == digitalSignature) {
                break;
            }
            if (rest.size() < centralHeaderSize || read32(rest.data()) != centralHeaderSignature) {
                fail();
            }
            unsigned char const* const header = rest.data();
            std::size_t const size =
                centralHeaderSize + read16(header + 28) + read16(header + 30) + read16(header + 32);
            if (size > rest.size()) {
                fail();
            }
            if (visitor_ == nullptr) {
                add(header, extent.shift);
            } else {
                visitHeader(rest.first(size), extent.shift);
            }
            position += size;
        }
        // Some tools write the lower half of a number that needs the larger record.
        bool const isTold = extent.members != is16;
        if (visitor_ == nullptr && isTold && ((headers_ ^ extent.members) & is16) != 0) {
            fail();
        }
    }

    /// What lies at `position`: to the end of the directory, or more than any header takes.
    std::span<unsigned char const> see(std::uint64_t position, std::uint64_t end) {
        constexpr std::size_t mostOfHeader = centralHeaderSize + 3 * std::size_t{is16};
        std::uint64_t const left = end - position;
        std::size_t const wanted =
            static_cast<std::size_t>(std::min<std::uint64_t>(left, mostOfHeader));
        if (position < windowBegin_ || position + wanted > windowBegin_ + windowSize_) {
            slide(position, left);
        }
        std::size_t const at = static_cast<std::size_t>(position - windowBegin_);
        return std::span(window_).subspan(
            at, static_cast<std::size_t>(std::min<std::uint64_t>(left, windowSize_ - at)));
    }

    /// The window to a place of which so many bytes are wanted; what it has of them is not read
    /// again.
    void slide(std::uint64_t position, std::uint64_t left) {
        bool const isInside = position >= windowBegin_ && position < windowBegin_ + windowSize_;
        std::size_t const kept =
            isInside ? static_cast<std::size_t>(windowBegin_ + windowSize_ - position) : 0;
        std::copy_n(window_.data() + (windowSize_ - kept), kept, window_.data());
        windowBegin_ = position;
        windowSize_ = static_cast<std::size_t>(std::min<std::uint64_t>(left, windowSize));
        window_.resize(std::max(windowSize_, kept));
        if (windowSize_ > kept) {
            readExactly(position + kept, std::span(window_).first(windowSize_).subspan(kept));
        }
    }

    void add(unsigned char const* header, std::uint64_t shift) {
        if (++headers_ > maximumHeaders_) { // also those that come to nothing
            fail(ErrorCode::FileTooLarge);
        }
        std::size_t const nameSize = read16(header + 28);
        unsigned char const* const name = header + centralHeaderSize;
        std::string_view const extra = textOf(name + nameSize, read16(header + 30));
        std::uint16_t const flags = read16(header + 8);
        MemberFacts facts;
        Member& member = facts.member;
        constexpr std::uint16_t encryptedDirectory = 1 << 13;
        if ((flags & encryptedDirectory) != 0) {
            fail(ErrorCode::UnsupportedOperation);
        }
        member.isEncrypted = (flags & encryptedFlag) != 0;
        member.hasDescriptor = (flags & descriptorFlag) != 0;
        member.method = read16(header + 10);
        member.crc = read32(header + 16);
        member.compressedSize = read32(header + 20);
        member.size = read32(header + 24);
        member.headerOffset = read32(header + 42);
        member.nameHash = hashOfName(name, nameSize);
        takeLargeNumbers(extraField(extra, ExtraId::Zip64), member);
        if (member.headerOffset > size_ - shift ||
            member.compressedSize > size_ - shift - member.headerOffset) {
            fail(); // it would lie behind the end
        }
        member.headerOffset += shift;
        bool const isKept = (flags & utf8Flag) != 0 || isOfUnix(read16(header + 4));
        std::string_view const spelled =
            memberPath(textOf(name, nameSize), extra,
                       isKept ? NameSpelling::Kept : NameSpelling::CodePage437, converted_);
        std::string_view const path = container::withoutDots(spelled, withoutDots_);
        facts.isLonger = path.size() > nameSize;
        bool const isRoot = path.empty() && !spelled.empty(); // `.` and `./`
        takeAttributes(header, isRoot || path.ends_with('/'), facts);
        takeTime(header, extra, facts);
        switch (index_->add(path, facts)) {
        case ArchiveIndex::Added::TooMany:
            fail(ErrorCode::FileTooLarge);
        case ArchiveIndex::Added::LeftOut:
            index_->countLeftOut();
            break;
        case ArchiveIndex::Added::Yes:
            break;
        }
    }

    void visitHeader(std::span<unsigned char const> header, std::uint64_t shift) {
        unsigned char const* const extra =
            header.data() + centralHeaderSize + read16(header.data() + 28);
        Member member;
        member.compressedSize = read32(header.data() + 20);
        member.size = read32(header.data() + 24);
        member.headerOffset = read32(header.data() + 42);
        takeLargeNumbers(extraField(textOf(extra, read16(header.data() + 30)), ExtraId::Zip64),
                         member);
        member.headerOffset += shift;
        facts_.firstMember = std::min(facts_.firstMember, member.headerOffset);
        (*visitor_)(header, member.headerOffset);
    }

    /// The field has those numbers, in this order, that do not fit into the header (APPNOTE 4.5.3).
    void takeLargeNumbers(std::string_view field, Member& member) const {
        for (std::uint64_t* const number :
             {&member.size, &member.compressedSize, &member.headerOffset}) {
            if (*number == is32) {
                if (field.size() < 8) {
                    fail();
                }
                *number = read64(reinterpret_cast<unsigned char const*>(field.data()));
                field.remove_prefix(8);
            }
        }
    }

    static void takeAttributes(unsigned char const* header, bool isFolderByName,
                               MemberFacts& facts) {
        constexpr std::uint32_t typeBits = 0170000;
        constexpr std::uint32_t linkType = 0120000;
        constexpr std::uint32_t folderType = 0040000;
        constexpr std::uint32_t fileType = 0100000;
        constexpr std::uint32_t dosReadOnly = 0x01;
        constexpr std::uint32_t dosFolder = 0x10;
        std::uint32_t const attributes = read32(header + 38);
        std::uint32_t const mode = attributes >> 16;
        bool const hasMode = isOfUnix(read16(header + 4)) && mode != 0;
        std::uint32_t const type = hasMode ? mode & typeBits : 0;
        bool const isFolder =
            isFolderByName || type == folderType || (!hasMode && (attributes & dosFolder) != 0);
        // Content that came through a pipe has its mode, and is that of a file all the same.
        bool const isFile = type == 0 || type == fileType || facts.member.size != 0;
        facts.kind = isFolder           ? EntryKind::Folder
                     : type == linkType ? EntryKind::Link
                     : isFile           ? EntryKind::File
                                        : EntryKind::Other;
        std::uint32_t const usual = isFolder ? 0755 : (attributes & dosReadOnly) != 0 ? 0444 : 0644;
        facts.mode = static_cast<std::uint16_t>(hasMode ? mode & 07777 : usual);
    }

    /// The first that there is: the extended time, that of NTFS, the date of DOS.
    static void takeTime(unsigned char const* header, std::string_view extra, MemberFacts& facts) {
        constexpr unsigned char hasModified = 1;
        std::string_view const extended = extraField(extra, ExtraId::ExtendedTime);
        auto const* const bytes = reinterpret_cast<unsigned char const*>(extended.data());
        if (extended.size() >= 5 && (bytes[0] & hasModified) != 0) {
            // Half of all numbers are of the years before 1970 to some, and of those behind 2038 to
            // others; the date of DOS knows no year before 1980.
            constexpr std::uint32_t yearsTo2038 = 58;
            std::uint32_t const seconds = read32(bytes + 1);
            bool const isLate = seconds >> 31 != 0 && read32(header + 12) >> 25 >= yearsTo2038;
            facts.time = {seconds, false, isLate};
        } else if (auto const time = timeOfNtfs(extraField(extra, ExtraId::Ntfs))) {
            facts.time = *time;
        } else {
            facts.time = {read32(header + 12), true, false};
        }
    }

    /// Where the field has one that fits (APPNOTE 4.5.5).
    static std::optional<MemberTime> timeOfNtfs(std::string_view field) noexcept {
        constexpr std::size_t reserved = 4;
        constexpr std::size_t timesSize = 24;
        constexpr std::uint16_t times = 1;
        constexpr std::uint64_t inSecond = 10'000'000;
        constexpr std::int64_t from1601To1970 = 11'644'473'600;
        auto const* const bytes = reinterpret_cast<unsigned char const*>(field.data());
        if (field.size() < reserved + 4 + timesSize || read16(bytes + reserved) != times ||
            read16(bytes + reserved + 2) < timesSize) {
            return std::nullopt;
        }
        auto const seconds =
            static_cast<std::int64_t>(read64(bytes + reserved + 4) / inSecond) - from1601To1970;
        if (seconds < std::numeric_limits<std::int32_t>::min() ||
            seconds > std::numeric_limits<std::uint32_t>::max()) {
            return std::nullopt;
        }
        bool const isLate = seconds > std::numeric_limits<std::int32_t>::max();
        return MemberTime{static_cast<std::uint32_t>(seconds), false, isLate};
    }

    StorageIRI const location_;
    std::uint32_t const maximumHeaders_;
    container::ItemStreams::Lent item_;
    std::uint64_t size_ = 0;
    std::shared_ptr<ArchiveIndex> index_;
    std::vector<unsigned char> window_;
    std::uint64_t windowBegin_ = 0;
    std::size_t windowSize_ = 0;
    std::string converted_;
    std::string withoutDots_;
    std::uint32_t headers_ = 0;
    HeaderVisitor const* visitor_ = nullptr;
    DirectoryFacts facts_;
};

} // namespace

std::shared_ptr<ArchiveIndex const> readCentralDirectory(container::ItemStreams& streams,
                                                         ZipOptions const& options) {
    try {
        return DirectoryReader(streams, options).read();
    } catch (ByteStreamFailure const& failure) {
        throw Exception(failure.getErrorCode(), streams.item().getLocation());
    }
}

DirectoryFacts visitCentralDirectory(container::ItemStreams& streams, ZipOptions const& options,
                                     HeaderVisitor const& visitor) {
    try {
        return DirectoryReader(streams, options).visit(visitor);
    } catch (ByteStreamFailure const& failure) {
        throw Exception(failure.getErrorCode(), streams.item().getLocation());
    }
}

} // namespace foundation::storage::provider::zip::detail
