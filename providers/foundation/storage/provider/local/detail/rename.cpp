#include <foundation/storage/provider/local/detail/rename.hpp>

#include <foundation/storage/provider/local/detail/kernel_path.hpp>

#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace foundation::storage::provider::local::detail {

namespace {

/// For file systems without RENAME_NOREPLACE. A link of a second name is as safe; folders, and file
/// systems without links, leave the moment between a look and the rename.
int renameByHand(int oldFolder, char const* oldPath, int newFolder, char const* newPath) noexcept {
    struct stat old {};
    if (int const error = statItem(oldFolder, oldPath, false, old)) {
        return error;
    }
    if (!S_ISDIR(old.st_mode)) {
        if (::linkat(oldFolder, oldPath, newFolder, newPath, 0) == 0) {
            if (::unlinkat(oldFolder, oldPath, 0) == 0) {
                return 0;
            }
            int const error = errno;
            ::unlinkat(newFolder, newPath, 0);
            return error;
        }
        if (errno != EPERM && errno != EOPNOTSUPP && errno != ENOSYS && errno != EMLINK) {
            return errno;
        }
    }
    struct stat existing {};
    int const error = statItem(newFolder, newPath, false, existing);
    if (error == 0) {
        return EEXIST;
    }
    return error == ENOENT ? renameReplacing(oldFolder, oldPath, newFolder, newPath) : error;
}

} // namespace

int renameWithoutReplacing(int oldFolder, char const* oldPath, int newFolder,
                           char const* newPath) noexcept {
    if (::renameat2(oldFolder, oldPath, newFolder, newPath, RENAME_NOREPLACE) == 0) {
        return 0;
    }
    // EINVAL is also the answer to moving a folder into itself; by hand the answer is the same.
    if (errno == EINVAL || errno == ENOSYS) {
        return renameByHand(oldFolder, oldPath, newFolder, newPath);
    }
    return errno;
}

int renameReplacing(int oldFolder, char const* oldPath, int newFolder,
                    char const* newPath) noexcept {
    return ::renameat(oldFolder, oldPath, newFolder, newPath) == 0 ? 0 : errno;
}

} // namespace foundation::storage::provider::local::detail
