#pragma once

#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/walking/folder_visitor.hpp>

namespace foundation::storage::vfs::detail {

/// The result of a folder whose walk failed. One that has vanished counts as finished.
inline FolderVisitResult endByFailure(FolderVisitor& visitor, FolderEntry const& entry,
                                      Exception const& exception) {
    if (exception.getErrorCode() == ErrorCode::ResourceNotFound) {
        return visitor.visitEntryAfter(entry);
    }
    return visitor.visitFolderEntryFailed(entry, exception);
}

} // namespace foundation::storage::vfs::detail
