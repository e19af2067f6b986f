#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/vfs/resources/file_or_folder.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>

#include <memory>

namespace foundation::storage::vfs {

/// A result of a listing of names only: not even the kind has been asked. Immutable and without
/// memory: what is asked of the storage is asked each time.
///
/// A copy costs one reference count. May be used by any number of threads. A moved-from entry may
/// only be assigned to or destroyed.
class FOUNDATION_EXPORT ListEntry {
  public:
    ListEntry(Folder folder, ustring name);

    /// The name as the listing gave it; of a tree that the provider walks the path below the listed
    /// folder.
    ustring const& getName() const noexcept;
    /// What stands behind the last slash of the name; "/" itself stays.
    ustring getFilename() const;
    /// Throws what Folder::getLocation and the child's location do.
    AbsoluteIRI getLocation() const;
    /// Asks the provider what is there. Nothing there gives a File, whose operations then report
    /// it; two calls may answer differently. Throws what exists() and the handles do.
    FileOrFolder getFileOrFolder() const;

    /// Compare locations, whatever folder or listing the entries came from. Throw what
    /// getLocation() does.
    bool operator==(ListEntry const& other) const;
    bool operator<(ListEntry const& other) const;

  private:
    struct Impl;

    std::shared_ptr<Impl const> impl_;
};

} // namespace foundation::storage::vfs
