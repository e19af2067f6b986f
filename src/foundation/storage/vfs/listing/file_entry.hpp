#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/attributes.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>

#include <memory>

namespace foundation::storage::vfs {

/// A result of a listing that is known to be a file: its name, and what else came with the listing.
/// The handle is made, and attributes that did not come are fetched, when somebody first asks; then
/// once for all copies, which share what they know. A failure is not kept: the next call tries
/// again.
///
/// A copy costs one reference count. May be used by any number of threads; one that asks waits
/// while another fetches the same. References stay valid while any copy lives. A moved-from entry
/// may only be assigned to or destroyed.
///
/// getFile() throws what File(Folder, name) does, getAttributes() what File::getAttributes does.
class FOUNDATION_EXPORT FileEntry {
  public:
    /// The file `name` in `folder`.
    FileEntry(Folder folder, ustring name);
    /// This file. Asks it for its name.
    explicit FileEntry(File file);
    /// The file `name` in `folder`, whose attributes came with the listing.
    FileEntry(Folder folder, ustring name, provider::FileAttributes attributes);

    /// The name as the listing gave it. Costs nothing and cannot fail.
    ustring const& getName() const noexcept;
    File const& getFile() const;
    provider::FileAttributes const& getAttributes() const;

  private:
    struct Impl;

    std::shared_ptr<Impl const> impl_;
};

} // namespace foundation::storage::vfs
