#include <foundation/storage/provider/local/local_replacement.hpp>

#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/local/detail/failures.hpp>
#include <foundation/storage/provider/local/detail/staged_file.hpp>
#include <foundation/storage/provider/local/local_stream.hpp>

#include <cstdlib>
#include <optional>
#include <sys/stat.h>
#include <utility>

namespace foundation::storage::provider::local {

using detail::FolderSlot;
using detail::KernelPath;
using detail::StagedFile;
using detail::throwErrno;

namespace {

/// What has the final name, if anything has and it may be replaced.
std::optional<struct stat> checkDestination(FolderSlot const& slot, ReplacementPolicy policy,
                                            StorageIRI const& location) {
    struct stat existing {};
    int const error = statItem(slot, false, existing);
    if (error == ENOENT) {
        return std::nullopt;
    }
    if (error != 0) {
        throwErrno(error, location);
    }
    checkReplaceable(existing, policy, location);
    return existing;
}

class ReplacementStream final : public ByteStream, public extensions::INewFileAttributes {
  public:
    /// `old` is the file that stands there, if one does. Until the new content takes its mode over,
    /// it is nobody else's to read.
    ReplacementStream(FolderSlot slot, std::optional<struct stat> const& old,
                      StorageIRI const& location, ReplacementPolicy policy)
        : location_(location),
          policy_(policy),
          old_(old),
          slot_(std::move(slot)),
          staged_(slot_, old ? 0600 : 0666, location),
          io_(staged_.descriptor(), StreamAccess::ReadWrite) {}

    long read(char* buffer, long count) override { return io_.read(buffer, count); }
    long write(char const* buffer, long count) override {
        settled_ = false;
        return io_.write(buffer, count);
    }
    long seek(long offset, std::ios_base::seekdir way) override { return io_.seek(offset, way); }

    void setNewFileAttributes(extensions::NewFileAttributes const& attributes) override {
        attributes_ = attributes;
    }

    void close() override {
        io_.checkBeforeClose();
        if (!settled_) {
            if (int const error = staged_.settle()) {
                if (detail::meansNoDescriptor(error)) {
                    refuse(reasonOf(error), errorCodeOfErrno(error));
                }
                io_.failClose(error);
            }
            settled_ = true;
        }
        publish();
        io_.markClosed();
    }

  private:
    /// May be tried again, also after more was written: a failure here leaves the new content as it
    /// is, and poisons nothing.
    void publish() {
        try {
            if (auto const now = checkDestination(slot_, policy_, location_);
                now && S_ISREG(now->st_mode)) {
                old_ = now;
            }
        } catch (Exception const& e) {
            refuse(e.getErrorCode() == ErrorCode::ResourceAlreadyExists ? reasonOf(EEXIST)
                   : e.getErrorCode() == ErrorCode::PermissionDenied
                       ? "Permission denied: the file is read-only"
                       : "the file cannot be replaced",
                   e.getErrorCode());
        }
        // The mode also of one that is gone by now: it is what was meant.
        int error = old_ ? takeOver(*old_) : takeNewMode();
        if (error == 0) {
            error = takeNewTime();
        }
        if (error == 0) {
            error = staged_.publish(replaces(policy_) ? StagedFile::Existing::Replace
                                                      : StagedFile::Existing::Refuse);
        }
        if (error != 0) {
            refuse(reasonOf(error), errorCodeOfErrno(error));
        }
    }

    /// Owner first: a change of owner clears the set-id bits. A set-id bit stays only with the
    /// owner or group that it stands for, and a group that the old file did not have may do no more
    /// than it could do there, among the others. The error number, or 0 also where the file system
    /// keeps no permissions.
    int takeOver(struct stat const& old) noexcept {
        int const file = staged_.descriptor();
        auto const fails = [](int result) {
            // EACCES: some file systems in user space say so where others say EPERM.
            return result != 0 && errno != EACCES && !detail::meansNotKept(errno);
        };
        int const given = ::fchown(file, old.st_uid, old.st_gid);
        if (fails(given) ||
            (given != 0 && fails(::fchown(file, static_cast<uid_t>(-1), old.st_gid)))) {
            return errno;
        }
        struct stat made {};
        if (::fstat(file, &made) != 0) {
            return errno;
        }
        mode_t mode = old.st_mode & 07777;
        if (made.st_uid != old.st_uid) {
            mode &= ~static_cast<mode_t>(S_ISUID);
        }
        if (made.st_gid != old.st_gid) {
            mode &= ~static_cast<mode_t>(S_ISGID | S_IRWXG);
            mode |= (mode & S_IRWXO) << 3;
        }
        return fails(::fchmod(file, mode)) ? errno : 0;
    }

    int takeNewMode() const noexcept {
        constexpr mode_t permissions = 0777;
        bool const fails = attributes_.mode &&
                           ::fchmod(staged_.descriptor(),
                                    static_cast<mode_t>(*attributes_.mode) & permissions) != 0 &&
                           !detail::meansNotKept(errno);
        return fails ? errno : 0;
    }

    int takeNewTime() const noexcept {
        if (!attributes_.lastModified) {
            return 0;
        }
        struct timespec const times[] = {
            {0, UTIME_OMIT},
            {attributes_.lastModified->seconds, attributes_.lastModified->nanoseconds}};
        bool const fails =
            ::futimens(staged_.descriptor(), times) != 0 && !detail::meansNotKept(errno);
        return fails ? errno : 0;
    }

    [[noreturn]] static void refuse(std::string const& reason, ErrorCode code) {
        throw ByteStreamCloseFailure("close: " + reason, code);
    }

    StorageIRI location_;
    ReplacementPolicy policy_;
    std::optional<struct stat> old_;
    FolderSlot slot_;
    StagedFile staged_;
    DescriptorIo io_;
    extensions::NewFileAttributes attributes_;
    bool settled_ = false;
};

} // namespace

bool isReadOnly(struct stat const& item) noexcept {
    return !S_ISLNK(item.st_mode) && (item.st_mode & S_IWUSR) == 0;
}

void checkReplaceable(struct stat const& existing, ReplacementPolicy policy,
                      StorageIRI const& location) {
    if (!replaces(policy)) {
        throw Exception(ErrorCode::ResourceAlreadyExists, location);
    }
    if (S_ISDIR(existing.st_mode)) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    if (!S_ISREG(existing.st_mode) && !S_ISLNK(existing.st_mode)) {
        throw Exception(ErrorCode::UnsupportedOperation, location);
    }
    if (isReadOnly(existing)) {
        throw Exception(ErrorCode::PermissionDenied, location);
    }
}

FolderSlot slotFor(StorageIRI const& location, bool followLinks, FolderSlot::Folder folder) {
    KernelPath const path(location);
    if (followLinks) {
        struct stat item {};
        if (statItem(path, false, item) == 0 && S_ISLNK(item.st_mode)) {
            std::unique_ptr<char, decltype(&std::free)> const real(
                ::realpath(path.text().c_str(), nullptr), &std::free);
            if (real) {
                return FolderSlot(std::string(real.get()), location, folder);
            }
        }
    }
    return FolderSlot(path, location, folder);
}

std::unique_ptr<ByteStream> openReplacementStream(StorageIRI const& location,
                                                  ReplacementPolicy policy, bool followLinks) {
    FolderSlot slot = slotFor(location, followLinks);
    std::optional<struct stat> old = checkDestination(slot, policy, location);
    if (old && !S_ISREG(old->st_mode)) {
        old.reset(); // a link has no mode to take over
    }
    return std::make_unique<ReplacementStream>(std::move(slot), old, location, policy);
}

} // namespace foundation::storage::provider::local
