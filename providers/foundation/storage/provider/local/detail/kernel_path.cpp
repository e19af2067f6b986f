#include <foundation/storage/provider/local/detail/kernel_path.hpp>

#include <foundation/storage/provider/local/detail/failures.hpp>
#include <foundation/storage/provider/local_path.hpp>

#include <climits>
#include <fcntl.h>
#include <utility>

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

FolderSlot::FolderSlot(KernelPath const& path, StorageIRI const& location, Folder folder)
    : FolderSlot(path.folder(), path.path(), location,
                 path.folder() == AT_FDCWD ? folder : Folder::Held) {}

FolderSlot::FolderSlot(std::string const& absolutePath, StorageIRI const& location, Folder folder)
    : FolderSlot(AT_FDCWD, absolutePath, location, folder) {}

FolderSlot::FolderSlot(int base, std::string path, StorageIRI const& location, Folder folder)
    : path_(std::move(path)),
      parent_(".") {
    std::size_t const slash = path_.rfind('/');
    if (slash == std::string::npos) {
        if (path_.empty()) {
            throwErrno(ENOENT, location);
        }
    } else {
        parent_.assign(path_, 0, slash == 0 ? 1 : slash);
        if (slash + 1 == path_.size()) {
            path_ += '.';
        }
        name_ = slash + 1;
    }
    if (folder == Folder::Held) {
        if (int const error = open(base)) {
            throwErrno(error, location);
        }
    }
}

int FolderSlot::open(int base) noexcept {
    folder_ = FileDescriptor(openFolderPath(base, parent_.c_str()));
    return folder_ ? 0 : errno;
}

int FolderSlot::hold() noexcept {
    return folder_ ? 0 : open(AT_FDCWD);
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
