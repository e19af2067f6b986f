#pragma once

#include <foundation/storage/provider/extensions/i_folder_attributes.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/extensions/i_small_file_copies.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/local/local_options.hpp>
#include <foundation/storage/provider/local/local_watch.hpp>

namespace foundation::storage::provider::local {

/// The local disk. Every operation is one or a few system calls; nothing is kept between them but
/// what change events need, so any number of threads may use one provider. Failures are
/// provider::Exception.
class LocalProvider final : public IProvider,
                            public extensions::IFolderAttributes,
                            public extensions::ILinks,
                            public extensions::IReplacingStreams,
                            public extensions::ISmallFileCopies {
  public:
    explicit LocalProvider(LocalOptions const& options)
        : options_(options),
          watch_(options.followLinks) {}

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
    void removeFolderRecursively(StorageIRI const& location) override;

    CopyStatus copyFile(StorageIRI const& source, StorageItem const& destination,
                        CopyFileOptions const& options) override;
    void moveFile(StorageIRI const& source, StorageIRI const& destination,
                  ReplacementPolicy const& policy) override;
    void moveFolder(StorageIRI const& source, StorageIRI const& destination,
                    ReplacementPolicy const& policy) override;

    std::unique_ptr<ByteStream> openStream(StorageIRI const& location,
                                           ByteStreamOpenOptions const& options) override;
    std::unique_ptr<ByteStream> openReadOnlyStream(StorageIRI const& location) const override;

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

    void publishFileEvents(StorageIRI const& location, ChangeCallback callback,
                           ChangeKinds const& kinds) override;
    void publishFolderEvents(StorageIRI const& location, ChangeCallback callback,
                             ChangeKinds const& kinds, RecursiveFileWatching recursive) override;
    void stopPublishingFileEvents(StorageIRI const& location) override;
    void stopPublishingFolderEvents(StorageIRI const& location) override;
    /// Ends all publications, and refuses new ones with ChangeEventsSubscriptionException.
    void endChangeEvents() { watch_.shutDown(); }

    ustring readLink(StorageIRI const& location) const override;
    void createLink(StorageIRI const& location, ustring const& target) override;

    std::unique_ptr<ByteStream> openReplacement(StorageIRI const& location,
                                                ReplacementPolicy const& policy) override;

    void copySmallFiles(StorageIRI const& from, StorageIRI const& to,
                        std::span<extensions::SmallFileCopy> files) override;

  private:
    LocalOptions const options_;
    LocalWatch watch_;
};

} // namespace foundation::storage::provider::local
