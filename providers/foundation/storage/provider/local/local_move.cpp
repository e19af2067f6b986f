#include <foundation/storage/provider/local/local_move.hpp>

#include <foundation/network/iri.hpp>
#include <foundation/storage/provider/local/detail/ancestry.hpp>
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

/// A destination elsewhere is not wrong, it is just not to be had by renaming. What else is wrong
/// with it comes after what is wrong with the source, `sourceError`.
KernelPath destinationPath(StorageIRI const& source, int sourceError,
                           StorageIRI const& destination) {
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
        if (sourceError != 0) {
            throwErrno(sourceError, source);
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

/// Throws where the move may not take the place of `existing`.
void checkDestination(struct stat const& existing, ReplacementPolicy policy, MovedKind kind,
                      StorageIRI const& destination) {
    if (!replaces(policy)) {
        throw Exception(ErrorCode::ResourceAlreadyExists, destination);
    }
    if (S_ISDIR(existing.st_mode) != (kind == MovedKind::Folder)) {
        throw Exception(ErrorCode::InvalidLocation, destination);
    }
    if (isReadOnly(existing)) {
        throw Exception(ErrorCode::PermissionDenied, destination);
    }
}

/// The last step of moveOntoOwnName(): what stands aside gets its new name, or goes where that is
/// its name already. Something else may have come there meanwhile; it is a destination like any
/// other then.
int settleOntoOwnName(FolderSlot const& here, char const* aside, FolderSlot const& there,
                      StorageIRI const& location, ReplacementPolicy policy, MovedKind kind) {
    struct stat moved {};
    if (int const error = detail::statItem(here.folder(), aside, false, moved)) {
        return error;
    }
    struct stat existing {};
    int error = statItem(there, false, existing);
    if (error == ENOENT) {
        error = detail::renameWithoutReplacing(here.folder(), aside, there.folder(), there.name());
        if (error != EEXIST) {
            return error;
        }
        error = statItem(there, false, existing);
    }
    if (error != 0) {
        return error;
    }
    if (detail::sameInode(moved, existing)) {
        return ::unlinkat(here.folder(), aside, 0) == 0 ? 0 : errno;
    }
    checkDestination(existing, policy, kind, location);
    return detail::renameReplacing(here.folder(), aside, there.folder(), there.name());
}

/// The same file under a second name, or under a second spelling of its name: rename(2) would do
/// nothing. The name is taken away by way of another one, so that the last name of a file is never
/// removed.
void moveOntoOwnName(KernelPath const& from, StorageIRI const& source, StorageIRI const& location,
                     ReplacementPolicy policy, MovedKind kind) {
    FolderSlot const here(from, source);
    FolderSlot const there(location);
    std::string const aside = detail::temporaryName();
    if (int const error = detail::renameWithoutReplacing(here.folder(), here.name(), here.folder(),
                                                         aside.c_str())) {
        throwErrno(error, source);
    }
    auto const putBack = [&] {
        if (detail::renameWithoutReplacing(here.folder(), aside.c_str(), here.folder(),
                                           here.name()) != 0 &&
            ::linkat(here.folder(), aside.c_str(), here.folder(), here.name(), 0) == 0) {
            ::unlinkat(here.folder(), aside.c_str(), 0);
        }
    };
    int error = 0;
    try {
        error = settleOntoOwnName(here, aside.c_str(), there, location, policy, kind);
    } catch (Exception const&) {
        putBack();
        throw;
    }
    if (error != 0) {
        putBack();
        throwErrno(error, location);
    }
}

/// Moves what is to be moved, both paths being known.
void moveTo(KernelPath const& to, StorageIRI const& destination, KernelPath const& from,
            StorageIRI const& source, ReplacementPolicy policy, MovedKind kind) {
    struct stat existing {};
    if (int const error = statItem(to, false, existing); error == 0) {
        Relation relation{};
        if (int const unknown = relationOf(from, to, detail::LinkPairs::Themselves, relation)) {
            throwErrno(unknown, destination);
        }
        if (relation == Relation::SameEntry) {
            throw Exception(ErrorCode::InvalidLocation, source);
        }
        if (relation != Relation::OtherSpelling) {
            checkDestination(existing, policy, kind, destination);
        }
        if (relation != Relation::Distinct) {
            return moveOntoOwnName(from, source, destination, policy, kind);
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

/// Whether a caller may answer a refusal by copying the tree and removing the source.
bool invitesCopy(ErrorCode code) noexcept {
    return code == ErrorCode::UnsupportedOperation || code == ErrorCode::ResourceAlreadyExists ||
           code == ErrorCode::FolderNotEmpty || code == ErrorCode::PermissionDenied;
}

} // namespace

void moveLocalItem(StorageIRI const& source, StorageIRI const& destination,
                   ReplacementPolicy policy, MovedKind kind) {
    KernelPath const from(source);
    struct stat item {};
    int const sourceError = statItem(from, false, item);
    KernelPath const to = destinationPath(source, sourceError, destination);
    if (sourceError != 0) {
        throwErrno(sourceError, source);
    }
    if (S_ISDIR(item.st_mode) != (kind == MovedKind::Folder)) {
        throw Exception(ErrorCode::InvalidLocation, source);
    }

    try {
        moveTo(to, destination, from, source, policy, kind);
    } catch (Exception const& e) {
        if (kind == MovedKind::Folder && invitesCopy(e.getErrorCode()) &&
            detail::wouldCopyIntoItself(from, to)) {
            throw Exception(ErrorCode::InvalidLocation, destination);
        }
        throw;
    }
}

} // namespace foundation::storage::provider::local
