#pragma once

#include <foundation/storage/provider/container/item_streams.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/provider/zip/detail/archive_index.hpp>
#include <foundation/storage/provider/zip/detail/archive_walk.hpp>
#include <foundation/storage/provider/zip/detail/link_targets.hpp>
#include <foundation/storage/provider/zip/zip_cursor.hpp>
#include <foundation/storage/provider/zip/zip_options.hpp>

#include <memory>
#include <mutex>
#include <string>

namespace foundation::storage::provider::zip {

/// The inside of a zip archive, read through the item that it is. The directory is kept, and read
/// again by the first operation that finds another size or time of the item; what is open by then
/// goes on as it was. Safe on any thread. Failures are provider::Exception.
class ZipProvider final : public IProvider, public extensions::ILinks {
  public:
    ZipProvider(StorageItem item, ZipOptions const& options);

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

    void createFile(StorageIRI const& location) override;
    void createFolder(StorageIRI const& location) override;
    void createFolderRecursive(StorageIRI const& location) override;
    void removeFile(StorageIRI const& location) override;
    void removeFolder(StorageIRI const& location) override;
    void removeFolderRecursively(StorageIRI const& location) override;
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

    ustring readLink(StorageIRI const& location) const override;
    void createLink(StorageIRI const& location, ustring const& target) override;

  private:
    using Number = detail::ArchiveIndex::Number;

    /// The item as it was when its directory was read.
    struct Archive {
        std::shared_ptr<container::ItemStreams> streams;
        std::shared_ptr<detail::ArchiveIndex const> index;
        detail::LinkTargets targets;
    };
    using ArchivePtr = std::shared_ptr<Archive>;

    /// What the item looked like when its directory was read.
    struct ItemState {
        std::optional<std::uint64_t> size;
        Timestamp lastModified;
        std::optional<Timestamp> created; ///< another one, where another item has taken the place

        bool operator==(ItemState const&) const = default;
    };

    /// An entry, in the directory that it was found in.
    struct Found {
        ArchivePtr archive;
        std::shared_ptr<detail::ArchiveIndex const> index;
        Number entry;
    };

    ItemState stateOfItem() const;
    ArchivePtr read() const;
    ArchivePtr archive() const;
    std::string linkTarget(Archive& archive, Number link, StorageIRI const& location) const;
    detail::ArchivePlace placeOf(Archive& archive, StorageIRI const& location,
                                 detail::LastLink last) const;
    Found find(StorageIRI const& location, detail::LastLink last) const;
    Found findFolder(StorageIRI const& location) const;
    Found findFollowed(StorageIRI const& location) const;
    std::unique_ptr<IFolderEntryIterator> list(StorageIRI const& location,
                                               ZipSelection selection) const;

    StorageItem const item_;
    ZipOptions const options_;
    mutable std::mutex mutex_;
    mutable ArchivePtr archive_;  ///< guarded by the mutex
    mutable ItemState itemState_; ///< guarded by the mutex
};

} // namespace foundation::storage::provider::zip
