#include <foundation/storage/provider/local/local_move.hpp>

#include <foundation/network/iri.hpp>
#include <foundation/storage/provider/local/detail/failures.hpp>
#include <foundation/storage/provider/local/detail/rename.hpp>
#include <foundation/storage/provider/local/detail/same_item.hpp>
#include <foundation/storage/provider/local/detail/staged_file.hpp>
#include <foundation/storage/provider/local/local_replacement.hpp>

#include <fcntl.h>
#include <sys/stat.h>

namespace foundation::storage::provider::local {

using detail::FolderSlot;
using detail::KernelPath;
using detail::Relation;
using detail::throwErrno;

namespace {

/// A destination elsewhere is not wrong, it is just not to be had by renaming.
KernelPath destinationPath(StorageIRI const& source, StorageIRI const& destination) {
    if (source.getSchemeView() != destination.getSchemeView()) {
        throw Exception(ErrorCode::UnsupportedOperation, destination);
    }
    try {
        return KernelPath(destination);
    } catch (Exception const& e) {
        if (e.getErrorCode() == ErrorCode::InvalidLocation && !destination.hasInnerIRI()) {
            auto const iri = destination.toIRI();
            if (iri.args().hasHost && !iri.args().host.empty()) {
                throw Exception(ErrorCode::UnsupportedOperation, destination);
            }
        }
        throw;
    }
}

/// The code and the location of a failed rename. The kernel does not say which of the two folders
/// refused, or is missing.
[[noreturn]] void throwRenameFailure(int error, KernelPath const& from, StorageIRI const& source,
                                     StorageIRI const& destination) {
    struct stat item {};
    if (int const gone = statItem(from, false, item)) {
        throwErrno(gone, source);
    }
    if (error == EACCES || error == EPERM) {
        FolderSlot const slot(from, source);
        if (::faccessat(slot.folder(), ".", W_OK | X_OK, AT_EACCESS) != 0) {
            throwErrno(error, source);
        }
    }
    // Some file systems say EEXIST of a folder that is not empty.
    throwErrno(error == EEXIST && S_ISDIR(item.st_mode) ? ENOTEMPTY : error, destination);
}

/// The same file under a second name, or under a second spelling of its name: rename(2) would do
/// nothing. The name is taken away by way of another one, so that the last name of a file is never
/// removed.
void moveOntoOwnName(KernelPath const& from, StorageIRI const& source, StorageIRI const& location) {
    FolderSlot const here(from, source);
    FolderSlot const there(location);
    std::string const aside = detail::temporaryName();
    if (int const error = detail::renameWithoutReplacing(here.folder(), here.name(), here.folder(),
                                                         aside.c_str())) {
        throwErrno(error, source);
    }
    struct stat item {};
    int error = statItem(there, false, item);
    if (error == 0) {
        error = ::unlinkat(here.folder(), aside.c_str(), 0) == 0 ? 0 : errno;
    } else if (error == ENOENT) {
        error = detail::renameWithoutReplacing(here.folder(), aside.c_str(), there.folder(),
                                               there.name());
    }
    if (error != 0) {
        detail::renameWithoutReplacing(here.folder(), aside.c_str(), here.folder(), here.name());
        throwErrno(error, location);
    }
}

} // namespace

void moveLocalItem(StorageIRI const& source, StorageIRI const& destination,
                   ReplacementPolicy policy, MovedKind kind) {
    KernelPath const from(source);
    KernelPath const to = destinationPath(source, destination);
    bool const folder = kind == MovedKind::Folder;

    struct stat item {};
    if (int const error = statItem(from, false, item)) {
        throwErrno(error, source);
    }
    if (S_ISDIR(item.st_mode) != folder) {
        throw Exception(ErrorCode::InvalidLocation, source);
    }

    struct stat existing {};
    if (int const error = statItem(to, false, existing); error == 0) {
        Relation const relation = relationOf(from, to);
        if (relation == Relation::SameEntry) {
            throw Exception(ErrorCode::InvalidLocation, source);
        }
        if (relation == Relation::OtherSpelling) {
            return moveOntoOwnName(from, source, destination);
        }
        if (!replaces(policy)) {
            throw Exception(ErrorCode::ResourceAlreadyExists, destination);
        }
        if (S_ISDIR(existing.st_mode) != folder) {
            throw Exception(ErrorCode::InvalidLocation, destination);
        }
        if (isReadOnly(existing)) {
            throw Exception(ErrorCode::PermissionDenied, destination);
        }
        if (relation == Relation::HardLink) {
            return moveOntoOwnName(from, source, destination);
        }
    } else if (error != ENOENT) {
        throwErrno(error, destination);
    }

    auto const rename = replaces(policy) ? detail::renameReplacing : detail::renameWithoutReplacing;
    int const error = rename(from.folder(), from.path(), to.folder(), to.path());
    if (error == EEXIST && !replaces(policy)) {
        throwErrno(error, destination);
    }
    if (error != 0) {
        throwRenameFailure(error, from, source, destination);
    }
}

} // namespace foundation::storage::provider::local
