#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/attributes.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>

#include <memory>

namespace foundation::storage::vfs {

/// A result of a listing that is known to be a folder; all that is said of FileEntry holds for it.
class FOUNDATION_EXPORT FolderEntry {
  public:
    /// The folder `name` in `folder`.
    FolderEntry(Folder folder, ustring name);
    /// This folder itself, not a child of it. Asks it for its name.
    explicit FolderEntry(Folder folder);
    /// The folder `name` in `folder`, whose attributes came with the listing.
    FolderEntry(Folder folder, ustring name, provider::FolderAttributes attributes);

    /// The name as the listing gave it. Costs nothing and cannot fail.
    ustring const& getName() const noexcept;
    Folder const& getFolder() const;
    provider::FolderAttributes const& getAttributes() const;

  private:
    struct Impl;

    std::shared_ptr<Impl const> impl_;
};

} // namespace foundation::storage::vfs
