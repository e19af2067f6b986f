#include <foundation/storage/provider/local/detail/kernel_path.hpp>

#include <foundation/storage/provider/local/detail/failures.hpp>
#include <foundation/storage/provider/local_path.hpp>

#include <climits>
#include <fcntl.h>
#include <string_view>

namespace foundation::storage::provider::local::detail {

namespace {

int openFolderPath(int base, char const* path) noexcept {
    return uninterrupted([&] { return ::openat(base, path, O_PATH | O_DIRECTORY | O_CLOEXEC); });
}

} // namespace

KernelPath::KernelPath(StorageIRI const& location) : text_(toLocalPath(location)) {
    while (text_.size() > 1 && text_.back() == '/') {
        text_.pop_back();
    }
    if (text_.size() >= PATH_MAX) {
        openFront(location);
    }
}

int KernelPath::folder() const noexcept {
    return front_ ? front_.get() : AT_FDCWD;
}

void KernelPath::openFront(StorageIRI const& location) {
    while (text_.size() - offset_ >= PATH_MAX) {
        std::size_t const slash = text_.rfind('/', offset_ + PATH_MAX - 1);
        if (slash == std::string::npos || slash <= offset_) {
            throwErrno(ENAMETOOLONG, location);
        }
        std::string const part = text_.substr(offset_, slash - offset_);
        FileDescriptor next(openFolderPath(folder(), part.c_str()));
        if (!next) {
            if (!meansAbsent(errno)) {
                throwErrno(errno, location);
            }
            offset_ = text_.size();
            return;
        }
        front_ = std::move(next);
        offset_ = text_.find_first_not_of('/', slash);
    }
}

FolderSlot::FolderSlot(KernelPath const& path, StorageIRI const& location)
    : FolderSlot(path.folder(), path.path(), location) {}

FolderSlot::FolderSlot(std::string const& absolutePath, StorageIRI const& location)
    : FolderSlot(AT_FDCWD, absolutePath, location) {}

FolderSlot::FolderSlot(int base, std::string const& path, StorageIRI const& location) {
    std::size_t const slash = path.rfind('/');
    std::string folder = ".";
    if (slash == std::string::npos) {
        name_ = path;
        if (path.empty()) {
            throwErrno(ENOENT, location);
        }
    } else {
        folder.assign(path, 0, slash == 0 ? 1 : slash);
        name_.assign(path, slash + 1);
        if (name_.empty()) {
            name_ = ".";
        }
    }
    folder_ = FileDescriptor(openFolderPath(base, folder.c_str()));
    if (!folder_) {
        throwErrno(errno, location);
    }
}

int statItem(int folder, char const* path, bool follow, struct stat& result) noexcept {
    int const flags = follow ? 0 : AT_SYMLINK_NOFOLLOW;
    return uninterrupted([&] { return ::fstatat(folder, path, &result, flags); }) == 0 ? 0 : errno;
}

int statFollowed(KernelPath const& path, struct stat& result) noexcept {
    int const error = statItem(path, true, result);
    if (error == 0 || error == EACCES) {
        return error;
    }
    // What failed may be the link's target and not the location itself.
    return statItem(path, false, result);
}

} // namespace foundation::storage::provider::local::detail
