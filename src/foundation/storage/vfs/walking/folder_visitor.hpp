#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/vfs/fwd.hpp>
#include <foundation/storage/vfs/walking/folder_visit_result.hpp>

namespace foundation::storage::vfs {

/// What a walk tells about the folders and files of a tree, and asks what to do next. As it stands
/// it goes through the whole tree, does nothing, and lets failures out.
///
/// A walk calls only the operations that take entries, which carry the attributes that came with
/// the listing. Their defaults make handles and call the others, so a visitor overrides the level
/// that it needs.
///
/// Results: what each does where stands in walk_folder.hpp. Arguments are valid for the call.
/// Thread safety: walkFolder() makes one call at a time, on its caller's thread;
/// walkFolderParallel() makes all of them on many threads at once.
class FOUNDATION_EXPORT FolderVisitor {
  public:
    /// A folder, before what is in it.
    virtual FolderVisitResult visitBefore(Folder const& folder);
    virtual FolderVisitResult visitEntryBefore(FolderEntry const& entry);
    virtual FolderVisitResult visit(File const& file);
    virtual FolderVisitResult visitEntry(FileEntry const& entry);
    /// A folder, behind what is in it, and a folder that has vanished.
    virtual FolderVisitResult visitAfter(Folder const& folder);
    virtual FolderVisitResult visitEntryAfter(FolderEntry const& entry);
    /// The folder could not be listed, or something in it failed, `exception` saying what and
    /// where. Throws a copy of it, as Exception.
    virtual FolderVisitResult visitFolderFailed(Folder const& folder, Exception const& exception);
    virtual FolderVisitResult visitFolderEntryFailed(FolderEntry const& entry,
                                                     Exception const& exception);
    virtual ~FolderVisitor();
};

} // namespace foundation::storage::vfs
