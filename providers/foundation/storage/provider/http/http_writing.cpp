#include <foundation/storage/provider/http/http_writing.hpp>

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>

#include <limits>
#include <new>
#include <sstream>

namespace foundation::storage::provider::http {

namespace {

constexpr auto longest = static_cast<std::uint64_t>(std::numeric_limits<long>::max());

} // namespace

template<class Failure>
void HttpWritingStream::checkPoison(char const* what) const {
    if (poison_) {
        throw Failure(std::string(what) + ": " + poison_->reason, poison_->code);
    }
}

void HttpWritingStream::failWrite(std::string const& reason, ErrorCode code) {
    poison_ = Poison{reason, code};
    throw ByteStreamWriteFailure("write: " + reason, code);
}

long HttpWritingStream::read(char* buffer, long count) {
    checkPoison<ByteStreamReadFailure>("read");
    if (access_ == WritingAccess::Write) {
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
        std::size_t const got = content_.read(position_, buffer, static_cast<std::size_t>(count));
        position_ += got;
        return got == 0 ? -1 : static_cast<long>(got);
    } catch (spool::Failure const& failure) {
        throw ByteStreamReadFailure(std::string("read: ") + failure.what(), failure.code());
    }
}

long HttpWritingStream::write(char const* buffer, long count) {
    checkPoison<ByteStreamWriteFailure>("write");
    if (count < 0) {
        failWrite("a negative count", ErrorCode::InternalError);
    }
    if (count == 0) {
        return 0; // moves nothing, at the end neither
    }
    auto const bytes = static_cast<std::size_t>(count);
    std::uint64_t const start = place_ == WritingPlace::AtEnd ? content_.size() : position_;
    if (start > longest - bytes) {
        failWrite("the file would be too large", ErrorCode::FileTooLarge);
    }
    try {
        isChanged_ = true;
        content_.write(start, buffer, bytes);
        position_ = start + bytes;
    } catch (spool::Failure const& failure) {
        failWrite(failure.what(), failure.code());
    } catch (std::bad_alloc const&) {
        failWrite("there is no memory for it", ErrorCode::InternalError);
    }
    return count;
}

long HttpWritingStream::seek(long offset, std::ios_base::seekdir way) {
    checkPoison<ByteStreamSeekFailure>("seek");
    std::uint64_t const base = way == std::ios_base::beg   ? 0
                               : way == std::ios_base::cur ? position_
                                                           : content_.size();
    long position = 0;
    if (__builtin_add_overflow(static_cast<long>(base), offset, &position) || position < 0) {
        throw ByteStreamSeekFailure("seek: a position outside of what a file can hold",
                                    ErrorCode::InvalidLocation);
    }
    position_ = static_cast<std::uint64_t>(position);
    return position;
}

void HttpWritingStream::close() {
    checkPoison<ByteStreamCloseFailure>("close");
    if (isChanged_) {
        try {
            publish_(content_);
        } catch (Exception const& e) {
            std::ostringstream text;
            text << "close: the file could not be sent: " << e.getErrorCode();
            throw ByteStreamCloseFailure(text.str(), e.getErrorCode());
        }
    }
    poison_ = Poison{"the stream is closed", ErrorCode::InternalError};
    content_.clear();
    publish_ = nullptr;
}

} // namespace foundation::storage::provider::http
