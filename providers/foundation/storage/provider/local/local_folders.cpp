#include <foundation/storage/provider/local/local_folders.hpp>

#include <foundation/storage/provider/local/detail/failures.hpp>
#include <foundation/storage/provider/local/detail/kernel_path.hpp>
#include <foundation/storage/provider/local_path.hpp>

#include <fcntl.h>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace foundation::storage::provider::local {

using detail::FileDescriptor;
using detail::KernelPath;
using detail::throwErrno;

namespace {

/// How often a folder that somebody removes between making and opening it is made again.
constexpr int attemptsPerFolder = 16;

int openFolder(int base, char const* name) noexcept {
    return detail::uninterrupted(
        [&] { return ::openat(base, name, O_PATH | O_DIRECTORY | O_CLOEXEC); });
}

FileDescriptor openOrMakeFolder(int base, char const* name, bool last, StorageIRI const& location) {
    int error = ENOENT;
    for (int i = 0; error == ENOENT && i < attemptsPerFolder; ++i) {
        FileDescriptor folder(openFolder(base, name));
        if (folder) {
            return folder;
        }
        error = errno;
        if (error == ENOENT && ::mkdirat(base, name, 0777) != 0 && errno != EEXIST) {
            error = errno;
            break;
        }
    }
    struct stat item {};
    if (last && detail::meansAbsent(error) && detail::statItem(base, name, false, item) == 0) {
        throwErrno(EEXIST, location); // a file, or a link that leads nowhere
    }
    throwErrno(error, location);
}

} // namespace

void createLocalFolders(StorageIRI const& location) {
    // From the top, one folder at a time: the depth of the path costs no more than its length.
    std::string const path = toLocalPath(location);
    FileDescriptor folder(openFolder(AT_FDCWD, "/"));
    if (!folder) {
        throwErrno(errno, location);
    }
    std::size_t begin = path.find_first_not_of('/');
    while (begin != std::string::npos) {
        std::size_t const end = path.find('/', begin);
        std::string const name = path.substr(begin, end - begin);
        begin = end == std::string::npos ? end : path.find_first_not_of('/', end);
        folder = openOrMakeFolder(folder.get(), name.c_str(), begin == std::string::npos, location);
    }
}

void removeEmptyLocalFolder(StorageIRI const& location, bool followLinks) {
    KernelPath const path(location);
    if (::unlinkat(path.folder(), path.path(), AT_REMOVEDIR) == 0) {
        return;
    }
    int error = errno;
    struct stat own {};
    struct stat target {};
    if (error == ENOTDIR && followLinks && statItem(path, false, own) == 0 &&
        S_ISLNK(own.st_mode) && statItem(path, true, target) == 0 && S_ISDIR(target.st_mode)) {
        if (::unlinkat(path.folder(), path.path(), 0) == 0) {
            return;
        }
        error = errno;
    }
    // Some file systems say EEXIST of a folder that is not empty.
    throwErrno(error == EEXIST ? ENOTEMPTY : error, location);
}

void setLocalFolderAttributes(StorageIRI const& location,
                              extensions::FolderAttributeChange const& change) {
    KernelPath const path(location);
    FileDescriptor const folder(detail::uninterrupted([&] {
        return ::openat(path.folder(), path.path(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    }));
    struct stat item {};
    if (!folder || ::fstat(folder.get(), &item) != 0) {
        if (errno == ENOTDIR && detail::statItem(path, false, item) == 0) {
            throw Exception(ErrorCode::InvalidLocation, location);
        }
        throwErrno(errno, location);
    }
    // What is held so is changed by way of /proc, and where that is not there by its path.
    std::string const held = "/proc/self/fd/" + std::to_string(folder.get());
    auto const apply = [&](auto const& call) {
        if (call(AT_FDCWD, held.c_str(), 0) != 0 &&
            (!detail::meansAbsent(errno) ||
             call(path.folder(), path.path(), AT_SYMLINK_NOFOLLOW) != 0)) {
            throwErrno(errno, location);
        }
    };
    mode_t const wanted =
        change.mode ? (item.st_mode & 06000u) | (*change.mode & 01777u) : item.st_mode & 07777u;
    if (wanted != (item.st_mode & 07777u)) {
        apply([&](int base, char const* name, int flags) {
            return ::fchmodat(base, name, wanted, flags);
        });
    }
    if (change.lastModified || change.lastAccessed) {
        // Both are given, as one that is left out makes the kernel report read or written bytes.
        auto const timeOf = [](std::optional<Timestamp> const& time, timespec const& old) {
            return time ? timespec{time->seconds, time->nanoseconds} : old;
        };
        timespec const times[] = {timeOf(change.lastAccessed, item.st_atim),
                                  timeOf(change.lastModified, item.st_mtim)};
        apply([&](int base, char const* name, int flags) {
            return ::utimensat(base, name, times, flags);
        });
    }
}

} // namespace foundation::storage::provider::local
