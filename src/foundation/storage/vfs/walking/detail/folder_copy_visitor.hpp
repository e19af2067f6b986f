#pragma once

#include <foundation/storage/provider/copy_file_options.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>
#include <foundation/storage/vfs/walking/folder_visitor.hpp>

#include <boost/optional/optional.hpp>

#include <optional>

namespace foundation::storage::vfs::detail {

/// Makes the tree that a serial walk goes through appear at a destination. For one walk, and for
/// one thread.
///
/// An existing file is left alone under FailIfExists, ReplaceExisting and KeepExisting: it never
/// reaches copyFile().
class FolderCopyVisitor : public FolderVisitor {
  public:
    FolderCopyVisitor(Folder destination, provider::ReplacementPolicy policy);
    ~FolderCopyVisitor() override;

    FolderVisitResult visitBefore(Folder const& source) override;
    FolderVisitResult visit(File const& source) override;
    FolderVisitResult visitAfter(Folder const& source) override;

    /// The latest denial of a copy that ReplaceAndDeferDenied passed over.
    std::optional<Exception> const& deferredPermissionFailure() const {
        return deferredPermissionFailure_;
    }

  private:
    void create(Folder const& target);
    void carryTimeOver(Folder const& source) const;

    /// A storage that has no folders of their own brings one into being with a file inside it. So
    /// its refusal to create one stands until a file turns up below, or the folder is left.
    std::optional<Exception> pendingCreateFailure_;
    std::optional<Exception> deferredPermissionFailure_;
    Folder destinationRoot_;
    /// Where the source folder being visited goes; empty before the root and behind it.
    boost::optional<Folder> currentDestination_;
    provider::ReplacementPolicy replacementPolicy_;
};

} // namespace foundation::storage::vfs::detail
