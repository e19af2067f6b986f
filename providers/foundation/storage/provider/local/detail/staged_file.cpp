#include <foundation/storage/provider/local/detail/staged_file.hpp>

#include <foundation/storage/provider/local/detail/failures.hpp>
#include <foundation/storage/provider/local/detail/rename.hpp>

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <random>
#include <sys/random.h>
#include <utility>

namespace foundation::storage::provider::local::detail {

namespace {

constexpr int temporaryNameAttempts = 16;
constexpr int settlingAttempts = 16;

/// Where a name is given to an unnamed file by a path through /proc, as older kernels need it.
bool hasDescriptorPaths() noexcept {
    static bool const there = ::access("/proc/self/fd", X_OK) == 0;
    return there;
}

int linkDescriptor(int file, int folder, char const* name) noexcept {
    if (::linkat(file, "", folder, name, AT_EMPTY_PATH) == 0) {
        return 0;
    }
    if (errno != ENOENT && errno != EPERM) {
        return errno;
    }
    char path[32];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", file);
    return ::linkat(AT_FDCWD, path, folder, name, AT_SYMLINK_FOLLOW) == 0 ? 0 : errno;
}

bool meansNoUnnamedFiles(int error) noexcept {
    return error == EOPNOTSUPP || error == EISDIR || error == EINVAL || error == ENOSYS;
}

} // namespace

std::string temporaryName() {
    std::uint64_t number = 0;
    if (::getrandom(&number, sizeof number, 0) != static_cast<ssize_t>(sizeof number)) {
        number = (std::uint64_t{std::random_device{}()} << 32) ^ std::random_device{}();
    }
    char name[40];
    std::snprintf(name, sizeof name, ".vfs-%016" PRIx64 ".part", number);
    return name;
}

StagedFile::StagedFile(FolderSlot& slot, mode_t mode, StorageIRI const& location) : slot_(slot) {
    int error = EOPNOTSUPP;
    if (hasDescriptorPaths()) {
        file_ = FileDescriptor(uninterrupted([&] {
            return ::openat(slot_.folder(), slot_.folderPath(), O_TMPFILE | O_RDWR | O_CLOEXEC,
                            mode);
        }));
        if (file_) {
            return;
        }
        error = errno;
    }
    if (!meansNoUnnamedFiles(error)) {
        throwErrno(error, location);
    }
    error = slot_.hold();
    if (error != 0) {
        throwErrno(error, location);
    }
    error = EEXIST;
    for (int i = 0; error == EEXIST && i < temporaryNameAttempts; ++i) {
        temporary_ = temporaryName();
        file_ = FileDescriptor(uninterrupted([&] {
            return ::openat(slot_.folder(), temporary_.c_str(),
                            O_CREAT | O_EXCL | O_RDWR | O_NOFOLLOW | O_CLOEXEC, mode);
        }));
        if (file_) {
            return;
        }
        error = errno;
    }
    temporary_.clear();
    throwErrno(error, location);
}

StagedFile::~StagedFile() {
    if (!temporary_.empty()) {
        ::unlinkat(slot_.folder(), temporary_.c_str(), 0);
    }
}

bool meansNoDescriptor(int error) noexcept {
    return error == EMFILE || error == ENFILE || error == ENOMEM || error == EINTR;
}

int StagedFile::settle() noexcept {
    // An interrupted close has closed, and not told what became of the content.
    int error = EINTR;
    for (int i = 0; error == EINTR && i < settlingAttempts; ++i) {
        int const second = ::fcntl(file_.get(), F_DUPFD_CLOEXEC, 0);
        if (second < 0) {
            return errno;
        }
        error = ::close(second) == 0 ? 0 : errno;
    }
    return error;
}

int StagedFile::takeTemporaryName() noexcept {
    int error = EEXIST;
    try {
        for (int i = 0; error == EEXIST && i < temporaryNameAttempts; ++i) {
            std::string name = temporaryName();
            error = linkDescriptor(file_.get(), slot_.folder(), name.c_str());
            if (error == 0) {
                temporary_ = std::move(name);
            }
        }
    } catch (std::exception const&) {
        return ENOMEM;
    }
    return error;
}

int StagedFile::publish(Existing existing) noexcept {
    if (temporary_.empty()) {
        int const error = linkDescriptor(file_.get(), slot_.folder(), slot_.name());
        if (error != EEXIST || existing == Existing::Refuse) {
            return error;
        }
        if (int const failure = slot_.hold()) {
            return failure;
        }
        if (int const failure = takeTemporaryName()) {
            return failure;
        }
    }
    auto const rename = existing == Existing::Refuse ? renameWithoutReplacing : renameReplacing;
    int const error = rename(slot_.folder(), temporary_.c_str(), slot_.folder(), slot_.name());
    if (error == 0) {
        temporary_.clear();
    }
    return error;
}

} // namespace foundation::storage::provider::local::detail
