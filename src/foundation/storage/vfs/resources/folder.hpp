#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/attributes.hpp>
#include <foundation/storage/provider/change_events.hpp>
#include <foundation/storage/provider/copy_file_options.hpp>
#include <foundation/storage/provider/i_folder_entry_iterator.hpp>
#include <foundation/storage/provider/path_comparison.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/vfs/fwd.hpp>
#include <foundation/storage/vfs/iri/absolute_iri.hpp>
#include <foundation/storage/vfs/resources/folder_removal_policy.hpp>
#include <foundation/storage/vfs/resources/path_comparator.hpp>
#include <foundation/storage/vfs/storage_system/storage_system_reference.hpp>

#include <iosfwd>
#include <memory>

namespace foundation::storage::vfs {

/// A handle on a folder; all that is said of File holds for it. It says nothing about whether the
/// folder is there.
class FOUNDATION_EXPORT Folder {
  public:
    /// Ask the system for the provider, and touch nothing else. Throw vfs::Exception,
    /// UnsupportedIRISchemeException, and std::runtime_error where the system is gone.
    Folder(AbsoluteIRI const& location, StorageSystemReference storageSystem);
    /// The handle answers getCanonicalLocation() without asking the provider.
    Folder(CanonicalAbsoluteIRI const& location, StorageSystemReference storageSystem);
    /// The folder `name` in `parent`, of the same provider. Throws provider::Exception,
    /// untranslated, for a name that is empty, absolute or climbs.
    Folder(Folder const& parent, ustring const& name);
    Folder(provider::StorageItem item, StorageSystemReference storageSystem);

    Folder(Folder const&) = default;
    Folder(Folder&&) noexcept = default;
    Folder& operator=(Folder const&) = default;
    Folder& operator=(Folder&&) noexcept = default;
    ~Folder() = default;

    AbsoluteIRI getLocation() const;
    CanonicalAbsoluteIRI getCanonicalLocation() const;
    /// Provider exceptions are not translated by these three.
    ustring getName() const;
    bool hasParent() const;
    Folder getParent() const;
    StorageSystemReference getStorageSystem() const;

    void createFolder() const;
    void createFolderRecursive() const;
    bool folderExists() const;
    /// Removes an empty folder under NonRecursive. Under Recursive the provider removes the tree;
    /// where it cannot, files and folders are removed one by one, and the first failure leaves the
    /// rest in place. What has vanished meanwhile is no failure, but for this folder.
    void removeFolder(FolderRemovalPolicy const& policy) const;
    provider::FolderAttributes getAttributes() const;
    provider::ExtendedAttributes getExtendedAttributes() const;
    void setLastModified(boost::posix_time::ptime const& time) const;
    void setWritable(bool writable) const;

    /// Makes the tree of this folder appear at `destination`, whatever the two are called, one item
    /// after the other; a failure leaves what was done so far. Within one scheme the times of the
    /// last change are carried over where possible. A source file that vanishes meanwhile drops
    /// what has not been copied of its folder, silently.
    ///
    /// What is there already:
    /// - FailIfExists: a folder fails with ResourceAlreadyExists.
    /// - ReplaceExisting: an empty folder is made anew, any other fails with FolderNotEmpty.
    /// - ReplaceReadOnly, ReplaceAndDeferDenied: folders are merged, files replaced as by
    ///   File::copyFile. The latter goes on where a file is denied, and throws the last denial at
    ///   the end.
    /// - KeepExisting: folders are merged.
    /// An existing file is left alone, silently, under all but ReplaceReadOnly and
    /// ReplaceAndDeferDenied.
    ///
    /// Throws ResourceNotFound for a missing folder, and InvalidLocation, naming the destination,
    /// where that lies in this folder. Provider exceptions of the question whether the folder
    /// exists are not translated.
    void copyFolder(Folder const& destination, provider::ReplacementPolicy const& policy) const;
    /// The same, to a folder of this one's name in `destination`.
    void copyFolderInto(Folder const& destination, provider::ReplacementPolicy const& policy) const;
    /// Moves by the provider where both have one scheme. Where it cannot, and where what is there
    /// stops it and the policy merges, the tree is copied as by copyFolder(), and removed when that
    /// returned: so is what the copy left alone, or dropped because a file vanished.
    void moveFolder(Folder const& destination, provider::ReplacementPolicy const& policy) const;

