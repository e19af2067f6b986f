#include <foundation/storage/vfs/walking/detail/folder_copy_visitor.hpp>

#include <foundation/storage/vfs/resources/file.hpp>

#include <utility>

namespace foundation::storage::vfs::detail {

using provider::ReplacementPolicy;

namespace {

bool replacesFiles(ReplacementPolicy policy) {
    return policy == ReplacementPolicy::ReplaceReadOnly ||
           policy == ReplacementPolicy::ReplaceAndDeferDenied;
}

} // namespace

FolderCopyVisitor::FolderCopyVisitor(Folder destination, ReplacementPolicy policy)
    : destinationRoot_(std::move(destination)),
      replacementPolicy_(policy) {}

FolderCopyVisitor::~FolderCopyVisitor() = default;

FolderVisitResult FolderCopyVisitor::visitBefore(Folder const& source) {
    ustring const name = source.getName();
    Folder const target =
        currentDestination_ ? Folder(*currentDestination_, name) : destinationRoot_;

    if (!target.folderExists()) {
        create(target);
    } else if (replacementPolicy_ == ReplacementPolicy::FailIfExists) {
        throw Exception(ErrorCode::ResourceAlreadyExists, target.getLocation());
    } else if (replacementPolicy_ == ReplacementPolicy::ReplaceExisting) {
        target.removeFolder(FolderRemovalPolicy::NonRecursive);
        create(target);
    }
    currentDestination_ = target;
    return FolderVisitResult::Continue;
}

void FolderCopyVisitor::create(Folder const& target) {
    try {
        target.createFolder();
    } catch (Exception const& e) {
        if (e.getErrorCode() != ErrorCode::UnsupportedOperation) {
            throw;
        }
        pendingCreateFailure_.emplace(e);
    }
}

FolderVisitResult FolderCopyVisitor::visit(File const& source) {
    pendingCreateFailure_.reset();

    Folder const& parent = currentDestination_ ? *currentDestination_ : destinationRoot_;
    File const target(parent, source.getName());
    if (target.fileExists() && !replacesFiles(replacementPolicy_)) {
        return FolderVisitResult::Continue;
    }
    try {
        source.copyFile(target, replacementPolicy_);
    } catch (Exception const& e) {
        if (replacementPolicy_ != ReplacementPolicy::ReplaceAndDeferDenied ||
            e.getErrorCode() != ErrorCode::PermissionDenied) {
            throw;
        }
        deferredPermissionFailure_.emplace(e);
    }
    return FolderVisitResult::Continue;
}

FolderVisitResult FolderCopyVisitor::visitAfter(Folder const& source) {
    if (pendingCreateFailure_) {
        throw Exception(*pendingCreateFailure_);
    }
    carryTimeOver(source);

    if (currentDestination_) {
        if (*currentDestination_ == destinationRoot_) {
            currentDestination_.reset();
        } else {
            currentDestination_ = currentDestination_->getParent();
        }
    }
    return FolderVisitResult::Continue;
}

// Filling a folder changes its time, so this comes behind its contents. Times of other storages are
// not comparable, and no time is worth a failed copy.
void FolderCopyVisitor::carryTimeOver(Folder const& source) const {
    if (!currentDestination_) {
        return;
    }
    try {
        if (currentDestination_->getLocation().getScheme() == source.getLocation().getScheme()) {
            currentDestination_->setLastModified(source.getAttributes().getLastModified());
        }
    } catch (...) {
        return;
    }
}

} // namespace foundation::storage::vfs::detail
