#include <foundation/storage/provider/memory/memory_stream.hpp>

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>

#include <limits>
#include <mutex>
#include <sstream>
#include <utility>

namespace foundation::storage::provider::memory {

namespace {

constexpr auto longest = static_cast<std::uint64_t>(std::numeric_limits<long>::max());

} // namespace

MemoryStream::MemoryStream(std::shared_ptr<detail::Tree> tree,
                           std::shared_ptr<detail::FileNode> file, StreamAccess access,
                           StreamWriting writing) noexcept
    : tree_(std::move(tree)),
      file_(std::move(file)),
      access_(access),
      writing_(writing) {}

template<class Failure>
void MemoryStream::checkPoison(char const* what) const {
    if (poison_) {
        throw Failure(std::string(what) + ": " + poison_->reason, poison_->code);
    }
}

void MemoryStream::failWrite(char const* reason, ErrorCode code) {
    poison_ = Poison{reason, code};
    throw ByteStreamWriteFailure(std::string("write: ") + reason, code);
}

long MemoryStream::read(char* buffer, long count) {
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
    std::size_t const got = file_->read(position_, buffer, static_cast<std::size_t>(count));
    position_ += got;
    return got == 0 ? -1 : static_cast<long>(got);
}

long MemoryStream::write(char const* buffer, long count) {
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
    std::uint64_t const start = writing_ == StreamWriting::AtEnd ? file_->size() : position_;
    if (start > longest - bytes) {
        failWrite("the file would be too large", ErrorCode::FileTooLarge);
    }
    detail::Changes changes(tree_->publications);
    bool const written = writing_ == StreamWriting::AtEnd ? file_->append(buffer, bytes, position_)
                                                          : file_->write(position_, buffer, bytes);
    tree_->modified(*file_, changes); // perhaps a part of it has been written
    if (!written) {
        failWrite("no space left in the store", ErrorCode::NoSpaceLeft);
    }
    if (writing_ == StreamWriting::AtPosition) {
        position_ += bytes;
    }
    return count;
}

long MemoryStream::seek(long offset, std::ios_base::seekdir way) {
    checkPoison<ByteStreamSeekFailure>("seek");
    std::uint64_t const base = way == std::ios_base::beg   ? 0
                               : way == std::ios_base::cur ? position_
                                                           : file_->size();
    long position = 0;
    if (__builtin_add_overflow(static_cast<long>(base), offset, &position) || position < 0) {
        throw ByteStreamSeekFailure("seek: a position outside of what a file can hold",
                                    ErrorCode::InvalidLocation);
    }
    position_ = static_cast<std::uint64_t>(position);
    return position;
}

void MemoryStream::checkBeforeClose() const {
    checkPoison<ByteStreamCloseFailure>("close");
}

void MemoryStream::markClosed() noexcept {
    poison_ = Poison{"the stream is closed", ErrorCode::InternalError};
}

void MemoryStream::close() {
    checkBeforeClose();
    markClosed();
}

MemoryReplacement::MemoryReplacement(std::shared_ptr<detail::Tree> tree, StorageIRI location,
                                     detail::Slot slot, ReplacementPolicy policy,
                                     std::shared_ptr<detail::FileNode> file) noexcept
    : MemoryStream(std::move(tree), std::move(file), StreamAccess::ReadWrite,
                   StreamWriting::AtPosition),
      location_(std::move(location)),
      slot_(std::move(slot)),
      policy_(policy) {}

void MemoryReplacement::close() {
    checkBeforeClose();
    detail::Changes changes(tree().publications);
    try {
        std::shared_ptr<detail::Node> replaced; // destroyed behind the lock
        std::unique_lock const lock(tree().mutex);
        detail::FileNode const* const old = tree().placeIn(slot_).file();
        replaced = tree().publish(location_, slot_, file(), policy_);
        if (old) {
            file()->takeModeOf(*old);
        }
        changes.created(*file());
    } catch (Exception const& e) {
        std::ostringstream text;
        text << "close: the file could not be published: " << e.getErrorCode();
        throw ByteStreamCloseFailure(text.str(), e.getErrorCode());
    }
    markClosed();
}

} // namespace foundation::storage::provider::memory
