#include <foundation/storage/provider/local/detail/listed_folder.hpp>

#include <foundation/storage/provider/local/detail/failures.hpp>
#include <foundation/storage/provider/local/detail/kernel_path.hpp>

namespace foundation::storage::provider::local::detail {

int identify(int folder, FolderIdentity& result) noexcept {
    struct stat item {};
    if (::fstat(folder, &item) != 0) {
        return errno;
    }
    result = {item.st_dev, item.st_ino};
    return 0;
}

FileDescriptor openListedFolder(StorageIRI const& location) {
    KernelPath const path(location);
    FileDescriptor result(
        uninterrupted([&] { return ::openat(path.folder(), path.path(), readFolderFlags); }));
    if (!result) {
        throwErrno(errno, location);
    }
    return result;
}

std::optional<ErrorCode> reopenListedFolder(StorageIRI const& location, int flags,
                                            FileDescriptor& result) {
    try {
        KernelPath const path(location);
        result = FileDescriptor(
            uninterrupted([&] { return ::openat(path.folder(), path.path(), flags); }));
    } catch (Exception const& e) {
        return e.getErrorCode();
    }
    return result ? std::nullopt : std::optional(errorCodeOfErrno(errno));
}

std::optional<ErrorCode> resumeFolder(int folder, FolderIdentity const& identity,
                                      FolderChunk const& chunk) {
    FolderIdentity found;
    if (int const error = identify(folder, found)) {
        return errorCodeOfErrno(error);
    }
    if (found != identity) {
        return ErrorCode::ResourceNotFound;
    }
    if (!chunk.isLast() && ::lseek(folder, chunk.resumeAt(), SEEK_SET) < 0) {
        return errorCodeOfErrno(errno);
    }
    return std::nullopt;
}

} // namespace foundation::storage::provider::local::detail
