#include <foundation/storage/provider/s3/s3_stream.hpp>

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/s3/detail/translation.hpp>

#include <limits>
#include <string>
#include <utility>

namespace foundation::storage::provider::s3 {

namespace {

constexpr auto longest = static_cast<std::uint64_t>(std::numeric_limits<long>::max());

template<class Thrown>
[[noreturn]] void fail(char const* call, web::Failure const& failure) {
    throw Thrown(std::string(call) + ": " + failure.what(), failure.code());
}

} // namespace

template<class Thrown>
void S3Stream::check(char const* call) const {
    if (failure_) {
        fail<Thrown>(call, *failure_);
    }
}

template<class Thrown>
void S3Stream::poison(char const* call, web::Failure const& failure) {
    failure_ = failure;
    fail<Thrown>(call, failure);
}

void S3Stream::markClosed() {
    failure_ = web::Failure(ErrorCode::InternalError, "the stream is closed");
}

long S3Stream::seek(long offset, std::ios_base::seekdir way) {
    check<ByteStreamSeekFailure>("seek");
    std::uint64_t const base = way == std::ios_base::beg   ? 0
                               : way == std::ios_base::cur ? position_
                                                           : size();
    long position = 0;
    if (base > longest || __builtin_add_overflow(static_cast<long>(base), offset, &position) ||
        position < 0) {
        throw ByteStreamSeekFailure("seek: a position outside of what a file can hold",
                                    ErrorCode::InvalidLocation);
    }
    position_ = static_cast<std::uint64_t>(position);
    return position;
}

S3ReadStream::S3ReadStream(std::unique_ptr<detail::ObjectReader> reader)
    : reader_(std::move(reader)),
      size_(reader_->size()) {}

std::uint64_t S3ReadStream::size() const {
    return size_;
}

long S3ReadStream::read(char* buffer, long count) {
    check<ByteStreamReadFailure>("read");
    if (count < 0) {
        throw ByteStreamReadFailure("read: a negative count", ErrorCode::InternalError);
    }
    if (count == 0) {
        return 0;
    }
    try {
        std::size_t const got =
            reader_->readAt(position_, {buffer, static_cast<std::size_t>(count)});
        position_ += got;
        return got == 0 ? -1 : static_cast<long>(got);
    } catch (web::VersionFailure const& failure) {
        isOutdated_ = true;
        poison<ByteStreamReadFailure>("read", failure);
    } catch (...) {
        poison<ByteStreamReadFailure>("read", detail::currentFailure());
    }
}

long S3ReadStream::write(char const*, long) {
    check<ByteStreamWriteFailure>("write");
    poison<ByteStreamWriteFailure>(
        "write", web::Failure(ErrorCode::PermissionDenied, "the stream is open for reading only"));
}

void S3ReadStream::close() {
    check<ByteStreamCloseFailure>("close");
    reader_.reset();
    markClosed();
}

std::unique_ptr<ByteStream> S3ReadStream::openAnother() const {
    return std::make_unique<S3ReadStream>(reader_->another());
}

void S3ReadStream::rest() noexcept {
    reader_->rest();
}

S3WriteStream::S3WriteStream(std::unique_ptr<detail::NewContent> content, StreamAccess access,
                             StreamWriting writing, Closing closing, Publish publish)
    : content_(std::move(content)),
      access_(access),
      writing_(writing),
      closing_(closing),
      publish_(std::move(publish)) {}

std::uint64_t S3WriteStream::size() const {
    return content_->size();
}

long S3WriteStream::read(char* buffer, long count) {
    check<ByteStreamReadFailure>("read");
    if (access_ == StreamAccess::Write) {
        throw ByteStreamReadFailure("read: the stream is open for writing only",
                                    ErrorCode::PermissionDenied);
    }
    if (count < 0) {
        throw ByteStreamReadFailure("read: a negative count", ErrorCode::InternalError);
    }
    if (count == 0) {
        return 0;
    }
    try {
        std::size_t const got =
            content_->read(position_, {buffer, static_cast<std::size_t>(count)});
        position_ += got;
        return got == 0 ? -1 : static_cast<long>(got);
    } catch (...) {
        fail<ByteStreamReadFailure>("read", detail::currentFailure());
    }
}

long S3WriteStream::write(char const* buffer, long count) {
    check<ByteStreamWriteFailure>("write");
    try {
        if (count < 0) {
            throw web::Failure(ErrorCode::InternalError, "a negative count");
        }
        if (count == 0) {
            return 0; // moves nothing, at the end neither
        }
        auto const bytes = static_cast<std::size_t>(count);
        std::uint64_t const start = writing_ == StreamWriting::AtEnd ? content_->size() : position_;
        if (start > longest - bytes) {
            throw web::Failure(ErrorCode::FileTooLarge, "the file would be too large");
        }
        content_->write(start, {buffer, bytes});
        position_ = start + bytes;
        return count;
    } catch (...) { // whatever it was, there may be a hole now
        poison<ByteStreamWriteFailure>("write", detail::currentFailure());
    }
}

void S3WriteStream::close() {
    check<ByteStreamCloseFailure>("close");
    try {
        publish_(*content_);
    } catch (web::Failure const& failure) {
        if (closing_ == Closing::UntilDone) {
            fail<ByteStreamCloseFailure>("close", failure);
        }
        poison<ByteStreamCloseFailure>("close", failure);
    } catch (...) {
        poison<ByteStreamCloseFailure>("close", detail::currentFailure());
    }
    content_.reset();
    markClosed();
}

void S3WriteStream::setNewFileAttributes(extensions::NewFileAttributes const& attributes) {
    if (attributes.lastModified) {
        content_->setLastModified(*attributes.lastModified);
    }
}

} // namespace foundation::storage::provider::s3
