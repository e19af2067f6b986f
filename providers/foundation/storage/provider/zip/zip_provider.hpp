#pragma once

#include <foundation/storage/provider/container/archive_provider.hpp>
#include <foundation/storage/provider/container/item_streams.hpp>
#include <foundation/storage/provider/extensions/i_flushable_filesystem.hpp>
#include <foundation/storage/provider/extensions/i_folder_attributes.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/provider/zip/detail/archive_index.hpp>
#include <foundation/storage/provider/zip/detail/archive_walk.hpp>
#include <foundation/storage/provider/zip/detail/link_targets.hpp>
#include <foundation/storage/provider/zip/detail/pending_tree.hpp>
#include <foundation/storage/provider/zip/zip_cursor.hpp>
#include <foundation/storage/provider/zip/zip_options.hpp>

#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace foundation::storage::provider::zip {

/// The inside of a zip archive, read through the item that it is. The directory is kept, and read
/// again by the first operation that finds another size or time of the item; what is open by then
/// goes on as it was.
///
/// The first change makes a tree of the directory. From then on questions, listings and streams
/// see what is pending, until flushFilesystem() writes a new archive. An item that somebody else
/// changes meanwhile gives code ResourceInUse. What is pending when the provider goes, goes too.
///
/// Safe on any thread. Failures are provider::Exception.
class ZipProvider final : public container::ArchiveProvider,
                          public extensions::IFlushableFilesystem,
                          public extensions::IFolderAttributes,
                          public extensions::ILinks,
                          public extensions::IReplacingStreams,
                          public std::enable_shared_from_this<ZipProvider> {
  public:
    ZipProvider(StorageItem item, ZipOptions const& options);
    ZipProvider(ZipProvider const&) = delete;
    ZipProvider& operator=(ZipProvider const&) = delete;
    ~ZipProvider() override;

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
    /// Within the archive a copy of what has not changed takes the bytes that are stored.
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

    ustring readLink(StorageIRI const& location) const override;
    void createLink(StorageIRI const& location, ustring const& target) override;

    /// Writes a new archive in the place of the item, with what is pending in archives that lie in
    /// this one; then flushes the storage of the item, so that nothing is held back on the way.
    void flushFilesystem() override;

  private:
    using Number = detail::ArchiveIndex::Number;
    using Tree = detail::PendingTree;
    using Node = detail::PendingNode;

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

    /// What there is at a time.
    struct View {
        ArchivePtr archive;
        std::shared_ptr<Tree> pending; ///< null without changes; of this archive
    };

    /// Content that a stream may be opened on.
    struct Readable {
        std::shared_ptr<detail::PendingContent> content; ///< null for that of a member
        detail::Member member;
    };

    /// How the item came to be as it is.
    enum class Own {
        Seen,     ///< as itemState_ tells
        Restored, ///< written again by ourselves with the bytes that it had
        Published ///< a new archive by ourselves, that was not read yet
    };

    ItemState stateOfItem() const;
    ArchivePtr read() const;
    View view() const;
    void lookAgain() const;
    void lookAtOwn() const;
    bool isCurrent(Archive const& archive) const;
    template<class Read>
    auto readIn(Archive const& archive, Read const& read) const;
    bool hasChanges() const noexcept;
    std::string linkTarget(Archive& archive, Number link, StorageIRI const& location) const;
    template<class Question>
    auto ask(StorageIRI const& location, Question const& question) const;
    template<class Question>
    auto askOnce(StorageIRI const& location, Question const& question) const;
    Tree::Place walkTo(View const& view, StorageIRI const& location, detail::LastLink last,
                       Node* from, std::string_view path) const;
    std::unique_ptr<IFolderEntryIterator> list(StorageIRI const& location,
                                               ZipSelection selection) const override;

    /// With the archive's changes kept from anybody else.
    template<class Change>
    void change(StorageIRI const& location, Change const& change);
    View viewToChange(StorageIRI const& location);
    void checkIsPending(Tree const& tree) const;
    std::shared_ptr<detail::PendingContent> contentToWrite(View const& view,
                                                           StorageIRI const& location,
                                                           ByteStreamOpenOptions const& options);
    std::shared_ptr<detail::PendingContent> contentOf(View const& view, Number base,
                                                      StorageIRI const& location) const;
    void publish(StorageIRI const& location, ReplacementPolicy policy,
                 std::shared_ptr<detail::PendingContent> content,
                 extensions::NewFileAttributes const& attributes);

    void addInner(std::weak_ptr<ZipProvider> inner);
    std::exception_ptr flushInner();
    void writeOut();
    void bringBack();
    void carryOver(Tree const& old, Tree& fresh) const;

    StorageItem const item_;
    ZipOptions const options_;
    std::shared_ptr<detail::PendingSpace> const space_;

    /// Held by whoever changes anything, and throughout a flush. Taken before the other one.
    std::mutex changing_;
    mutable std::mutex mutex_;
    // guarded by mutex_:
    mutable ArchivePtr archive_;
    mutable ItemState itemState_;
    mutable Own own_ = Own::Seen;
    /// What the item had, where neither that nor anything new could be written to its end.
    std::shared_ptr<detail::PendingContent> lost_;
    mutable std::shared_ptr<Tree> pending_; ///< changed under changing_ too
    std::uint64_t flushedChanges_ = 0;      ///< how many there were when all were written
    std::vector<std::weak_ptr<ZipProvider>> inner_;
};

} // namespace foundation::storage::provider::zip
