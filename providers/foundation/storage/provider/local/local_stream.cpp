#include <foundation/storage/provider/local/local_stream.hpp>

#include <foundation/storage/provider/local/detail/failures.hpp>

#include <fcntl.h>
#include <system_error>
#include <utility>

namespace foundation::storage::provider::local {

using detail::FileDescriptor;
using detail::KernelPath;
using detail::throwErrno;
using detail::uninterrupted;

namespace {

int whenceOf(std::ios_base::seekdir way) noexcept {
    return way == std::ios_base::beg ? SEEK_SET : way == std::ios_base::cur ? SEEK_CUR : SEEK_END;
}

void requireRegularFile(struct stat const& item, StorageIRI const& location) {
    if (S_ISDIR(item.st_mode)) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    if (!S_ISREG(item.st_mode)) {
        throw Exception(ErrorCode::UnsupportedOperation, location);
    }
}

/// The super-user's right to write is not used: read-only is what the owner's write bit says.
void requireWritable(struct stat const& item, StorageIRI const& location) {
    if ((item.st_mode & S_IWUSR) == 0) {
        throw Exception(ErrorCode::PermissionDenied, location);
    }
}

FileDescriptor openFile(KernelPath const& path, int flags) noexcept {
    return FileDescriptor(uninterrupted([&] {
        // Non-blocking, should something else take the file's place behind the look at it.
        return ::openat(path.folder(), path.path(), flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC,
                        0666);
    }));
}

/// A file that stands there. Opened without O_CREAT, which some kernels refuse for another user's
/// file in a folder that everybody may write to. Nothing where it has just gone.
FileDescriptor openExisting(KernelPath const& path, StorageIRI const& location, int flags,
                            bool truncate) {
    FileDescriptor file = openFile(path, flags);
    if (!file) {
        if (errno != ENOENT) {
            throwErrno(errno, location);
        }
        return file;
    }
    struct stat item {};
    if (::fstat(file.get(), &item) != 0) {
        throwErrno(errno, location);
    }
    requireRegularFile(item, location);
    requireWritable(item, location);
    if (truncate && item.st_size != 0 &&
        uninterrupted([&] { return ::ftruncate(file.get(), 0); }) != 0) {
        throwErrno(errno, location);
    }
    return file;
}

/// How often a file may come and go between two looks at it.
constexpr int openingAttempts = 8;

FileDescriptor openForWriting(KernelPath const& path, StorageIRI const& location, int flags,
                              bool create, bool truncate) {
    for (int i = 0; i < openingAttempts; ++i) {
        struct stat item {};
        int error = statItem(path, true, item);
        if (error == ENOENT && create) {
            FileDescriptor made = openFile(path, flags | O_CREAT | O_EXCL);
            if (made) {
                return made;
            }
            if (errno != EEXIST) {
                throwErrno(errno, location);
            }
            error = statItem(path, true, item);
            if (error == ENOENT) {
                // A link that leads nowhere: through it the file is created, unless somebody else
                // does it first.
                if (FileDescriptor file = openExisting(path, location, flags | O_CREAT, truncate)) {
                    return file;
                }
                throwErrno(ENOENT, location);
            }
        }
        if (error != 0) {
            throwErrno(error, location);
        }
        requireRegularFile(item, location);
        requireWritable(item, location);
        if (FileDescriptor file = openExisting(path, location, flags, truncate)) {
            return file;
        }
        if (!create) {
            throwErrno(ENOENT, location);
        }
    }
    throwErrno(EBUSY, location);
}

} // namespace

std::string reasonOf(int error) {
    return std::generic_category().message(error);
}

std::string DescriptorIo::Poison::reason() const {
    return error != 0 ? reasonOf(error) : std::string(words);
}

template<class Failure>
void DescriptorIo::checkPoison(char const* what) const {
    if (poison_) {
        throw Failure(std::string(what) + ": " + poison_->reason(), poison_->code);
    }
}

long DescriptorIo::read(char* buffer, long count) {
    checkPoison<ByteStreamReadFailure>("read");
    if (access_ == StreamAccess::Write) {
        throw ByteStreamReadFailure("read: Permission denied: the stream is open for writing only",
                                    ErrorCode::PermissionDenied);
    }
    if (count < 0) {
        throw ByteStreamReadFailure("read: " + reasonOf(EINVAL), ErrorCode::InternalError);
    }
    long done = 0;
    while (done < count) {
        ssize_t const got = uninterrupted([&] {
            return ::read(descriptor_, buffer + done, static_cast<std::size_t>(count - done));
        });
        if (got < 0) {
            int const error = errno;
            throw ByteStreamReadFailure("read: " + reasonOf(error), errorCodeOfErrno(error));
        }
        if (got == 0) {
            return done == 0 ? -1 : done;
        }
        done += got;
        position_ += got;
        if (position_ == end_) {
            break;
        }
    }
    return done;
}

void DescriptorIo::failWrite(Poison const& poison) {
    poison_ = poison;
    throw ByteStreamWriteFailure("write: " + poison.reason(), poison.code);
}

long DescriptorIo::write(char const* buffer, long count) {
    checkPoison<ByteStreamWriteFailure>("write");
    if (access_ == StreamAccess::Read) {
        failWrite({0, "Permission denied: the stream is open for reading only",
                   ErrorCode::PermissionDenied});
    }
    if (count < 0) {
        failWrite({EINVAL, "", ErrorCode::InternalError});
    }
    long done = 0;
    while (done < count) {
        ssize_t const put = uninterrupted([&] {
            return ::write(descriptor_, buffer + done, static_cast<std::size_t>(count - done));
        });
        if (put <= 0) {
            int const error = put < 0 ? errno : EIO;
            failWrite({error, "", errorCodeOfErrno(error)});
        }
        done += put;
    }
    return done;
}

long DescriptorIo::seek(long offset, std::ios_base::seekdir way) {
    checkPoison<ByteStreamSeekFailure>("seek");
    off_t const position = ::lseek(descriptor_, offset, whenceOf(way));
    if (position < 0) {
        int const error = errno;
        throw ByteStreamSeekFailure("seek: " + reasonOf(error), errorCodeOfErrno(error));
    }
    position_ = position;
    return position;
}

void DescriptorIo::checkBeforeClose() const {
    checkPoison<ByteStreamCloseFailure>("close");
}

void DescriptorIo::failClose(int error) {
    poison_ = Poison{error, "", errorCodeOfErrno(error)};
    throw ByteStreamCloseFailure("close: " + reasonOf(error), poison_->code);
}

void DescriptorIo::markClosed() noexcept {
    poison_ = Poison{0, "the stream is closed", ErrorCode::InternalError};
}

LocalStream::LocalStream(FileDescriptor file, StreamAccess access, long end) noexcept
    : file_(std::move(file)),
      io_(file_.get(), access, end) {}

long LocalStream::read(char* buffer, long count) {
    return io_.read(buffer, count);
}
long LocalStream::write(char const* buffer, long count) {
    return io_.write(buffer, count);
}
long LocalStream::seek(long offset, std::ios_base::seekdir way) {
    return io_.seek(offset, way);
}

void LocalStream::close() {
    int const error = file_.close();
    io_.checkBeforeClose();
    if (error != 0) {
        io_.failClose(error);
    }
    io_.markClosed();
}

FileDescriptor openRegularFile(KernelPath const& path, StorageIRI const& location, int flags,
                               struct stat& found) {
    FileDescriptor file = openFile(path, flags);
    if (!file || ::fstat(file.get(), &found) != 0) {
        throwErrno(errno, location);
    }
    requireRegularFile(found, location);
    return file;
}

std::unique_ptr<ByteStream> openForReading(StorageIRI const& location) {
    KernelPath const path(location);
    struct stat item {};
    // Opening alone can do harm: it wakes the writer of a FIFO, or rewinds a tape.
    if (int const error = statItem(path, true, item)) {
        throwErrno(error, location);
    }
    requireRegularFile(item, location);
    FileDescriptor file = openRegularFile(path, location, O_RDONLY, item);
    return std::make_unique<LocalStream>(std::move(file), StreamAccess::Read, item.st_size);
}

std::unique_ptr<ByteStream> openWithOptions(StorageIRI const& location,
                                            ByteStreamOpenOptions const& options) {
    bool const readWrite = options.access == ByteStreamAccess::ReadWrite;
    int const flags = (readWrite ? O_RDWR : O_WRONLY) | (options.withoutAppend == 0 ? O_APPEND : 0);
    KernelPath const path(location);
    return std::make_unique<LocalStream>(
        openForWriting(path, location, flags, options.creation == ByteStreamCreation::OpenOrCreate,
                       options.withoutTruncate == 0),
        readWrite ? StreamAccess::ReadWrite : StreamAccess::Write);
}

} // namespace foundation::storage::provider::local
