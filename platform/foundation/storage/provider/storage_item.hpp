#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/i_provider.hpp>

#include <memory>

namespace foundation::storage::provider {

/// An item of a provider: the provider, which it keeps alive, and a location. A value; copying
/// copies two shared handles, and nothing says that the item exists. Every operation is the
/// provider's, and throws what the provider throws. Safe on any number of threads as far as the
/// provider is.
class FOUNDATION_EXPORT StorageItem {
  public:
    /// REQUIRES: a provider.
    StorageItem(std::shared_ptr<IProvider> provider, StorageIRI location);
    /// The child `name`, with the same provider. Throws provider::Exception with code
    /// InvalidLocation, naming the parent, for an empty or absolute name, and for one that climbs.
    StorageItem(StorageItem const& parent, ustring name);

    std::shared_ptr<IProvider> const& getProvider() const noexcept { return provider_; }

    StorageIRI getLocation() const { return location_; }
    StorageIRI getCanonicalLocation() const;
    ustring getName() const;
    ustring getScheme() const;
    bool hasParent() const;
    StorageItem getParent() const;

    bool hasFeature(ExtendedFeature const& feature) const;
    PathComparatorFunction getPathComparator() const;
    FilenameSensitivity getFilenameSensitivity() const;

    FileAttributes getFileAttributes() const;
    FolderAttributes getFolderAttributes() const;
    ExtendedAttributes getExtendedAttributes() const;
    bool fileExists() const;
    bool folderExists() const;

    void createFile() const;
    void createFolder() const;
    void createFolderRecursive() const;
    void removeFile() const;
    void removeFolder() const;
    void removeFolderRecursively() const;
    void setLastModified(boost::posix_time::ptime const& time) const;
    void setWritable(bool writable) const;

    CopyStatus copyFile(StorageItem const& destination, CopyFileOptions const& options) const;
    void moveFile(StorageIRI const& destination, ReplacementPolicy const& policy) const;
    void moveFolder(StorageIRI const& destination, ReplacementPolicy const& policy) const;

    std::unique_ptr<ByteStream> openStream(ByteStreamOpenOptions const& options) const;
    std::unique_ptr<ByteStream> openReadOnlyStream() const;

    std::unique_ptr<IFolderEntryIterator> listAll(ustring filter) const;
    std::unique_ptr<IFolderEntryIterator> listFiles(ustring filter) const;
    std::unique_ptr<IFolderEntryIterator> listFolders(ustring filter) const;
    std::unique_ptr<IFolderEntryIterator> listAllNamesOnly(ustring filter) const;
    std::unique_ptr<IFolderEntryIterator> listFilesNamesOnly(ustring filter) const;
    std::unique_ptr<IFolderEntryIterator> listFoldersNamesOnly(ustring filter) const;
    std::unique_ptr<IFolderEntryIterator> listAllRecursive(ustring filter) const;
    std::unique_ptr<IFolderEntryIterator> listAllRecursiveNamesOnly(ustring filter) const;

    void publishFileEvents(ChangeCallback callback, ChangeKinds const& kinds) const;
    void publishFolderEvents(ChangeCallback callback, ChangeKinds const& kinds,
                             RecursiveFileWatching recursive) const;
    void stopPublishingFileEvents() const;
    void stopPublishingFolderEvents() const;

    /// Writes pending state of the provider out; nothing where it has none
    /// (extensions::IFlushableFilesystem).
    void flushFilesystem();

  private:
    std::shared_ptr<IProvider> provider_;
    StorageIRI location_;
};

} // namespace foundation::storage::provider
