#include <foundation/storage/provider/local/detail/folder_within.hpp>

#include <foundation/storage/provider/local/detail/listed_folder.hpp>

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>

namespace foundation::storage::provider::local::detail {

namespace {

constexpr int flags = readFolderFlags | O_NOFOLLOW;

/// Devices alone do not tell: a mount can show a folder of the same file system.
bool areOfOneMount(int outer, int inner) noexcept {
    struct statx a {};
    struct statx b {};
    if (::statx(outer, "", AT_EMPTY_PATH, STATX_MNT_ID, &a) != 0 ||
        ::statx(inner, "", AT_EMPTY_PATH, STATX_MNT_ID, &b) != 0) {
        return false;
    }
    bool const known = (a.stx_mask & b.stx_mask & STATX_MNT_ID) != 0;
    return known ? a.stx_mnt_id == b.stx_mnt_id
                 : a.stx_dev_major == b.stx_dev_major && a.stx_dev_minor == b.stx_dev_minor;
}

/// For kernels before 5.6, and processes that may not call openat2(2).
int openByHand(int folder, char const* name, FileDescriptor& result) noexcept {
    FileDescriptor opened(uninterrupted([&] { return ::openat(folder, name, flags); }));
    if (!opened) {
        return errno;
    }
    if (!areOfOneMount(folder, opened.get())) {
        return EXDEV;
    }
    result = std::move(opened);
    return 0;
}

} // namespace

int openFolderWithin(int folder, char const* name, FileDescriptor& result) noexcept {
    open_how how{};
    how.flags = static_cast<unsigned>(flags);
    how.resolve = RESOLVE_NO_XDEV;
    long const opened =
        uninterrupted([&] { return ::syscall(SYS_openat2, folder, name, &how, sizeof how); });
    if (opened >= 0) {
        result = FileDescriptor(static_cast<int>(opened));
        return 0;
    }
    return errno == ENOSYS || errno == EPERM ? openByHand(folder, name, result) : errno;
}

} // namespace foundation::storage::provider::local::detail
