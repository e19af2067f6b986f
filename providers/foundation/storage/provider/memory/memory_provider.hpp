#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/extensions/i_folder_attributes.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/memory/memory_options.hpp>

#include <memory>

namespace foundation::storage::provider::memory {

namespace detail {
class Tree;
}

/// Files, folders and links in the memory of the process, with the meaning that they have on the
/// local disk. Each provider is a store of its own, empty but for the root at first, and gone when
/// the provider and the last stream are.
///
/// Safe on any number of threads. A look at the tree takes a shared lock, a change an exclusive
/// one, both for the time of a few map lookups; bytes move under a lock of the file alone.
/// README.md says where it is stricter than a disk.
class FOUNDATION_EXPORT MemoryProvider final : public IProvider,
                                               public extensions::IFolderAttributes,
                                               public extensions::ILinks,
                                               public extensions::IReplacingStreams {
  public:
    explicit MemoryProvider(MemoryOptions const& options = {});
    ~MemoryProvider() override;

    ExistsResult exists(StorageIRI const& location) const override;
    ExtendedExistsResult existsExtended(StorageIRI const& location) const override;
    bool fileExists(StorageIRI const& location) const override;
    bool folderExists(StorageIRI const& location) const override;

    bool hasFeature(StorageIRI const& location, ExtendedFeature const& feature) const override;
    StorageIRI getCanonicalLocation(StorageIRI const& location) const override;

    FileAttributes getFileAttributes(StorageIRI const& location) const override;
    FolderAttributes getFolderAttributes(StorageIRI const& location) const override;
    ExtendedAttributes getExtendedAttributes(StorageIRI const& location) const override;
    void setLastModified(StorageIRI const& location, boost::posix_time::ptime const& time) override;
    void setWritable(StorageIRI const& location, bool writable) override;
    void setFolderAttributes(StorageIRI const& location,
                             extensions::FolderAttributeChange const& change) override;

    void createFile(StorageIRI const& location) override;
    void createFolder(StorageIRI const& location) override;
    void createFolderRecursive(StorageIRI const& location) override;
    void removeFile(StorageIRI const& location) override;
    void removeFolder(StorageIRI const& location) override;
    /// From below, and letting others at the store in between: what they add goes too.
    void removeFolderRecursively(StorageIRI const& location) override;

    /// Within the store a copy shares the content until one of the two is written, and has the
    /// mode and the time of its source.
    CopyStatus copyFile(StorageIRI const& source, StorageItem const& destination,
                        CopyFileOptions const& options) override;
    void moveFile(StorageIRI const& source, StorageIRI const& destination,
                  ReplacementPolicy const& policy) override;
    void moveFolder(StorageIRI const& source, StorageIRI const& destination,
                    ReplacementPolicy const& policy) override;

    std::unique_ptr<ByteStream> openStream(StorageIRI const& location,
                                           ByteStreamOpenOptions const& options) override;
    std::unique_ptr<ByteStream> openReadOnlyStream(StorageIRI const& location) const override;
    std::unique_ptr<ByteStream> openReplacement(StorageIRI const& location,
                                                ReplacementPolicy const& policy) override;

    /// Listings go on while the store changes: what is there throughout is delivered exactly once.
    /// Recursive ones go depth first, each folder before its contents. Siblings come in the order
    /// of their names' UTF-16 units.
    std::unique_ptr<IFolderEntryIterator> listAll(StorageIRI const& location,
                                                  ustring const& filter) const override;
    std::unique_ptr<IFolderEntryIterator> listFiles(StorageIRI const& location,
                                                    ustring const& filter) const override;
    std::unique_ptr<IFolderEntryIterator> listFolders(StorageIRI const& location,
                                                      ustring const& filter) const override;
    std::unique_ptr<IFolderEntryIterator> listAllNamesOnly(StorageIRI const& location,
                                                           ustring const& filter) const override;
    std::unique_ptr<IFolderEntryIterator> listFilesNamesOnly(StorageIRI const& location,
                                                             ustring const& filter) const override;
    std::unique_ptr<IFolderEntryIterator>
    listFoldersNamesOnly(StorageIRI const& location, ustring const& filter) const override;
    std::unique_ptr<IFolderEntryIterator> listAllRecursive(StorageIRI const& location,
                                                           ustring const& filter) const override;
    std::unique_ptr<IFolderEntryIterator>
    listAllRecursiveNamesOnly(StorageIRI const& location, ustring const& filter) const override;

    /// Reports are made on the thread that made the change, behind it and in the order of the
    /// changes; while one is delivered on another thread, that one delivers the next ones too.
    /// README.md says what is reported.
    void publishFileEvents(StorageIRI const& location, ChangeCallback callback,
                           ChangeKinds const& kinds) override;
    void publishFolderEvents(StorageIRI const& location, ChangeCallback callback,
                             ChangeKinds const& kinds, RecursiveFileWatching recursive) override;
    void stopPublishingFileEvents(StorageIRI const& location) override;
    void stopPublishingFolderEvents(StorageIRI const& location) override;
    /// Drops all publications and refuses more, with ChangeEventsSubscriptionException. Everything
    /// else goes on working.
    void endPublishing() noexcept;

    ustring readLink(StorageIRI const& location) const override;
    void createLink(StorageIRI const& location, ustring const& target) override;

  private:
    std::shared_ptr<detail::Tree> const tree_;
};

} // namespace foundation::storage::provider::memory
