#include <foundation/storage/vfs/resources/folder.hpp>

#include <foundation/storage/vfs/errors/detail/translated.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/walking/detail/entry_deletion_visitor.hpp>
#include <foundation/storage/vfs/walking/detail/folder_copy_visitor.hpp>
#include <foundation/storage/vfs/walking/walk_folder.hpp>

namespace foundation::storage::vfs {

using detail::EntryDeletionVisitor;
using detail::FolderCopyVisitor;
using detail::translated;
using provider::ExtendedFeature;
using provider::ReplacementPolicy;

namespace {

/// Whether a move that the provider refused is done by copy and removal. A native move cannot
/// merge, so a policy that merges does not end at what already stands there.
bool copyMayHelp(provider::ErrorCode code, ReplacementPolicy policy) {
    switch (code) {
    case provider::ErrorCode::UnsupportedOperation:
        return true;
    case provider::ErrorCode::FolderNotEmpty:
    case provider::ErrorCode::PermissionDenied:
    case provider::ErrorCode::ResourceAlreadyExists:
        return policy == ReplacementPolicy::ReplaceReadOnly ||
               policy == ReplacementPolicy::ReplaceAndDeferDenied ||
               policy == ReplacementPolicy::KeepExisting;
    default:
        return false;
    }
}

} // namespace

void Folder::copyFolder(Folder const& destination, ReplacementPolicy const& policy) const {
    if (!item().folderExists()) {
        throw Exception(ErrorCode::ResourceNotFound, getLocation());
    }
    StorageIRI const target = destination.item().getLocation();
    if (item().getLocation().isAncestorOf(target)) {
        throw Exception(ErrorCode::InvalidLocation, AbsoluteIRI(target, true));
    }
    translated([&] {
        FolderCopyVisitor visitor(destination, policy);
        walkFolder(*this, visitor);
        if (policy == ReplacementPolicy::ReplaceAndDeferDenied &&
            visitor.deferredPermissionFailure()) {
            throw Exception(*visitor.deferredPermissionFailure());
        }
    });
}

void Folder::copyFolderInto(Folder const& destination, ReplacementPolicy const& policy) const {
    copyFolder(Folder(destination, getName()), policy);
}

void Folder::moveFolder(Folder const& destination, ReplacementPolicy const& policy) const {
    bool const sameScheme = destination.item().getScheme() == item().getScheme();
    if (sameScheme && moveNatively(destination, policy)) {
        return;
    }
    copyFolder(destination, policy);
    removeFolder(FolderRemovalPolicy::Recursive);
}

bool Folder::moveNatively(Folder const& destination, ReplacementPolicy const& policy) const {
    return translated([&] {
        try {
            item().moveFolder(destination.item().getLocation(), policy);
            return true;
        } catch (provider::Exception const& e) {
            if (!copyMayHelp(e.getErrorCode(), policy)) {
                throw;
            }
            return false;
        }
    });
}

void Folder::removeFolder(FolderRemovalPolicy const& policy) const {
    translated([&] {
        if (policy == FolderRemovalPolicy::NonRecursive) {
            item().removeFolder();
        } else if (item().hasFeature(ExtendedFeature::RecursiveFolderRemoval)) {
            item().removeFolderRecursively();
        } else {
            EntryDeletionVisitor visitor(*this);
            walkFolder(*this, visitor);
        }
    });
}

} // namespace foundation::storage::vfs
