#include <foundation/storage/provider/local/detail/listed_folder.hpp>

#include <foundation/storage/provider/local/detail/failures.hpp>
#include <foundation/storage/provider/local/detail/kernel_path.hpp>

#include <cstring>
#include <ctime>
#include <string_view>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace foundation::storage::provider::local::detail {

namespace {

/// A folder that is older than this was not made within the same step of its file system's clock
/// as one that takes its place from now on: the coarsest clocks have steps of two seconds.
constexpr std::int64_t settledAfter = 3; // seconds

bool isSettled(struct statx const& folder) noexcept {
    timespec now{};
    return (folder.stx_mask & STATX_BTIME) != 0 &&
           ::clock_gettime(CLOCK_REALTIME_COARSE, &now) == 0 &&
           folder.stx_btime.tv_sec < now.tv_sec - settledAfter;
}

/// AT_HANDLE_FID, since Linux 6.5: a handle to be compared only, which every file system has.
constexpr int handleToCompare = 0x200;

/// FNV-1a of the handle of an open folder, which has the generation of its number; 0 where the file
/// system has no handles.
std::uint64_t handleHashOf(int folder) noexcept {
    constexpr unsigned longest = MAX_HANDLE_SZ;
    alignas(file_handle) char space[sizeof(file_handle) + longest] = {};
    auto* const handle = reinterpret_cast<file_handle*>(space);
    handle->handle_bytes = longest;
    int mount = 0;
    auto const get = [&](int flags) {
        return ::name_to_handle_at(folder, "", handle, &mount, AT_EMPTY_PATH | flags) == 0;
    };
    if (!get(handleToCompare) && (errno != EINVAL || !get(0))) {
        return 0;
    }
    std::string_view const bytes(space, sizeof(file_handle) + handle->handle_bytes);
    std::uint64_t hash = 0xCBF29CE484222325;
    for (char const byte : bytes) {
        hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
    }
    return hash != 0 ? hash : 1;
}

int ask(int folder, struct statx& result) noexcept {
    return ::statx(folder, "", AT_EMPTY_PATH, STATX_INO | STATX_BTIME, &result) == 0 ? 0 : errno;
}

FolderIdentity identityOf(struct statx const& folder) noexcept {
    std::uint64_t created = 0;
    if ((folder.stx_mask & STATX_BTIME) != 0) {
        created = static_cast<std::uint64_t>(folder.stx_btime.tv_sec) * 1'000'000'000 +
                  folder.stx_btime.tv_nsec;
    }
    return {makedev(folder.stx_dev_major, folder.stx_dev_minor), folder.stx_ino, created, 0};
}

} // namespace

int identifyBriefly(int folder, FolderIdentity& result) noexcept {
    struct statx item {};
    int const error = ask(folder, item);
    if (error == 0) {
        result = identityOf(item);
    }
    return error;
}

int identify(int folder, FolderIdentity& result) noexcept {
    struct statx item {};
    if (int const error = ask(folder, item)) {
        return error;
    }
    result = identityOf(item);
    if (!isSettled(item)) {
        result.handleHash = handleHashOf(folder);
    }
    return 0;
}

std::optional<ErrorCode> checkIdentity(int folder, FolderIdentity const& identity) noexcept {
    struct statx item {};
    if (int const error = ask(folder, item)) {
        return errorCodeOfErrno(error);
    }
    bool const same = identityOf(item).looksLike(identity) &&
                      (identity.handleHash == 0 || identity.handleHash == handleHashOf(folder));
    return same ? std::nullopt : std::optional(ErrorCode::ResourceNotFound);
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
    if (auto const failure = checkIdentity(folder, identity)) {
        return failure;
    }
    if (!chunk.isLast() && ::lseek(folder, chunk.resumeAt(), SEEK_SET) < 0) {
        return errorCodeOfErrno(errno);
    }
    return std::nullopt;
}

} // namespace foundation::storage::provider::local::detail
