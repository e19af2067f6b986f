#include <foundation/storage/provider/local/local_copy.hpp>

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/local/detail/content_copy.hpp>
#include <foundation/storage/provider/local/detail/failures.hpp>
#include <foundation/storage/provider/local/detail/rename.hpp>
#include <foundation/storage/provider/local/detail/same_item.hpp>
#include <foundation/storage/provider/local/detail/staged_file.hpp>
#include <foundation/storage/provider/local/local_links.hpp>
#include <foundation/storage/provider/local/local_replacement.hpp>
#include <foundation/storage/provider/local/local_stream.hpp>

#include <fcntl.h>
#include <functional>
#include <linux/magic.h>
#include <stdexcept>
#include <string_view>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <utility>

namespace foundation::storage::provider::local {

using detail::FileDescriptor;
using detail::FolderSlot;
using detail::KernelPath;
using detail::meansNotKept;
using detail::StagedFile;
using detail::throwErrno;
using extensions::SmallFileCopy;

namespace {

/// Mode and times of `item`. The set-id bits are kept where they mean the same as before, that is,
/// where the copy has the same owner. Returns whether the times were taken.
bool carryOver(struct stat const& item, int destination, StorageIRI const& location) {
    struct stat made {};
    if (::fstat(destination, &made) != 0) {
        throwErrno(errno, location);
    }
    mode_t mode = item.st_mode & 07777;
    if (made.st_uid != item.st_uid) {
        mode &= ~static_cast<mode_t>(S_ISUID);
    }
    if (made.st_gid != item.st_gid) {
        mode &= ~static_cast<mode_t>(S_ISGID);
    }
    if ((made.st_mode & 07777) != mode && ::fchmod(destination, mode) != 0 &&
        !meansNotKept(errno)) {
        throwErrno(errno, location);
    }
    struct timespec const times[] = {item.st_atim, item.st_mtim};
    if (::futimens(destination, times) == 0) {
        return true;
    }
    if (!meansNotKept(errno)) {
        throwErrno(errno, location);
    }
    return false;
}

[[noreturn]] void throwCanceled(StorageIRI const& location) {
    throw Exception(ErrorCode::IOError, location);
}

CopyStatus copyLink(KernelPath const& path, StorageIRI const& source, struct stat const& item,
                    FolderSlot const& slot, StorageIRI const& destination,
                    CopyFileOptions const& options, std::function<void()> const& check) {
    if (options.progress && !options.progress(0, 0)) {
        throwCanceled(destination);
    }
    std::string const target = linkTarget(path, source);
    struct timespec const times[] = {item.st_atim, item.st_mtim};
    auto const make = [&](char const* name) {
        if (::symlinkat(target.c_str(), slot.folder(), name) != 0) {
            return errno;
        }
        // A file system that keeps no times of links has lost nothing that could be read there.
        if (::utimensat(slot.folder(), name, times, AT_SYMLINK_NOFOLLOW) == 0 ||
            meansNotKept(errno)) {
            return 0;
        }
        int const failure = errno;
        ::unlinkat(slot.folder(), name, 0);
        return failure;
    };
    int error = make(slot.name());
    if (error == EEXIST && replaces(options.policy)) {
        check(); // something may have come there since the last look
        std::string const name = detail::temporaryName();
        error = make(name.c_str());
        if (error == 0) {
            error =
                detail::renameReplacing(slot.folder(), name.c_str(), slot.folder(), slot.name());
            if (error != 0) {
                ::unlinkat(slot.folder(), name.c_str(), 0);
            }
        }
    }
    if (error != 0) {
        throwErrno(error, destination);
    }
    // Where the caller unlocked what stood there, it locks a copy that needs nothing more again,
    // and that would lock what the new link leads to.
    return options.policy == ReplacementPolicy::ReplaceReadOnly ? CopyStatus::Copied
                                                                : CopyStatus::CopiedWithTimes;
}

/// Throws where the copy may not take the place of what is there.
void checkDestination(KernelPath const& path, StorageIRI const& source, FolderSlot const& slot,
                      StorageIRI const& destination, ReplacementPolicy policy,
                      detail::LinkPairs links) {
    struct stat existing {};
    int const error = statItem(slot, false, existing);
    if (error == 0) {
        detail::Relation relation{};
        if (int const unknown = relationOf(path, KernelPath(destination), links, relation)) {
            throwErrno(unknown, destination);
        }
        if (relation == detail::Relation::SameEntry) {
            throw Exception(ErrorCode::InvalidLocation, source);
        }
        checkReplaceable(existing, policy, destination);
    } else if (error != ENOENT) {
        throwErrno(error, destination);
    }
}

/// The complete content in a file that has no name yet, all but settled. Returns whether it has the
/// times too.
bool fill(StagedFile& staged, FileDescriptor const& from, struct stat const& item,
          StorageIRI const& source, StorageIRI const& destination, CopyProgress const& progress) {
    if (auto const failure = detail::copyContent(from.get(), item, staged.descriptor(), progress)) {
        switch (failure->where) {
        case detail::ContentCopyFailure::Where::Reading:
            throwErrno(failure->error, source);
        case detail::ContentCopyFailure::Where::Writing:
            throwErrno(failure->error, destination);
        case detail::ContentCopyFailure::Where::Canceled:
            throwCanceled(destination);
        }
    }
    return carryOver(item, staged.descriptor(), destination);
}

/// Whether closing a file of this folder says nothing that writing it did not. Of a file system
/// over a network, or one in user space, that is not known.
bool closeTellsNothing(int folder) noexcept {
    struct statfs system {};
    if (::fstatfs(folder, &system) != 0) {
        return false;
    }
    switch (static_cast<unsigned>(system.f_type)) {
    case BTRFS_SUPER_MAGIC:
    case EXT4_SUPER_MAGIC: // and ext2, ext3
    case F2FS_SUPER_MAGIC:
    case RAMFS_MAGIC:
    case TMPFS_MAGIC:
    case XFS_SUPER_MAGIC:
        return true;
    default:
        return false;
    }
}

/// Copies small files of one folder into another, both held open.
class SmallFileCopies {
  public:
    /// Throws provider::Exception.
    SmallFileCopies(StorageIRI const& from, StorageIRI const& to)
        : to_(to),
          slot_(StorageIRI(to, u"-")),
          settles_(!closeTellsNothing(slot_.folder())) {
        KernelPath const path(from);
        from_ = FileDescriptor(detail::uninterrupted([&] {
            return ::openat(path.folder(), path.path(),
                            O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        }));
        if (!from_) {
            throwErrno(errno, from);
        }
    }

    void copy(SmallFileCopy& file) {
        std::string const name = fl::i18n::ustringToStorageName(*file.name);
        if (name.find_first_of(std::string_view("/\0", 2)) != std::string::npos) {
            return;
        }
        // Not looked at before it is opened: what has bytes in it is nothing that opening harms.
        FileDescriptor const source(detail::uninterrupted([&] {
            return ::openat(from_.get(), name.c_str(),
                            O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        }));
        struct stat item {};
        if (!source || ::fstat(source.get(), &item) != 0 || !S_ISREG(item.st_mode)) {
            return;
        }
        slot_.rename(name);
        StagedFile staged(slot_, item.st_mode & 0777, to_);
        if (fill(staged, source, item, to_, to_, {}) && (!settles_ || staged.settle() == 0) &&
            staged.publish(StagedFile::Existing::Refuse) == 0) {
            file.isCopied = true;
            file.size = static_cast<std::uint64_t>(item.st_size);
        }
    }

  private:
    StorageIRI const& to_;
    FolderSlot slot_;
    bool const settles_;
    FileDescriptor from_;
};

} // namespace

CopyStatus copyLocalFile(StorageIRI const& source, StorageIRI const& destination,
                         CopyFileOptions const& options, bool followLinks) {
    KernelPath const path(source);
    struct stat item {};
    if (int const error = followLinks ? statFollowed(path, item) : statItem(path, false, item)) {
        throwErrno(error, source);
    }
    if (S_ISDIR(item.st_mode)) {
        throw Exception(ErrorCode::InvalidLocation, source);
    }
    if (!S_ISREG(item.st_mode) && !S_ISLNK(item.st_mode)) {
        throw Exception(ErrorCode::UnsupportedOperation, source);
    }

    // A look at the destination is saved where the copy costs no more than the look: giving the
    // copy its name tells whether there is anything to look at. There the folder need not be held
    // either, while nothing but that one call depends on it.
    bool const lookFirst =
        S_ISLNK(item.st_mode) || item.st_size > detail::smallFile || options.progress;
    FolderSlot slot = slotFor(destination, followLinks,
                              lookFirst ? FolderSlot::Folder::Held : FolderSlot::Folder::ByPath);
    auto const check = [&] {
        checkDestination(path, source, slot, destination, options.policy,
                         followLinks ? detail::LinkPairs::Followed : detail::LinkPairs::Themselves);
    };
    if (lookFirst) {
        check();
    }
    if (S_ISLNK(item.st_mode)) {
        return copyLink(path, source, item, slot, destination, options, check);
    }

    try {
        FileDescriptor const from =
            openRegularFile(path, source, O_RDONLY | (followLinks ? 0 : O_NOFOLLOW), item);
        // From the start no more open to others than the source is.
        StagedFile staged(slot, item.st_mode & 0777, destination);
        bool const withTimes = fill(staged, from, item, source, destination, options.progress);
        int error = staged.settle();
        if (error != 0) {
            throwErrno(error, destination);
        }
        error = staged.publish(StagedFile::Existing::Refuse);
        if (error == EEXIST) {
            check();
            error =
                replaces(options.policy) ? staged.publish(StagedFile::Existing::Replace) : error;
        }
        if (error != 0) {
            throwErrno(error, destination);
        }
        return withTimes ? CopyStatus::CopiedWithTimes : CopyStatus::Copied;
    } catch (Exception const&) {
        if (!lookFirst) {
            check(); // what is wrong with the destination comes before what is wrong with the copy
        }
        throw;
    }
}

void copySmallLocalFiles(StorageIRI const& from, StorageIRI const& to,
                         std::span<SmallFileCopy> files) {
    try {
        SmallFileCopies copies(from, to);
        for (SmallFileCopy& file : files) {
            try {
                copies.copy(file);
            } catch (Exception const&) { // NOLINT(bugprone-empty-catch)
                // It is left.
            } catch (std::range_error const&) { // NOLINT(bugprone-empty-catch)
                // No name on this disk.
            }
        }
    } catch (Exception const&) { // NOLINT(bugprone-empty-catch)
        // They are all left.
    }
}

} // namespace foundation::storage::provider::local
