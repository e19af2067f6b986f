#include <foundation/storage/provider/local/detail/local_attributes.hpp>

#include <foundation/storage/provider/local/detail/failures.hpp>

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <sys/sysmacros.h>
#include <sys/xattr.h>

namespace foundation::storage::provider::local::detail {

namespace {

Timestamp timestampOf(struct statx_timestamp const& time) noexcept {
    return {time.tv_sec, static_cast<std::int32_t>(time.tv_nsec)};
}

std::string octal(unsigned mode) {
    char text[8];
    std::snprintf(text, sizeof text, "%04o", mode & 07777U);
    return text;
}

/// A call that fills a buffer and says how much it needs, repeated until both agree: what is read
/// may grow in between.
template<class Call>
int readGrowing(std::string& buffer, Call const& call) {
    for (;;) {
        ssize_t const needed = call(nullptr, 0);
        if (needed < 0) {
            return errno;
        }
        buffer.resize(static_cast<std::size_t>(needed));
        if (needed == 0) {
            return 0;
        }
        ssize_t const got = call(buffer.data(), buffer.size());
        if (got >= 0) {
            buffer.resize(static_cast<std::size_t>(got));
            return 0;
        }
        if (errno != ERANGE) {
            return errno;
        }
    }
}

/// File systems without user attributes, and a link that leads nowhere, have none.
bool meansNoAttributes(int error) noexcept {
    return error == EOPNOTSUPP || error == ENOSYS || error == ELOOP || meansAbsent(error);
}

/// Who may list attributes may not read them all, and one may go after it was listed. The question
/// is for those that can be had.
bool meansUnreadable(int error) noexcept {
    return error == EACCES || error == EPERM || error == ENODATA || error == E2BIG ||
           meansNoAttributes(error);
}

/// A path for the calls that know no folder descriptors.
class PlainPath {
  public:
    explicit PlainPath(KernelPath const& path) : path_(path.path()) {
        if (path.folder() == AT_FDCWD) {
            return;
        }
        item_ = FileDescriptor(::openat(path.folder(), path.path(), O_PATH | O_CLOEXEC));
        if (!item_) {
            error_ = errno;
            return;
        }
        path_ = "/proc/self/fd/" + std::to_string(item_.get());
    }
    /// Why there is no such path, or 0.
    int error() const noexcept { return error_; }
    char const* get() const noexcept { return path_.c_str(); }

  private:
    FileDescriptor item_;
    int error_ = 0;
    std::string path_;
};

void addUserAttributes(ExtendedAttributes& result, KernelPath const& path,
                       StorageIRI const& location) {
    PlainPath const plain(path);
    std::string names;
    int error = plain.error();
    if (error == 0) {
        error = readGrowing(names, [&](char* buffer, std::size_t size) {
            return ::listxattr(plain.get(), buffer, size);
        });
    }
    if (meansNoAttributes(error)) {
        return;
    }
    if (error != 0) {
        throwErrno(error, location);
    }
    std::string_view rest = names;
    while (!rest.empty()) {
        std::string const name(rest.substr(0, rest.find('\0')));
        rest.remove_prefix(std::min(name.size() + 1, rest.size())); // the last may be unfinished
        if (!name.starts_with("user.")) {
            continue;
        }
        std::string value;
        error = readGrowing(value, [&](char* buffer, std::size_t size) {
            return ::getxattr(plain.get(), name.c_str(), buffer, size);
        });
        if (error == 0) {
            result.emplace(name, std::move(value));
        } else if (!meansUnreadable(error)) {
            throwErrno(error, location);
        }
    }
}

} // namespace

AttributeValues attributeValuesOf(struct statx const& item) noexcept {
    AttributeValues values;
    values.lastModified = timestampOf(item.stx_mtime);
    values.lastAccessed = timestampOf(item.stx_atime);
    if ((item.stx_mask & STATX_BTIME) != 0) {
        values.created = timestampOf(item.stx_btime);
    }
    values.size = item.stx_size;
    values.mode = item.stx_mode & 07777U;
    values.writable = (item.stx_mode & S_IWUSR) != 0;
    return values;
}

int statxFollowed(KernelPath const& path, unsigned mask, struct statx& result) noexcept {
    auto const ask = [&](int flags) {
        return uninterrupted(
                   [&] { return ::statx(path.folder(), path.path(), flags, mask, &result); }) == 0
                   ? 0
                   : errno;
    };
    int const error = ask(0);
    return error == 0 || error == EACCES ? error : ask(AT_SYMLINK_NOFOLLOW);
}

ExtendedAttributes readExtendedAttributes(KernelPath const& path, StorageIRI const& location) {
    struct statx item {};
    if (int const error = statxFollowed(path, STATX_BASIC_STATS, item)) {
        throwErrno(error, location);
    }
    ExtendedAttributes result{
        {"posix.mode", octal(item.stx_mode)},
        {"posix.uid", std::to_string(item.stx_uid)},
        {"posix.gid", std::to_string(item.stx_gid)},
        {"posix.inode", std::to_string(item.stx_ino)},
        {"posix.device",
         std::to_string(item.stx_dev_major) + ':' + std::to_string(item.stx_dev_minor)},
        {"posix.links", std::to_string(item.stx_nlink)},
    };
    addUserAttributes(result, path, location);
    return result;
}

} // namespace foundation::storage::provider::local::detail
