#pragma once

#include <foundation/storage/vfs/resources/folder.hpp>
#include <foundation/storage/vfs/walking/folder_visitor.hpp>

namespace foundation::storage::vfs::detail {

/// Removes the tree that a serial walk goes through: files as they are listed, folders when they
/// are left. What has vanished meanwhile is no failure, but for the root.
class EntryDeletionVisitor : public FolderVisitor {
  public:
    explicit EntryDeletionVisitor(Folder root);
    ~EntryDeletionVisitor() override;

    FolderVisitResult visit(File const& file) override;
    FolderVisitResult visitAfter(Folder const& folder) override;

  private:
    Folder rootFolder_;
};

} // namespace foundation::storage::vfs::detail
