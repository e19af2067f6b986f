#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/attributes.hpp>
#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/byte_stream_open_options.hpp>
#include <foundation/storage/provider/change_events.hpp>
#include <foundation/storage/provider/copy_file_options.hpp>
#include <foundation/storage/provider/exists_result.hpp>
#include <foundation/storage/provider/extended_feature.hpp>
#include <foundation/storage/provider/fwd.hpp>
#include <foundation/storage/provider/i_folder_entry_iterator.hpp>
#include <foundation/storage/provider/path_comparison.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <memory>

namespace foundation::storage::provider {

/// A storage: a whole scheme, one authority of a scheme, or the inside of one item. Only `exists`
/// must be written; everything else refuses with code UnsupportedOperation, or gives a neutral
/// answer, until it is overridden, and the system does without.
///
/// Always held by std::shared_ptr. Called from many threads at once, and safe for it. Failures are
/// provider::Exception with the location that they are about. docs/providers.md says what each
/// operation does on a missing, an existing and a wrong-kind item.
///
/// A link is a file of its own to `exists`, `fileExists`, remove, move, copy and listed attributes;
/// `folderExists`, attributes, open and list follow it.
class FOUNDATION_EXPORT IProvider {
  public:
    IProvider() = default;
    IProvider(IProvider const&) = delete;
    IProvider& operator=(IProvider const&) = delete;
    virtual ~IProvider();

    virtual ExistsResult exists(StorageIRI const& location) const = 0;
    /// Default: from exists().
    virtual ExtendedExistsResult existsExtended(StorageIRI const& location) const;
    /// Default: exists() answers File; a missing item is false, also where exists() throws for it.
    virtual bool fileExists(StorageIRI const& location) const;
    /// Default: exists() answers neither File nor Nothing.
    virtual bool folderExists(StorageIRI const& location) const;

    /// Default: no feature.
    virtual bool hasFeature(StorageIRI const& location, ExtendedFeature const& feature) const;
    /// Default: StorageIRI::withResolvedPath, without I/O.
    virtual StorageIRI getCanonicalLocation(StorageIRI const& location) const;
    /// Default: names differ unless they are equal, ASCII case aside where the caller says so.
    virtual PathComparatorFunction getPathComparator(StorageIRI const& location) const;
    /// Default: Sensitive.
    virtual FilenameSensitivity getFilenameSensitivity(StorageIRI const& location) const;

    virtual FileAttributes getFileAttributes(StorageIRI const& location) const;
    virtual FolderAttributes getFolderAttributes(StorageIRI const& location) const;
    virtual ExtendedAttributes getExtendedAttributes(StorageIRI const& location) const;
    virtual void setLastModified(StorageIRI const& location, boost::posix_time::ptime const& time);
    virtual void setWritable(StorageIRI const& location, bool writable);

    virtual void createFile(StorageIRI const& location);
    virtual void createFolder(StorageIRI const& location);
    virtual void createFolderRecursive(StorageIRI const& location);
    virtual void removeFile(StorageIRI const& location);
    virtual void removeFolder(StorageIRI const& location);
    virtual void removeFolderRecursively(StorageIRI const& location);

    /// Copies a file of this provider to `destination`, which may belong to another one. Default:
    /// copyFileByStreams.
    virtual CopyStatus copyFile(StorageIRI const& source, StorageItem const& destination,
                                CopyFileOptions const& options);
    /// Both locations have this provider's scheme. UnsupportedOperation makes the system copy and
    /// remove instead.
    virtual void moveFile(StorageIRI const& source, StorageIRI const& destination,
                          ReplacementPolicy const& policy);
    virtual void moveFolder(StorageIRI const& source, StorageIRI const& destination,
                            ReplacementPolicy const& policy);

    virtual std::unique_ptr<ByteStream> openStream(StorageIRI const& location,
                                                   ByteStreamOpenOptions const& options);
    virtual std::unique_ptr<ByteStream> openReadOnlyStream(StorageIRI const& location) const;

    /// Listings: all entries, files or folders, with attributes or names only, of one folder or of
    /// a whole tree. `filter` is a wildcard pattern, empty for all.
    virtual std::unique_ptr<IFolderEntryIterator> listAll(StorageIRI const& location,
                                                          ustring const& filter) const;
    virtual std::unique_ptr<IFolderEntryIterator> listFiles(StorageIRI const& location,
                                                            ustring const& filter) const;
    virtual std::unique_ptr<IFolderEntryIterator> listFolders(StorageIRI const& location,
                                                              ustring const& filter) const;
    virtual std::unique_ptr<IFolderEntryIterator> listAllNamesOnly(StorageIRI const& location,
                                                                   ustring const& filter) const;
    virtual std::unique_ptr<IFolderEntryIterator> listFilesNamesOnly(StorageIRI const& location,
                                                                     ustring const& filter) const;
    virtual std::unique_ptr<IFolderEntryIterator> listFoldersNamesOnly(StorageIRI const& location,
                                                                       ustring const& filter) const;
    virtual std::unique_ptr<IFolderEntryIterator> listAllRecursive(StorageIRI const& location,
                                                                   ustring const& filter) const;
    virtual std::unique_ptr<IFolderEntryIterator>
    listAllRecursiveNamesOnly(StorageIRI const& location, ustring const& filter) const;

    /// Change events. Default: ChangeEventsNotSupportedException.
    virtual void publishFileEvents(StorageIRI const& location, ChangeCallback callback,
                                   ChangeKinds const& kinds);
    virtual void publishFolderEvents(StorageIRI const& location, ChangeCallback callback,
                                     ChangeKinds const& kinds, RecursiveFileWatching recursive);
    virtual void stopPublishingFileEvents(StorageIRI const& location);
    virtual void stopPublishingFolderEvents(StorageIRI const& location);
};

} // namespace foundation::storage::provider
