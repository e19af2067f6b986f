#include <foundation/storage/provider/tar/tar_stream.hpp>

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/extensions/i_resting_stream.hpp>

#include <algorithm>
#include <limits>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <utility>

namespace foundation::storage::provider::tar {

using container::DecodingFailure;
using detail::Access;
using detail::Member;

namespace {

using Bytes = std::span<unsigned char>;

/// What all members have in common: a position, and failures that stay.
class MemberStream : public ByteStream, public extensions::IRestingStream {
  public:
    explicit MemberStream(std::uint64_t size) : size_(size) {}

    long read(char* buffer, long count) override {
        checkOpen<ByteStreamReadFailure>();
        if (count < 0) {
            throw ByteStreamReadFailure("read: a negative count", ErrorCode::InternalError);
        }
        if (count == 0) {
            return 0;
        }
        if (position_ >= size_) {
            return -1;
        }
        std::uint64_t const wanted = std::min(static_cast<std::uint64_t>(count), size_ - position_);
        readOrFail(
            Bytes(reinterpret_cast<unsigned char*>(buffer), static_cast<std::size_t>(wanted)));
        position_ += wanted;
        return static_cast<long>(wanted);
    }

    long write(char const*, long) override {
        checkOpen<ByteStreamWriteFailure>();
        failure_ = {"write: the file is open for reading alone", ErrorCode::PermissionDenied};
        throw ByteStreamWriteFailure(failure_->text, failure_->code);
    }

    long seek(long offset, std::ios_base::seekdir way) override {
        checkOpen<ByteStreamSeekFailure>();
        std::uint64_t const from = way == std::ios_base::beg   ? 0
                                   : way == std::ios_base::cur ? position_
                                                               : size_;
        constexpr auto farthest = static_cast<std::uint64_t>(std::numeric_limits<long>::max());
        auto const base = static_cast<std::int64_t>(std::min(from, farthest));
        if (from > farthest || offset < -base || offset > std::numeric_limits<long>::max() - base) {
            throw ByteStreamSeekFailure("seek: the position is before the start, or too far",
                                        ErrorCode::InvalidLocation);
        }
        position_ = static_cast<std::uint64_t>(base + offset);
        return static_cast<long>(position_);
    }

    void close() override {
        checkOpen<ByteStreamCloseFailure>();
        isClosed_ = true;
    }

  private:
    /// What every later call answers.
    struct Failure {
        std::string text;
        ErrorCode code;
    };

    /// Reads all of it. REQUIRES: it lies within the member, and is not empty.
    virtual void readAt(std::uint64_t position, Bytes buffer) = 0;

    template<class Thrown>
    void checkOpen() const {
        if (isClosed_) {
            throw Thrown("the stream is closed", ErrorCode::InternalError);
        }
        if (failure_) {
            throw Thrown(failure_->text, failure_->code);
        }
    }

    void readOrFail(Bytes buffer) {
        try {
            readAt(position_, buffer);
        } catch (DecodingFailure const& failure) {
            fail(failure.what(), failure.getErrorCode());
        } catch (ByteStreamFailure const& failure) { // also of seeking, to a reader
            fail(failure.what(), failure.getErrorCode());
        } catch (Exception const& failure) {
            fail("the archive cannot be read", failure.getErrorCode());
        } catch (std::bad_alloc const&) {
            fail("there is no memory to decode the content", ErrorCode::InternalError);
        }
    }

    [[noreturn]] void fail(char const* reason, ErrorCode code) {
        failure_ = {std::string("read: ") + reason, code};
        throw ByteStreamReadFailure(failure_->text, failure_->code);
    }

    std::uint64_t const size_;
    std::uint64_t position_ = 0;
    std::optional<Failure> failure_;
    bool isClosed_ = false;
};

class DirectMember final : public MemberStream {
  public:
    DirectMember(detail::ArchiveSource::Lent bytes, Member const& member)
        : MemberStream(member.size),
          bytes_(std::move(bytes)),
          begin_(member.place) {}

    void rest() noexcept override { bytes_->rest(); }

  private:
    void readAt(std::uint64_t position, Bytes buffer) override {
        if (bytes_->readAt(begin_ + position, buffer) != buffer.size()) {
            throw DecodingFailure("the archive ends before the member does");
        }
    }

    detail::ArchiveSource::Lent bytes_;
    std::uint64_t const begin_;
};

class ParsedMember final : public MemberStream {
  public:
    ParsedMember(std::shared_ptr<detail::MemberReaders> readers, Member const& member)
        : MemberStream(member.size),
          readers_(std::move(readers)),
          member_(member),
          reader_(readers_->lend(member_)) {}

    void rest() noexcept override {
        if (reader_) { // else beginning again has failed
            reader_->rest();
        }
    }

  private:
    void readAt(std::uint64_t position, Bytes buffer) override {
        if (!reader_->isBefore(position)) {
            reader_ = readers_->startAgain(std::move(reader_), member_);
        }
        reader_->read(position, buffer);
    }

    std::shared_ptr<detail::MemberReaders> const readers_;
    Member const member_;
    detail::MemberReaders::Lent reader_;
};

void check(Member const& member, StorageIRI const& location) {
    if (member.kind == container::EntryKind::Other || member.access == Access::Encrypted) {
        throw Exception(ErrorCode::UnsupportedOperation, location);
    }
    if (member.access == Access::TooLarge) {
        throw Exception(ErrorCode::FileTooLarge, location);
    }
    if (member.access == Access::Missing) {
        throw Exception(ErrorCode::IOError, location);
    }
}

} // namespace

std::unique_ptr<ByteStream> openMember(detail::ArchiveSource& source,
                                       std::shared_ptr<detail::MemberReaders> const& readers,
                                       Member const& member, StorageIRI const& location) {
    check(member, location);
    try {
        if (member.access == Access::Direct) {
            return std::make_unique<DirectMember>(source.lend(member.place), member);
        }
        return std::make_unique<ParsedMember>(readers, member);
    } catch (ByteStreamFailure const& failure) {
        throw Exception(failure.getErrorCode(), location);
    } catch (DecodingFailure const& failure) {
        throw Exception(failure.getErrorCode(), location);
    }
}

} // namespace foundation::storage::provider::tar
