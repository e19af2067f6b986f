#pragma once

#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/s3/detail/bucket.hpp>
#include <foundation/storage/provider/s3/detail/folder_memory.hpp>
#include <foundation/storage/provider/s3/detail/head_memory.hpp>
#include <foundation/storage/provider/s3/detail/key_locks.hpp>
#include <foundation/storage/provider/s3/detail/keys.hpp>
#include <foundation/storage/provider/s3/detail/listing.hpp>
#include <foundation/storage/provider/s3/detail/new_content.hpp>
#include <foundation/storage/provider/s3/detail/request_threads.hpp>
#include <foundation/storage/provider/spool/space.hpp>

#include <memory>
#include <optional>
#include <string>

namespace foundation::storage::provider::s3 {

/// The objects of one bucket as files and folders. README.md says what is a folder, what each
/// operation asks of the store, and what is atomic. What is remembered between calls are open
/// connections and, for a moment, which folders are there.
///
/// Safe on any thread. Failures are provider::Exception.
class S3Provider final : public IProvider,
                         public extensions::IReplacingStreams,
                         public std::enable_shared_from_this<S3Provider> {
  public:
    /// `location` names the bucket. Nothing is sent yet.
    S3Provider(StorageIRI const& location, S3Options const& options);
    ~S3Provider() override;

    ExistsResult exists(StorageIRI const& location) const override;
    bool fileExists(StorageIRI const& location) const override;
    bool folderExists(StorageIRI const& location) const override;

    bool hasFeature(StorageIRI const& location, ExtendedFeature const& feature) const override;
    StorageIRI getCanonicalLocation(StorageIRI const& location) const override;

    FileAttributes getFileAttributes(StorageIRI const& location) const override;
    FolderAttributes getFolderAttributes(StorageIRI const& location) const override;
    ExtendedAttributes getExtendedAttributes(StorageIRI const& location) const override;
    /// Times stand in the metadata, which means that the store copies the object onto itself.
    void setLastModified(StorageIRI const& location, boost::posix_time::ptime const& time) override;

    void createFile(StorageIRI const& location) override;
    void createFolder(StorageIRI const& location) override;
    void createFolderRecursive(StorageIRI const& location) override;
    void removeFile(StorageIRI const& location) override;
    void removeFolder(StorageIRI const& location) override;
    void removeFolderRecursively(StorageIRI const& location) override;

    /// Within the store the bytes stay there, also from one bucket to another.
    CopyStatus copyFile(StorageIRI const& source, StorageItem const& destination,
                        CopyFileOptions const& options) override;
    void moveFile(StorageIRI const& source, StorageIRI const& destination,
                  ReplacementPolicy const& policy) override;
    /// Object by object, by the store.
    void moveFolder(StorageIRI const& source, StorageIRI const& destination,
                    ReplacementPolicy const& policy) override;

    std::unique_ptr<ByteStream> openStream(StorageIRI const& location,
                                           ByteStreamOpenOptions const& options) override;
    std::unique_ptr<ByteStream> openReadOnlyStream(StorageIRI const& location) const override;
    std::unique_ptr<ByteStream> openReplacement(StorageIRI const& location,
                                                ReplacementPolicy const& policy) override;

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

  private:
    using ItemKey = detail::ItemKey;

    /// What has a name. Both may be there: then the file counts, but for who asks for the folder.
    struct Standing {
        std::optional<detail::ListedObject> file;
        bool isFolder = false;

        bool isNothing() const noexcept { return !file && !isFolder; }
    };

    using Change = detail::HeadMemory::Change;

    ItemKey keyOf(StorageIRI const& location) const;
    Standing lookUp(ItemKey const& key) const;
    bool isFolder(ItemKey const& key) const;
    /// What an object tells of itself, or told a moment ago; nothing where it is missing.
    std::optional<detail::ObjectHead> knownHead(std::string const& key) const;
    /// The head of a file as it is now. Throws provider::Exception where there is none.
    detail::ObjectHead headOf(ItemKey const& key, StorageIRI const& location) const;
    [[noreturn]] void failWithoutFile(ItemKey const& key, StorageIRI const& location) const;
    void requireFolderOf(ItemKey const& key, StorageIRI const& location) const;
    /// What stands where a file is to be made, which the policy allows to be replaced.
    Standing placeForFile(ItemKey const& key, StorageIRI const& location,
                          ReplacementPolicy policy) const;
    void putMarker(ItemKey const& key, StorageIRI const& location);

    std::unique_ptr<IFolderEntryIterator> list(StorageIRI const& location,
                                               detail::Selection selection) const;
    bool sharesStoreWith(S3Provider const& other) const;
    bool isCopiedAtOnce(std::uint64_t size) const;
    /// Copies the object that a head is of.
    void copyObject(ItemKey const& source, detail::ObjectHead const& head,
                    S3Provider const& destination, ItemKey const& key,
                    detail::PutConditions const& conditions) const;
    /// The part of it that takes long; nothing where the store copies the object at once.
    std::unique_ptr<detail::Upload>
    startCopy(ItemKey const& source, detail::ObjectHead const& head, S3Provider const& destination,
              ItemKey const& key, detail::PutConditions const& conditions,
              std::function<void(std::uint64_t)> const& progress) const;
    /// And what shows. REQUIRES: nobody else of this process changes the destination meanwhile.
    void finishCopy(std::unique_ptr<detail::Upload> upload, ItemKey const& source,
                    detail::ObjectHead const& head, S3Provider const& destination,
                    ItemKey const& key, detail::PutConditions const& conditions) const;
    void moveKeys(std::string const& from, std::string const& to);
    /// Refuses what a folder cannot be moved to.
    void checkFolderMove(ItemKey const& from, StorageIRI const& source, ItemKey const& to,
                         StorageIRI const& destination, ReplacementPolicy policy) const;
    std::unique_ptr<detail::Upload> makeUpload(ItemKey const& key,
                                               detail::PutConditions conditions) const;

    StorageIRI const home_;
    std::string const name_;
    std::shared_ptr<detail::Bucket const> const bucket_;
    std::shared_ptr<detail::RequestThreads> const threads_;
    std::shared_ptr<spool::Space> const space_;
    mutable detail::FolderMemory folders_;
    mutable detail::HeadMemory heads_;
    mutable detail::KeyLocks locks_;
};

} // namespace foundation::storage::provider::s3
