#include <foundation/storage/provider/local/detail/rename.hpp>

#include <foundation/storage/provider/local/detail/ancestry.hpp>
#include <foundation/storage/provider/local/detail/kernel_path.hpp>
#include <foundation/storage/provider/local/detail/same_item.hpp>

#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace foundation::storage::provider::local::detail {

namespace {

/// Removes a name that this process gave, unless another item has it by now.
void removeOwn(int folder, char const* path, struct stat const& own) noexcept {
    struct stat now {};
    if (statItem(folder, path, false, now) == 0 && sameInode(now, own)) {
        ::unlinkat(folder, path, S_ISDIR(own.st_mode) ? AT_REMOVEDIR : 0);
    }
}

/// The file has the new name; now its old one goes.
int removeOldName(int oldFolder, char const* oldPath, struct stat const& old, int newFolder,
                  char const* newPath) noexcept {
    if (::unlinkat(oldFolder, oldPath, 0) == 0) {
        return 0;
    }
    int const error = errno;
    struct stat now {};
    if (error == ENOENT && statItem(newFolder, newPath, false, now) == 0 && now.st_nlink == 1) {
        return 0; // somebody else removed it, and the new name is the last one
    }
    removeOwn(newFolder, newPath, old);
    return error;
}

/// Whether a path lies in a folder, which then cannot go there.
bool liesIn(int folder, char const* path, struct stat const& outer) noexcept {
    char const* const slash = std::strrchr(path, '/');
    char parent[PATH_MAX] = ".";
    if (slash != nullptr) {
        std::size_t const size = slash == path ? 1 : static_cast<std::size_t>(slash - path);
        if (size >= sizeof parent) {
            return false;
        }
        std::memcpy(parent, path, size);
        parent[size] = '\0';
    }
    FileDescriptor at(::openat(folder, parent, O_PATH | O_DIRECTORY | O_CLOEXEC));
    return levelsBelow(std::move(at), outer).has_value();
}

/// Takes a name that nothing has, with an item of the kind that may be renamed over.
int takeName(int folder, char const* path, bool forFolder, struct stat& taken) noexcept {
    int error = 0;
    if (forFolder) {
        if (::mkdirat(folder, path, 0700) != 0) {
            return errno;
        }
        error = statItem(folder, path, false, taken);
    } else {
        FileDescriptor const file(uninterrupted(
            [&] { return ::openat(folder, path, O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600); }));
        if (!file) {
            return errno;
        }
        error = uninterrupted([&] { return ::fstat(file.get(), &taken); }) == 0 ? 0 : errno;
    }
    if (error != 0) {
        ::unlinkat(folder, path, forFolder ? AT_REMOVEDIR : 0);
    }
    return error;
}

/// For file systems without RENAME_NOREPLACE. A link of a second name is as safe; for folders, and
/// on file systems without links, the name is taken first, and what took it is renamed over.
int renameByHand(int oldFolder, char const* oldPath, int newFolder, char const* newPath) noexcept {
    struct stat old {};
    if (int const error = statItem(oldFolder, oldPath, false, old)) {
        return error;
    }
    bool const isFolder = S_ISDIR(old.st_mode);
    if (isFolder && liesIn(newFolder, newPath, old)) {
        return EINVAL;
    }
    if (!isFolder) {
        if (::linkat(oldFolder, oldPath, newFolder, newPath, 0) == 0) {
            return removeOldName(oldFolder, oldPath, old, newFolder, newPath);
        }
        if (errno != EPERM && errno != EOPNOTSUPP && errno != ENOSYS && errno != EMLINK) {
            return errno;
        }
    }
    struct stat taken {};
    if (int const error = takeName(newFolder, newPath, isFolder, taken)) {
        return error;
    }
    int const error = renameReplacing(oldFolder, oldPath, newFolder, newPath);
    if (error != 0) {
        removeOwn(newFolder, newPath, taken);
    }
    return error == ENOTEMPTY ? EEXIST : error;
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
