#include <foundation/storage/vfs/walking/detail/entry_deletion_visitor.hpp>

#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/resources/file.hpp>

#include <utility>

namespace foundation::storage::vfs::detail {

EntryDeletionVisitor::EntryDeletionVisitor(Folder root) : rootFolder_(std::move(root)) {}

EntryDeletionVisitor::~EntryDeletionVisitor() = default;

FolderVisitResult EntryDeletionVisitor::visit(File const& file) {
    try {
        file.removeFile();
    } catch (Exception const& e) {
        if (e.getErrorCode() != ErrorCode::ResourceNotFound) {
            throw;
        }
    }
    return FolderVisitResult::Continue;
}

FolderVisitResult EntryDeletionVisitor::visitAfter(Folder const& folder) {
    try {
        folder.removeFolder(FolderRemovalPolicy::NonRecursive);
    } catch (Exception const& e) {
        // The walk takes a root that never was for one that has vanished; here it is told apart.
        if (e.getErrorCode() != ErrorCode::ResourceNotFound ||
            folder.getLocation() == rootFolder_.getLocation()) {
            throw;
        }
    }
    return FolderVisitResult::Continue;
}

} // namespace foundation::storage::vfs::detail
