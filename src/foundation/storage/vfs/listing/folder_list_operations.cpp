#include <foundation/storage/vfs/resources/folder.hpp>

#include <foundation/storage/vfs/errors/detail/translated.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/listing/detail/folder_iterator_wildcards_impl.hpp>
#include <foundation/storage/vfs/listing/detail/folder_listing_iterator_impl.hpp>
#include <foundation/storage/vfs/listing/detail/recursive_folder_listing_iterator_impl.hpp>
#include <foundation/storage/vfs/listing/file_or_folder_entry.hpp>
#include <foundation/storage/vfs/listing/list_entry.hpp>

#include <utility>

namespace foundation::storage::vfs {

using detail::FolderIteratorWildcardsImpl;
using detail::FolderListingIteratorImpl;
using detail::IFolderIteratorImpl;
using detail::RecursiveFolderListingIteratorImpl;
using detail::translated;
using provider::ExtendedFeature;
using provider::StorageItem;

namespace {

template<class T>
FolderListing<T> filtered(std::shared_ptr<IFolderIteratorImpl<T>> all, ustring const& pattern) {
    return FolderListing<T>(
        std::make_shared<FolderIteratorWildcardsImpl<T>>(std::move(all), pattern));
}

} // namespace

Folder::Cursor Folder::list(Cursor (StorageItem::*operation)(ustring) const,
                            ustring const& pattern) const {
    return translated([&] {
        Cursor cursor = (item().*operation)(pattern);
        if (!cursor) {
            throw Exception(ErrorCode::InternalError, getLocation());
        }
        return cursor;
    });
}

Folder::Cursor Folder::doListFiles(ustring const& pattern) const {
    return list(&StorageItem::listFilesNamesOnly, pattern);
}

Folder::Cursor Folder::doListFolders(ustring const& pattern) const {
    return list(&StorageItem::listFoldersNamesOnly, pattern);
}

Folder::Cursor Folder::doListAll(ustring const& pattern) const {
    return list(&StorageItem::listAllNamesOnly, pattern);
}

Folder::Cursor Folder::doListFileEntries(ustring const& pattern) const {
    return list(&StorageItem::listFiles, pattern);
}

Folder::Cursor Folder::doListFolderEntries(ustring const& pattern) const {
    return list(&StorageItem::listFolders, pattern);
}

Folder::Cursor Folder::doListAllEntries(ustring const& pattern) const {
    return list(&StorageItem::listAll, pattern);
}

Folder::Cursor Folder::doListAllRecursive_provider_specialization(ustring const& pattern) const {
    return list(&StorageItem::listAllRecursiveNamesOnly, pattern);
}

Folder::Cursor
Folder::doListAllEntriesRecursive_provider_specialization(ustring const& pattern) const {
    return list(&StorageItem::listAllRecursive, pattern);
}

bool Folder::providerSupportsFlatWildcardListing() const {
    return item().hasFeature(ExtendedFeature::FlatWildcardListing);
}

template<class T>
FolderListing<T> Folder::listFlat(Cursor (Folder::*operation)(ustring const&) const,
                                  ustring const& pattern) const {
    return translated([&] {
        Cursor cursor = (this->*operation)(pattern);
        bool const filterHere = !pattern.empty() && !providerSupportsFlatWildcardListing();
        auto all = std::make_shared<FolderListingIteratorImpl<T>>(*this, std::move(cursor));
        return filterHere ? filtered<T>(std::move(all), pattern) : FolderListing<T>(all);
    });
}

template<class T>
FolderListing<T> Folder::listRecursive(Cursor (Folder::*operation)(ustring const&) const,
                                       ustring const& pattern) const {
    return translated([&] {
        std::shared_ptr<IFolderIteratorImpl<T>> all;
        bool filterHere = !pattern.empty();
        if (item().hasFeature(ExtendedFeature::RecursiveListing)) {
            Cursor cursor = (this->*operation)(pattern);
            filterHere =
                filterHere && !item().hasFeature(ExtendedFeature::RecursiveWildcardListing);
            all = std::make_shared<FolderListingIteratorImpl<T>>(*this, std::move(cursor));
        } else {
            all = std::make_shared<RecursiveFolderListingIteratorImpl<T>>(*this, pattern);
        }
        return filterHere ? filtered<T>(std::move(all), pattern) : FolderListing<T>(all);
    });
}

FolderListing<File> Folder::listFiles(ustring pattern) const {
    return listFlat<File>(&Folder::doListFiles, pattern);
}

FolderListing<Folder> Folder::listFolders(ustring pattern) const {
    return listFlat<Folder>(&Folder::doListFolders, pattern);
}

FolderListing<ListEntry> Folder::listAll(ustring pattern) const {
    return listFlat<ListEntry>(&Folder::doListAll, pattern);
}

FolderListing<FileEntry> Folder::listFileEntries(ustring pattern) const {
    return listFlat<FileEntry>(&Folder::doListFileEntries, pattern);
}

FolderListing<FolderEntry> Folder::listFolderEntries(ustring pattern) const {
    return listFlat<FolderEntry>(&Folder::doListFolderEntries, pattern);
}

FolderListing<FileOrFolderEntry> Folder::listAllEntries(ustring pattern) const {
    return listFlat<FileOrFolderEntry>(&Folder::doListAllEntries, pattern);
}

FolderListing<ListEntry> Folder::listAllRecursive(ustring pattern) const {
    return listRecursive<ListEntry>(&Folder::doListAllRecursive_provider_specialization, pattern);
}

FolderListing<FileOrFolderEntry> Folder::listAllEntriesRecursive(ustring pattern) const {
    return listRecursive<FileOrFolderEntry>(
        &Folder::doListAllEntriesRecursive_provider_specialization, pattern);
}

} // namespace foundation::storage::vfs
