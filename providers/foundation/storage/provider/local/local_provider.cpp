#include <foundation/storage/provider/local/local_provider.hpp>

#include <foundation/storage/provider/local/detail/failures.hpp>
#include <foundation/storage/provider/local/detail/local_attributes.hpp>
#include <foundation/storage/provider/local/detail/same_item.hpp>
#include <foundation/storage/provider/local/detail/watch_publication.hpp>
#include <foundation/storage/provider/local/local_copy.hpp>
#include <foundation/storage/provider/local/local_cursor.hpp>
#include <foundation/storage/provider/local/local_folders.hpp>
#include <foundation/storage/provider/local/local_links.hpp>
#include <foundation/storage/provider/local/local_move.hpp>
#include <foundation/storage/provider/local/local_removal.hpp>
#include <foundation/storage/provider/local/local_replacement.hpp>
#include <foundation/storage/provider/local/local_stream.hpp>
#include <foundation/storage/provider/local/local_tree_cursor.hpp>
#include <foundation/storage/provider/local_path.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/provider/streaming_copy.hpp>

#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace foundation::storage::provider::local {

using detail::FileDescriptor;
using detail::KernelPath;
using detail::throwErrno;

namespace {

/// What is there, or nothing: absence is an answer, everything else a failure.
bool findItem(KernelPath const& path, StorageIRI const& location, bool follow, struct stat& item) {
    int const error = follow ? statFollowed(path, item) : statItem(path, false, item);
    if (error != 0 && !detail::meansAbsent(error)) {
        throwErrno(error, location);
    }
    return error == 0;
}

ExtendedExistsResult kindOf(mode_t mode) noexcept {
    if (S_ISREG(mode)) {
        return ExtendedExistsResult::File;
    }
    return S_ISDIR(mode) ? ExtendedExistsResult::Folder : ExtendedExistsResult::Other;
}

struct statx attributesOf(KernelPath const& path, StorageIRI const& location) {
    struct statx item {};
    if (int const error = statxFollowed(path, detail::attributesMask, item)) {
        throwErrno(error, location);
    }
    return item;
}

/// A hold on an item, links followed, that opens nothing.
FileDescriptor openItem(KernelPath const& path, StorageIRI const& location) {
    FileDescriptor item(detail::uninterrupted(
        [&] { return ::openat(path.folder(), path.path(), O_PATH | O_CLOEXEC); }));
    if (!item) {
        int const error = errno;
        struct stat own {};
        if (error != EACCES && statItem(path, false, own) == 0 && S_ISLNK(own.st_mode)) {
            // It leads nowhere, and links have no mode of their own.
            throw Exception(ErrorCode::UnsupportedOperation, location);
        }
        throwErrno(error, location);
    }
    return item;
}

/// Changes the mode of the very item that is held, which a path may lead to no more. A held item is
/// reached by way of /proc only; without one by its path, if that still leads to it.
int changeMode(FileDescriptor const& held, KernelPath const& path, struct stat const& item,
               mode_t mode) {
    std::string const descriptor = "/proc/self/fd/" + std::to_string(held.get());
    if (::fchmodat(AT_FDCWD, descriptor.c_str(), mode, 0) == 0) {
        return 0;
    }
    if (!detail::meansAbsent(errno)) {
        return errno;
    }
    struct stat now {};
    if (int const error = statItem(path, true, now)) {
        return error;
    }
    if (!detail::sameInode(item, now)) {
        return EBUSY;
    }
    return ::fchmodat(path.folder(), path.path(), mode, 0) == 0 ? 0 : errno;
}

using Kinds = detail::ListingQuery::Kinds;
using Details = detail::ListingQuery::Details;

} // namespace

ExistsResult LocalProvider::exists(StorageIRI const& location) const {
    struct stat item {};
    if (!findItem(KernelPath(location), location, options_.followLinks, item)) {
        return ExistsResult::Nothing;
    }
    return S_ISDIR(item.st_mode) ? ExistsResult::Folder : ExistsResult::File;
}

ExtendedExistsResult LocalProvider::existsExtended(StorageIRI const& location) const {
    KernelPath const path(location);
    struct stat item {};
    if (!findItem(path, location, options_.followLinks, item)) {
        return ExtendedExistsResult::Nothing;
    }
    if (!S_ISLNK(item.st_mode)) {
        return kindOf(item.st_mode);
    }
    if (!findItem(path, location, true, item)) {
        return ExtendedExistsResult::Nothing; // removed meanwhile
    }
    if (S_ISLNK(item.st_mode)) {
        return ExtendedExistsResult::DanglingLink;
    }
    return S_ISDIR(item.st_mode) ? ExtendedExistsResult::LinkToFolder
                                 : ExtendedExistsResult::LinkToFile;
}

