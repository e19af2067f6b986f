#pragma once

#include <foundation/storage/provider/container/archive_provider.hpp>
#include <foundation/storage/provider/container/archive_walk.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/provider/tar/detail/archive_source.hpp>
#include <foundation/storage/provider/tar/detail/headers.hpp>
#include <foundation/storage/provider/tar/detail/member_readers.hpp>
#include <foundation/storage/provider/tar/tar_cursor.hpp>
#include <foundation/storage/provider/tar/tar_options.hpp>

#include <memory>
#include <mutex>
#include <string>

namespace foundation::storage::provider::tar {

/// The inside of an archive, read through the item that it is. What its headers tell is kept, and
/// read again by the first operation that finds another size or time of the item; what is open by
/// then goes on as it was. Safe on any thread. Failures are provider::Exception.
class TarProvider final : public container::ArchiveProvider, public extensions::ILinks {
  public:
    TarProvider(StorageItem item, TarOptions const& options);

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

    ustring readLink(StorageIRI const& location) const override;
    void createLink(StorageIRI const& location, ustring const& target) override;

  private:
    using Index = detail::TarIndex;
    using Number = Index::Number;
    using Place = container::ArchivePlace<Index>;

    /// The item as it was when its headers were read.
    struct Archive {
        std::shared_ptr<detail::ArchiveSource> source;
        std::shared_ptr<detail::MemberReaders> readers;
        detail::Headers headers;
    };
    using ArchivePtr = std::shared_ptr<Archive const>;

    /// An entry, in the archive that it was found in.
    struct Found {
        ArchivePtr archive;
        Number entry;

        Index const& index() const noexcept { return *archive->headers.index; }
        detail::Member const& member() const noexcept { return index().memberOf(entry); }
    };

    ArchivePtr read(detail::ItemState const& state) const;
    ArchivePtr archive() const;
    Place placeOf(Archive const& archive, StorageIRI const& location,
                  container::LastLink last) const;
    Found find(StorageIRI const& location, container::LastLink last) const;
    Found findFolder(StorageIRI const& location) const;
    Found findFollowed(StorageIRI const& location) const;
    Found findToOpen(StorageIRI const& location) const;
    std::unique_ptr<IFolderEntryIterator> list(StorageIRI const& location,
                                               container::Selection selection) const override;

    StorageItem const item_;
    TarOptions const options_;
    mutable std::mutex mutex_;
    mutable detail::ItemState itemState_; ///< when the headers were read; guarded by the mutex
    mutable ArchivePtr archive_;          ///< guarded by the mutex
};

} // namespace foundation::storage::provider::tar