    provider::FilenameSensitivity getFilenameSensitivity() const;
    PathComparator getPathComparator() const;

    /// What is in the folder, as a stream: a missing folder fails here, and what is behind the
    /// first element is read while the iterators move (listing/folder_listing.hpp; a caller of
    /// these includes it, and listing/entries.hpp for the elements that are entries). A pattern
    /// that is not empty leaves the names that match it: `*` any number of UTF-16 units, `?` one
    /// (provider/wildcard.hpp; a provider that filters by itself may have rules of its own).
    ///
    /// listFiles, listFolders and listAll fetch names only. The ...Entries carry the attributes
    /// that came with the listing.
    FolderListing<File> listFiles(ustring pattern = {}) const;
    FolderListing<Folder> listFolders(ustring pattern = {}) const;
    FolderListing<ListEntry> listAll(ustring pattern = {}) const;
    FolderListing<FileEntry> listFileEntries(ustring pattern = {}) const;
    FolderListing<FolderEntry> listFolderEntries(ustring pattern = {}) const;
    FolderListing<FileOrFolderEntry> listAllEntries(ustring pattern = {}) const;
    /// The whole tree, each folder before what is in it; a pattern chooses what is shown, and not
    /// what is entered. Folders below this one that deny access or vanish are passed over. The
    /// elements of a provider that walks by itself belong to this folder and are named by their
    /// path below it; others belong to their own folder. Where the provider does not walk, the
    /// listing's empty() answers false without a pattern, and begin() == end() tells.
    FolderListing<ListEntry> listAllRecursive(ustring pattern = {}) const;
    FolderListing<FileOrFolderEntry> listAllEntriesRecursive(ustring pattern = {}) const;
    /// Whether the provider filters listings by itself. Provider exceptions are not translated.
    bool providerSupportsFlatWildcardListing() const;

    /// Writes pending state of the storage out.
    void flushFilesystem();

    /// Adds a publication of the changes of this folder and its children: the provider calls a
    /// copy of the publisher with each of these kinds, and with overflows, until it is stopped
    /// (events/event_publisher.hpp).
    void publishEvents(EventPublisher const& publisher, provider::ChangeKinds const& kinds) const;
    /// The same for the whole tree. Throws UnsupportedOperation where the provider does not watch
    /// trees; its exceptions of that question are not translated.
    void publishEventsRecursively(RecursiveEventPublisher const& publisher,
                                  provider::ChangeKinds const& kinds) const;
    /// Ends what the oldest publication of this folder's changes started.
    void stopPublishingEvents() const;

    /// Exchanges what the handles name; each keeps its storage system and whether it is canonical.
    void swap(Folder& other);

    /// Compare locations alone, as provider::StorageIRI does.
    bool operator==(Folder const& other) const;
    bool operator!=(Folder const& other) const;
    bool operator<(Folder const& other) const;

  private:
    friend class File;
    struct Impl;
    using Cursor = std::unique_ptr<provider::IFolderEntryIterator>;

    provider::StorageItem const& item() const;

    /// False where the tree is to be copied and removed instead.
    bool moveNatively(Folder const& destination, provider::ReplacementPolicy const& policy) const;

    Cursor doListFiles(ustring const& pattern) const;
    Cursor doListFolders(ustring const& pattern) const;
    Cursor doListAll(ustring const& pattern) const;
    Cursor doListFileEntries(ustring const& pattern) const;
    Cursor doListFolderEntries(ustring const& pattern) const;
    Cursor doListAllEntries(ustring const& pattern) const;
    Cursor doListAllRecursive_provider_specialization(ustring const& pattern) const;
    Cursor doListAllEntriesRecursive_provider_specialization(ustring const& pattern) const;
    /// Runs one of StorageItem's list operations.
    Cursor list(Cursor (provider::StorageItem::*operation)(ustring) const,
                ustring const& pattern) const;
    template<class T>
    FolderListing<T> listFlat(Cursor (Folder::*operation)(ustring const&) const,
                              ustring const& pattern) const;
    template<class T>
    FolderListing<T> listRecursive(Cursor (Folder::*operation)(ustring const&) const,
                                   ustring const& pattern) const;

    std::shared_ptr<Impl const> impl_;
};

/// Writes the location.
FOUNDATION_EXPORT std::ostream& operator<<(std::ostream& out, Folder const& folder);

} // namespace foundation::storage::vfs
