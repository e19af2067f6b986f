#pragma once

#include <foundation/storage/provider/extensions/i_end_first_streams.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/http/detail/dav_client.hpp>
#include <foundation/storage/provider/http/detail/dav_spaces.hpp>
#include <foundation/storage/provider/http/detail/description.hpp>
#include <foundation/storage/provider/http/detail/names_in_work.hpp>
#include <foundation/storage/provider/http/http_cursor.hpp>
#include <foundation/storage/provider/http/http_options.hpp>
#include <foundation/storage/provider/http/http_stream.hpp>
#include <foundation/storage/provider/http/http_writing.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/spool/content.hpp>
#include <foundation/storage/provider/web/client.hpp>
#include <foundation/storage/provider/web/short_memory.hpp>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace foundation::storage::provider::http {

/// The files of one server. The web knows no folders: what the server answers for is a file, also
/// where its location ends in a slash. Where the server says that it speaks WebDAV (RFC 4918),
/// there are folders, listings and changes; that is asked when one of these is needed for the first
/// time, and not for reading a file. What is remembered between calls are open connections, whether
/// the server takes HEAD, where it speaks WebDAV, and for a moment what it has told of an item.
///
/// Safe on any thread. Failures are provider::Exception; without WebDAV, changes are refused with
/// code ReadOnlyProvider, listings with UnsupportedOperation.
class HttpProvider final : public IProvider,
                           public extensions::IEndFirstStreams,
                           public extensions::IReplacingStreams,
                           public std::enable_shared_from_this<HttpProvider> {
  public:
    HttpProvider(StorageIRI const& location, HttpOptions const& options);

    ExistsResult exists(StorageIRI const& location) const override;
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
    CopyStatus copyFile(StorageIRI const& source, StorageItem const& destination,
                        CopyFileOptions const& options) override;
    void moveFile(StorageIRI const& source, StorageIRI const& destination,
                  ReplacementPolicy const& policy) override;
    void moveFolder(StorageIRI const& source, StorageIRI const& destination,
                    ReplacementPolicy const& policy) override;

    std::unique_ptr<ByteStream> openStream(StorageIRI const& location,
                                           ByteStreamOpenOptions const& options) override;
    std::unique_ptr<ByteStream> openReadOnlyStream(StorageIRI const& location) const override;
    std::unique_ptr<ByteStream> openEndFirst(StorageIRI const& location) const override;

    /// The file that is there has its old content or the new one: as far as the server puts a file
    /// in its place as a whole.
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

  private:
    using Description = detail::Description;
    /// Whether a question is worth asking first what the server speaks.
    enum class Question { OfKind, OfFile };

    bool isOwn(StorageIRI const& location) const;
    web::Url urlOf(StorageIRI const& location) const;
    std::unique_ptr<ByteStream> openFile(StorageIRI const& location, First first) const;
    /// With a status of success, or of absence. Throws provider::Exception for every other.
    Description describe(StorageIRI const& location, Question question,
                         web::Deadline const& deadline) const;
    Description ask(web::Url const& url, web::Deadline const& deadline) const;
    Description existing(StorageIRI const& location, Question question,
                         web::Deadline const& deadline) const;

    // What needs WebDAV. All of it throws web::Failure, and provider::Exception.

    /// Without a slash at its end, or with one.
    web::Url itemUrl(StorageIRI const& location) const;
    web::Url folderUrl(StorageIRI const& location) const;
    bool isKnownToSpeakDav(StorageIRI const& location) const;
    detail::DavClient::Spoken askSpeech(StorageIRI const& location, unsigned attempts,
                                        web::Deadline const& deadline) const;
    bool speaksDav(StorageIRI const& location, web::Deadline const& deadline) const;
    /// Refuses where WebDAV is not spoken; for changes with the code for these.
    void requireDav(StorageIRI const& location, web::Deadline const& deadline,
                    ErrorCode without = ErrorCode::ReadOnlyProvider) const;
    /// What is at a location now, with any status; nothing where the server does not speak WebDAV
    /// there after all.
    std::optional<Description> describeByDav(StorageIRI const& location,
                                             web::Deadline const& deadline) const;
    /// The same, of a location where WebDAV is needed; a status of success or of absence. Fails
    /// where the server does not tell whether it is a folder.
    Description lookAt(StorageIRI const& location, web::Deadline const& deadline) const;
    bool isBelowFile(StorageIRI const& location, web::Deadline const& deadline) const;
    bool isFolder(StorageIRI const& location, web::Deadline const& deadline) const;
    /// Asks once in a while: of a folder, many files are made one after the other.
    void requireFolderAbove(StorageIRI const& location, web::Deadline const& deadline) const;
    /// What is remembered, behind a change; of what is below, where folders are gone.
    enum class Changed { Files, Folders };
    void forget(Changed changed) const;
    detail::DavListing membersOf(StorageIRI const& location, web::Deadline const& deadline) const;
    std::unique_ptr<IFolderEntryIterator> list(StorageIRI const& location, ustring const& filter,
                                               HttpSelection const& selection) const;

    /// What an operation with a file of that size may take more than another one: for the server's
    /// own disk, and for the way to it.
    static std::chrono::milliseconds timeToStore(std::uint64_t size) noexcept;
    static std::chrono::milliseconds timeToSend(std::uint64_t size) noexcept;
    /// How long a server may work on such a file that it has got.
    std::chrono::milliseconds timeToWork(std::uint64_t size) const noexcept;
    enum class Sending { Once, UntilDone };
    /// Sends a change that must not be done twice. Where an answer is lost, `isDone` looks; and
    /// once more where a later sending fails, as the server may have been at work still.
    detail::DavOutcome change(Sending sending, Changed changed, web::Deadline const& deadline,
                              std::function<detail::DavOutcome()> const& send,
                              std::function<bool()> const& isDone) const;
    void awaitDone(std::function<bool()> const& isDone, web::Deadline const& deadline) const;
    /// Throws for a change that failed; `location` is what it was to make or to take away.
    [[noreturn]] void failChange(detail::DavOutcome const& outcome, StorageIRI const& location,
                                 web::Deadline const& deadline) const;
    void makeFolder(StorageIRI const& location, web::Deadline const& deadline);
    std::optional<StorageIRI> failedItem(detail::DavOutcome const& outcome,
                                         StorageIRI const& location) const;
    detail::DavOutcome remove(StorageIRI const& location, web::Url const& url,
                              std::string const& tag, Changed changed,
                              web::Deadline const& deadline);
    struct Way;
    enum class Kind { File, Folder };
    /// Throws where the two ends of a move are not both on this server, and in WebDAV.
    void requireOneDavServer(StorageIRI const& source, StorageIRI const& destination,
                             web::Deadline const& deadline) const;
    /// What is copied or moved, which must be of this kind, and go elsewhere.
    Description lookAtSource(Way const& way, Kind kind, web::Deadline const& deadline) const;
    /// Throws where a file cannot go to the destination; else whether one is replaced there.
    bool checkPlace(Way const& way, Description const& from, ReplacementPolicy policy,
                    web::Deadline const& deadline) const;
    /// Throws where both ends seem to be one item.
    void refuseOneItem(Way const& way, Description const& from, Description const& there) const;
    /// Takes an item to where nothing is, or to what may be replaced.
    void move(Way const& way, bool isReplacing, Changed changed, web::Deadline const& deadline);
    void copy(Way const& way, bool isReplacing, web::Deadline const& deadline);
    void removeTrace(Way const& copied) noexcept;
    [[noreturn]] void failTransfer(detail::DavOutcome const& outcome, Way const& way,
                                   web::Deadline const& deadline) const;
    void refuseFolderMove(StorageIRI const& source, StorageIRI const& destination,
                          ReplacementPolicy policy, Description const& there,
                          web::Deadline const& deadline) const;
    bool wouldCopyIntoItself(StorageIRI const& source, StorageIRI const& destination,
                             web::Deadline const& deadline) const;
    /// Throws for a file that cannot be put at a location under a policy; else whether one is
    /// replaced.
    bool checkReplaceable(StorageIRI const& destination, Description const& there,
                          ReplacementPolicy policy) const;
    /// What changes of an item are held to; empty where there is no strong one.
    static std::string tagOf(Description const& there);
    /// Reads what a file has now; the result is its strong tag, but where the server tells two for
    /// one content.
    std::string takeOld(StorageIRI const& location, Description const& there,
                        spool::Content& content, web::Deadline const& deadline) const;
    /// Whether a file has this content, by reading it.
    bool holds(StorageIRI const& location, spool::Content const& content,
               web::Deadline const& deadline) const;
    detail::DavOutcome put(StorageIRI const& location, spool::Content const& content,
                           detail::DavExpected const& expected,
                           web::Deadline const& deadline) const;
    /// Throws provider::Exception alone. `mayHaveCome` is of one content: whether the server may
    /// have it from an earlier call.
    void publish(StorageIRI const& location, spool::Content const& content,
                 detail::DavExpected const& expected, bool& mayHaveCome);
    /// The same for a stream.
    HttpWritingStream::Publish publishing(StorageIRI const& location,
                                          detail::DavExpected const& expected);

    StorageIRI const home_;
    HttpOptions const options_;
    std::shared_ptr<web::Client const> const client_;
    detail::DavClient const dav_;
    std::shared_ptr<spool::Space> const space_;
    mutable std::atomic<bool> isHeadRefused_{false};
    mutable web::ShortMemory<Description> known_;
    mutable web::ShortMemory<Description> folders_; ///< those that are there
    mutable detail::DavSpaces spaces_;
    mutable std::atomic<bool> isMuteToOptions_ = false; ///< the last time
    detail::NamesInWork inWork_;
};

} // namespace foundation::storage::provider::http