bool LocalProvider::fileExists(StorageIRI const& location) const {
    return exists(location) == ExistsResult::File;
}

bool LocalProvider::folderExists(StorageIRI const& location) const {
    struct stat item {};
    return findItem(KernelPath(location), location, true, item) && S_ISDIR(item.st_mode);
}

bool LocalProvider::hasFeature(StorageIRI const&, ExtendedFeature const& feature) const {
    return feature == ExtendedFeature::RecursiveFolderRemoval ||
           feature == ExtendedFeature::RecursiveListing ||
           feature == ExtendedFeature::FlatWildcardListing ||
           feature == ExtendedFeature::RecursiveChangeEvents ||
           feature == ExtendedFeature::RecursiveWildcardListing;
}

StorageIRI LocalProvider::getCanonicalLocation(StorageIRI const& location) const {
    return canonicalLocalLocation(location);
}

FileAttributes LocalProvider::getFileAttributes(StorageIRI const& location) const {
    KernelPath const path(location);
    struct statx const item = attributesOf(path, location);
    if (S_ISDIR(item.stx_mode)) {
        // A link to a folder counts as a file, with the attributes of what it leads to.
        struct stat own {};
        if (int const error = statItem(path, options_.followLinks, own)) {
            throwErrno(error, location);
        }
        if (S_ISDIR(own.st_mode)) {
            throw Exception(ErrorCode::InvalidLocation, location);
        }
    }
    return FileAttributes(detail::attributeValuesOf(item));
}

FolderAttributes LocalProvider::getFolderAttributes(StorageIRI const& location) const {
    struct statx const item = attributesOf(KernelPath(location), location);
    if (!S_ISDIR(item.stx_mode)) {
        throwErrno(ENOTDIR, location);
    }
    return FolderAttributes(detail::attributeValuesOf(item));
}

ExtendedAttributes LocalProvider::getExtendedAttributes(StorageIRI const& location) const {
    return detail::readExtendedAttributes(KernelPath(location), location);
}

void LocalProvider::setLastModified(StorageIRI const& location,
                                    boost::posix_time::ptime const& time) {
    Timestamp const stamp = toTimestamp(time);
    KernelPath const path(location);
    auto const set = [&](int flags) {
        // The time of access is given too, as it is: without it the kernel reports written bytes.
        struct stat item {};
        if (::fstatat(path.folder(), path.path(), &item, flags) != 0) {
            return false;
        }
        timespec const times[] = {item.st_atim, {stamp.seconds, stamp.nanoseconds}};
        return ::utimensat(path.folder(), path.path(), times, flags) == 0;
    };
    // The time of a link that leads nowhere is its own.
    bool const isSet = set(0) || ((errno == ENOENT || errno == ENOTDIR || errno == ELOOP) &&
                                  set(AT_SYMLINK_NOFOLLOW));
    if (!isSet) {
        throwErrno(errno, location);
    }
}

void LocalProvider::setWritable(StorageIRI const& location, bool writable) {
    KernelPath const path(location);
    FileDescriptor const file = openItem(path, location);
    struct stat item {};
    if (::fstat(file.get(), &item) != 0) {
        throwErrno(errno, location);
    }
    mode_t const old = item.st_mode & 07777;
    mode_t const wanted =
        writable ? old | S_IWUSR : old & ~static_cast<mode_t>(S_IWUSR | S_IWGRP | S_IWOTH);
    if (wanted != old) {
        if (int const error = changeMode(file, path, item, wanted)) {
            throwErrno(error, location);
        }
    }
}

void LocalProvider::setFolderAttributes(StorageIRI const& location,
                                        extensions::FolderAttributeChange const& change) {
    setLocalFolderAttributes(location, change);
}

