#include <foundation/storage/provider/zip/pending_stream.hpp>

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>

#include <limits>
#include <new>
#include <sstream>
#include <utility>

namespace foundation::storage::provider::zip {

namespace {

constexpr auto longest = static_cast<std::uint64_t>(std::numeric_limits<long>::max());

} // namespace

PendingStream::PendingStream(std::shared_ptr<detail::PendingContent> content, StreamAccess access,
                             StreamWriting writing) noexcept
    : content_(std::move(content)),
      access_(access),
      writing_(writing),
      isWriter_(access != StreamAccess::Read) {
    if (isWriter_) {
        content_->addWriter();
    }
}

PendingStream::~PendingStream() {
    stopWriting();
}

void PendingStream::stopWriting() noexcept {
    if (std::exchange(isWriter_, false)) {
        content_->removeWriter();
    }
}

template<class Failure>
void PendingStream::checkPoison(char const* what) const {
    if (poison_) {
        throw Failure(std::string(what) + ": " + poison_->reason, poison_->code);
    }
}

void PendingStream::failWrite(std::string const& reason, ErrorCode code) {
    poison_ = Poison{reason, code};
    throw ByteStreamWriteFailure("write: " + reason, code);
}

long PendingStream::read(char* buffer, long count) {
    checkPoison<ByteStreamReadFailure>("read");
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
        std::size_t const got = content_->read(position_, buffer, static_cast<std::size_t>(count));
        position_ += got;
        return got == 0 ? -1 : static_cast<long>(got);
    } catch (detail::PendingFailure const& failure) {
        throw ByteStreamReadFailure(std::string("read: ") + failure.what(), failure.code());
    }
}

long PendingStream::write(char const* buffer, long count) {
    checkPoison<ByteStreamWriteFailure>("write");
    if (access_ == StreamAccess::Read) {
        failWrite("the stream is open for reading only", ErrorCode::PermissionDenied);
    }
    if (count < 0) {
        failWrite("a negative count", ErrorCode::InternalError);
    }
    if (count == 0) {
        return 0; // moves nothing, at the end neither
    }
    auto const bytes = static_cast<std::size_t>(count);
    std::uint64_t const start = writing_ == StreamWriting::AtEnd ? content_->size() : position_;
    if (start > longest - bytes) {
        failWrite("the file would be too large", ErrorCode::FileTooLarge);
    }
    try {
        if (writing_ == StreamWriting::AtEnd) {
            position_ = content_->append(buffer, bytes);
        } else {
            content_->write(position_, buffer, bytes);
            position_ += bytes;
        }
    } catch (detail::PendingFailure const& failure) {
        failWrite(failure.what(), failure.code());
    } catch (std::bad_alloc const&) {
        failWrite("there is no memory for it", ErrorCode::InternalError);
    }
    return count;
}

long PendingStream::seek(long offset, std::ios_base::seekdir way) {
    checkPoison<ByteStreamSeekFailure>("seek");
    std::uint64_t const base = way == std::ios_base::beg   ? 0
                               : way == std::ios_base::cur ? position_
                                                           : content_->size();
    long position = 0;
    if (__builtin_add_overflow(static_cast<long>(base), offset, &position) || position < 0) {
        throw ByteStreamSeekFailure("seek: a position outside of what a file can hold",
                                    ErrorCode::InvalidLocation);
    }
    position_ = static_cast<std::uint64_t>(position);
    return position;
}

void PendingStream::checkBeforeClose() const {
    checkPoison<ByteStreamCloseFailure>("close");
}

void PendingStream::markClosed() {
    poison_ = Poison{"the stream is closed", ErrorCode::InternalError};
    stopWriting();
}

void PendingStream::close() {
    checkBeforeClose();
    markClosed();
}

PendingReplacement::PendingReplacement(std::shared_ptr<detail::PendingContent> content,
                                       Publish publish)
    : PendingStream(std::move(content), StreamAccess::ReadWrite, StreamWriting::AtPosition),
      publish_(std::move(publish)) {}

void PendingReplacement::close() {
    checkBeforeClose();
    try {
        publish_(content(), attributes_);
    } catch (Exception const& e) {
        std::ostringstream text;
        text << "close: the file could not be published: " << e.getErrorCode();
        throw ByteStreamCloseFailure(text.str(), e.getErrorCode());
    }
    markClosed();
}

} // namespace foundation::storage::provider::zip
