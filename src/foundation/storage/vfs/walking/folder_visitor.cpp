#include <foundation/storage/vfs/walking/folder_visitor.hpp>

#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/listing/file_entry.hpp>
#include <foundation/storage/vfs/listing/folder_entry.hpp>

namespace foundation::storage::vfs {

FolderVisitor::~FolderVisitor() = default;

FolderVisitResult FolderVisitor::visitBefore(Folder const&) {
    return FolderVisitResult::Continue;
}

FolderVisitResult FolderVisitor::visitEntryBefore(FolderEntry const& entry) {
    return visitBefore(entry.getFolder());
}

FolderVisitResult FolderVisitor::visit(File const&) {
    return FolderVisitResult::Continue;
}

FolderVisitResult FolderVisitor::visitEntry(FileEntry const& entry) {
    return visit(entry.getFile());
}

FolderVisitResult FolderVisitor::visitAfter(Folder const&) {
    return FolderVisitResult::Continue;
}

FolderVisitResult FolderVisitor::visitEntryAfter(FolderEntry const& entry) {
    return visitAfter(entry.getFolder());
}

FolderVisitResult FolderVisitor::visitFolderFailed(Folder const&, Exception const& exception) {
    throw Exception(exception);
}

FolderVisitResult FolderVisitor::visitFolderEntryFailed(FolderEntry const& entry,
                                                        Exception const& exception) {
    return visitFolderFailed(entry.getFolder(), exception);
}

} // namespace foundation::storage::vfs