void LocalProvider::createFile(StorageIRI const& location) {
    KernelPath const path(location);
    FileDescriptor file(detail::uninterrupted([&] {
        return ::openat(path.folder(), path.path(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666);
    }));
    if (!file) {
        throwErrno(errno, location);
    }
    if (int const error = file.close()) {
        throwErrno(error, location);
    }
}

void LocalProvider::createFolder(StorageIRI const& location) {
    KernelPath const path(location);
    if (::mkdirat(path.folder(), path.path(), 0777) != 0) {
        throwErrno(errno, location);
    }
}

void LocalProvider::createFolderRecursive(StorageIRI const& location) {
    createLocalFolders(location);
}

void LocalProvider::removeFile(StorageIRI const& location) {
    KernelPath const path(location);
    if (::unlinkat(path.folder(), path.path(), 0) != 0) {
        throwErrno(errno, location);
    }
}

void LocalProvider::removeFolder(StorageIRI const& location) {
    removeEmptyLocalFolder(location, options_.followLinks);
}

void LocalProvider::removeFolderRecursively(StorageIRI const& location) {
    removeLocalTree(location, options_.followLinks);
}

CopyStatus LocalProvider::copyFile(StorageIRI const& source, StorageItem const& destination,
                                   CopyFileOptions const& options) {
    if (dynamic_cast<LocalProvider const*>(destination.getProvider().get()) == nullptr) {
        return copyFileByStreams(*this, source, destination, options);
    }
    return copyLocalFile(source, destination.getLocation(), options, options_.followLinks);
}

void LocalProvider::copySmallFiles(StorageIRI const& from, StorageIRI const& to,
                                   std::span<extensions::SmallFileCopy> files) {
    if (!options_.followLinks) {
        copySmallLocalFiles(from, to, files);
    }
}

void LocalProvider::moveFile(StorageIRI const& source, StorageIRI const& destination,
                             ReplacementPolicy const& policy) {
    moveLocalItem(source, destination, policy, MovedKind::File);
}

void LocalProvider::moveFolder(StorageIRI const& source, StorageIRI const& destination,
                               ReplacementPolicy const& policy) {
    moveLocalItem(source, destination, policy, MovedKind::Folder);
}

std::unique_ptr<ByteStream> LocalProvider::openStream(StorageIRI const& location,
                                                      ByteStreamOpenOptions const& options) {
    return openWithOptions(location, options);
}

std::unique_ptr<ByteStream> LocalProvider::openReadOnlyStream(StorageIRI const& location) const {
    return openForReading(location);
}

std::unique_ptr<IFolderEntryIterator> LocalProvider::listAll(StorageIRI const& location,
                                                             ustring const& filter) const {
    return listLocalFolder(location,
                           {Kinds::All, Details::Attributes, options_.followLinks, filter});
}

std::unique_ptr<IFolderEntryIterator> LocalProvider::listFiles(StorageIRI const& location,
                                                               ustring const& filter) const {
    return listLocalFolder(location,
                           {Kinds::Files, Details::Attributes, options_.followLinks, filter});
}

std::unique_ptr<IFolderEntryIterator> LocalProvider::listFolders(StorageIRI const& location,
                                                                 ustring const& filter) const {
    return listLocalFolder(location,
                           {Kinds::Folders, Details::Attributes, options_.followLinks, filter});
}

std::unique_ptr<IFolderEntryIterator> LocalProvider::listAllNamesOnly(StorageIRI const& location,
                                                                      ustring const& filter) const {
    return listLocalFolder(location, {Kinds::All, Details::Names, options_.followLinks, filter});
}

std::unique_ptr<IFolderEntryIterator>
LocalProvider::listFilesNamesOnly(StorageIRI const& location, ustring const& filter) const {
    return listLocalFolder(location, {Kinds::Files, Details::Names, options_.followLinks, filter});
}

std::unique_ptr<IFolderEntryIterator>
LocalProvider::listFoldersNamesOnly(StorageIRI const& location, ustring const& filter) const {
    return listLocalFolder(location,
                           {Kinds::Folders, Details::Names, options_.followLinks, filter});
}

std::unique_ptr<IFolderEntryIterator> LocalProvider::listAllRecursive(StorageIRI const& location,
                                                                      ustring const& filter) const {
    return listLocalTree(location, {Kinds::All, Details::Attributes, options_.followLinks, filter});
}

std::unique_ptr<IFolderEntryIterator>
LocalProvider::listAllRecursiveNamesOnly(StorageIRI const& location, ustring const& filter) const {
    return listLocalTree(location, {Kinds::All, Details::Names, options_.followLinks, filter});
}

void LocalProvider::publishFileEvents(StorageIRI const& location, ChangeCallback callback,
                                      ChangeKinds const& kinds) {
    watch_.publish(location, std::move(callback), kinds, detail::WatchScope::File);
}

void LocalProvider::publishFolderEvents(StorageIRI const& location, ChangeCallback callback,
                                        ChangeKinds const& kinds, RecursiveFileWatching recursive) {
    watch_.publish(location, std::move(callback), kinds,
                   recursive == RecursiveFileWatching::Recursive ? detail::WatchScope::Tree
                                                                 : detail::WatchScope::Folder);
}

void LocalProvider::stopPublishingFileEvents(StorageIRI const& location) {
    watch_.stop(location, false);
}

void LocalProvider::stopPublishingFolderEvents(StorageIRI const& location) {
    watch_.stop(location, true);
}

ustring LocalProvider::readLink(StorageIRI const& location) const {
    return readLocalLink(location);
}

void LocalProvider::createLink(StorageIRI const& location, ustring const& target) {
    createLocalLink(location, target);
}

std::unique_ptr<ByteStream> LocalProvider::openReplacement(StorageIRI const& location,
                                                           ReplacementPolicy const& policy) {
    return openReplacementStream(location, policy, options_.followLinks);
}

} // namespace foundation::storage::provider::local
