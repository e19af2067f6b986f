#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/attributes.hpp>
#include <foundation/storage/provider/path_comparison.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/vfs/iri/absolute_iri.hpp>
#include <foundation/storage/vfs/resources/folder_removal_policy.hpp>
#include <foundation/storage/vfs/resources/path_comparator.hpp>
#include <foundation/storage/vfs/storage_system/storage_system_reference.hpp>

#include <iosfwd>
#include <memory>

namespace foundation::storage::vfs {

/// A handle on a folder; all that is said of File holds for it. It says nothing about whether the
/// folder is there.
class FOUNDATION_EXPORT Folder {
  public:
    /// Ask the system for the provider, and touch nothing else. Throw vfs::Exception,
    /// UnsupportedIRISchemeException, and std::runtime_error where the system is gone.
    Folder(AbsoluteIRI const& location, StorageSystemReference storageSystem);
    /// The handle answers getCanonicalLocation() without asking the provider.
    Folder(CanonicalAbsoluteIRI const& location, StorageSystemReference storageSystem);
    /// The folder `name` in `parent`, of the same provider. Throws provider::Exception,
    /// untranslated, for a name that is empty, absolute or climbs.
    Folder(Folder const& parent, ustring const& name);
    Folder(provider::StorageItem item, StorageSystemReference storageSystem);

    Folder(Folder const&) = default;
    Folder(Folder&&) noexcept = default;
    Folder& operator=(Folder const&) = default;
    Folder& operator=(Folder&&) noexcept = default;
    ~Folder();

    AbsoluteIRI getLocation() const;
    CanonicalAbsoluteIRI getCanonicalLocation() const;
    /// Provider exceptions are not translated by these three.
    ustring getName() const;
    bool hasParent() const;
    Folder getParent() const;
    StorageSystemReference getStorageSystem() const;

    void createFolder() const;
    void createFolderRecursive() const;
    bool folderExists() const;
    /// Removes an empty folder under NonRecursive. Under Recursive the provider removes the tree;
    /// where it cannot, UnsupportedOperation.
    void removeFolder(FolderRemovalPolicy const& policy) const;
    provider::FolderAttributes getAttributes() const;
    provider::ExtendedAttributes getExtendedAttributes() const;
    void setLastModified(boost::posix_time::ptime const& time) const;
    void setWritable(bool writable) const;

    provider::FilenameSensitivity getFilenameSensitivity() const;
    PathComparator getPathComparator() const;
    /// Whether the provider filters listings by itself. Provider exceptions are not translated.
    bool providerSupportsFlatWildcardListing() const;
    /// Writes pending state of the storage out.
    void flushFilesystem();

    /// Ends what the oldest publication of this folder's changes started.
    void stopPublishingEvents() const;

    /// Exchanges what the handles name; each keeps its storage system and whether it is canonical.
    void swap(Folder& other);

    /// Compare locations alone, as provider::StorageIRI does.
    bool operator==(Folder const& other) const;
    bool operator!=(Folder const& other) const;
    bool operator<(Folder const& other) const;

  private:
    friend class File;
    struct Impl;

    provider::StorageItem const& item() const;

    std::shared_ptr<Impl const> impl_;
};

/// Writes the location.
FOUNDATION_EXPORT std::ostream& operator<<(std::ostream& out, Folder const& folder);

} // namespace foundation::storage::vfs
