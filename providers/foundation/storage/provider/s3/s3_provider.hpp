#pragma once

#include <foundation/storage/provider/extensions/i_end_first_streams.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/s3/detail/bucket.hpp>
#include <foundation/storage/provider/s3/detail/folder_memory.hpp>
#include <foundation/storage/provider/s3/detail/key_locks.hpp>
#include <foundation/storage/provider/s3/detail/keys.hpp>
#include <foundation/storage/provider/s3/detail/listing.hpp>
#include <foundation/storage/provider/s3/detail/object_reader.hpp>
#include <foundation/storage/provider/s3/detail/request_threads.hpp>
#include <foundation/storage/provider/s3/s3_stream.hpp>
#include <foundation/storage/provider/spool/space.hpp>
#include <foundation/storage/provider/web/short_memory.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace foundation::storage::provider::s3 {

/// The objects of one bucket as files and folders. README.md says what is a folder, what each
/// operation asks of the store, and what is atomic. What is remembered between calls are open
/// connections and, for a moment, which folders are there.
///
/// Safe on any thread. Failures are provider::Exception.
class S3Provider final : public IProvider,
                         public extensions::IEndFirstStreams,
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
    std::unique_ptr<ByteStream> openEndFirst(StorageIRI const& location) const override;
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
    using Deadline = web::Deadline;

    /// What has a name. Both may be there: then the file counts, but for who asks for the folder.
    struct Standing {
        std::optional<detail::ListedObject> file;
        bool isFolder = false;

        bool isNothing() const noexcept { return !file && !isFolder; }
    };

    using HeadMemory = web::ShortMemory<detail::ObjectHead>;
    using Change = HeadMemory::Change;

    ItemKey keyOf(StorageIRI const& location) const;
    /// Opens an object with one of the ways that a reader has.
    std::unique_ptr<ByteStream>
    openWith(detail::ObjectHead (detail::ObjectReader::*open)(Deadline const&),
             StorageIRI const& location) const;
    Standing lookUp(ItemKey const& key, Deadline const& deadline) const;
    bool isFolder(ItemKey const& key, Deadline const& deadline) const;
    /// What an object tells of itself, or told a moment ago; nothing where it is missing.
    std::optional<detail::ObjectHead> knownHead(std::string const& key,
                                                Deadline const& deadline) const;
    /// The head of a file as it is now. Throws provider::Exception where there is none.
    detail::ObjectHead headOf(ItemKey const& key, StorageIRI const& location,
                              Deadline const& deadline) const;
    [[noreturn]] void failWithoutFile(ItemKey const& key, StorageIRI const& location,
                                      Deadline const& deadline) const;
    void requireFolderOf(ItemKey const& key, StorageIRI const& location,
                         Deadline const& deadline) const;
    /// What stands where a file is to be made, which the policy allows to be replaced.
    Standing placeForFile(ItemKey const& key, StorageIRI const& location, ReplacementPolicy policy,
                          Deadline const& deadline) const;
    void putMarker(ItemKey const& key, Deadline const& deadline);

    std::unique_ptr<IFolderEntryIterator> list(StorageIRI const& location,
                                               detail::Selection selection) const;
    bool sharesStoreWith(S3Provider const& other) const;
    bool isCopiedAtOnce(std::uint64_t size) const;
    /// What a copy gets beside the bytes.
    detail::PutConditions conditionsFor(detail::ObjectHead const& head, bool onlyIfMissing) const;
    /// For what comes behind a copy of so many bytes, which may take a time of its own.
    Deadline deadlineBehindCopy(std::uint64_t size, Deadline const& deadline) const;
    /// Copies the object that a head is of.
    void copyObject(ItemKey const& source, detail::ObjectHead const& head,
                    S3Provider const& destination, ItemKey const& key,
                    detail::PutConditions const& conditions, Deadline const& deadline) const;
    /// The part of it that takes long, and a deadline for each request; nothing where the store
    /// copies the object at once.
    std::unique_ptr<detail::Upload>
    startCopy(ItemKey const& source, detail::ObjectHead const& head, S3Provider const& destination,
              ItemKey const& key, detail::PutConditions const& conditions,
              std::function<void(std::uint64_t)> const& progress) const;
    /// And what shows. REQUIRES: nobody else of this process changes the destination meanwhile.
    void finishCopy(std::unique_ptr<detail::Upload> upload, ItemKey const& source,
                    detail::ObjectHead const& head, S3Provider const& destination,
                    ItemKey const& key, detail::PutConditions const& conditions,
                    Deadline const& deadline) const;

    bool isOwn(StorageIRI const& location) const;
    /// One end of a folder's move.
    struct MovedFolder {
        ItemKey key;
        StorageIRI const& location;
    };
    /// Refuses what a folder cannot be moved to.
    void checkFolderMove(MovedFolder const& from, MovedFolder const& to, ReplacementPolicy policy,
                         Deadline const& deadline) const;
    void moveKeys(MovedFolder const& from, MovedFolder const& to);
    void copyKeys(std::vector<detail::ListedObject> const& page, MovedFolder const& from,
                  MovedFolder const& to) const;
    /// Throws where one of the keys is not what it was when it was listed, or there are others
    /// among them. They come behind the key `before`, and to the end where they are the last.
    void requireUnchanged(std::vector<detail::ListedObject> const& page, MovedFolder const& from,
                          std::string const& before, bool isLast) const;
    std::unique_ptr<detail::Upload> makeUpload(ItemKey const& key,
                                               detail::PutConditions conditions) const;
    /// What puts the content of a stream into the store.
    S3WriteStream::Publish publishAt(ItemKey const& key,
                                     std::optional<detail::ObjectHead> old = std::nullopt);

    StorageIRI const home_;
    std::string const name_;
    std::shared_ptr<detail::Bucket const> const bucket_;
    std::shared_ptr<detail::RequestThreads> const threads_;
    std::shared_ptr<spool::Space> const space_;
    mutable detail::FolderMemory folders_;
    mutable HeadMemory heads_;
    mutable detail::KeyLocks locks_;
};

} // namespace foundation::storage::provider::s3
