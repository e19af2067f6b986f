// The eight listings.

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/memory/detail/tree.hpp>
#include <foundation/storage/provider/memory/memory_cursor.hpp>
#include <foundation/storage/provider/memory/memory_provider.hpp>

#include <shared_mutex>
#include <utility>

namespace foundation::storage::provider::memory {

using detail::Depth;
using detail::FolderNode;
using detail::LastLink;
using detail::pathOf;
using detail::Place;
using detail::Selection;
using detail::ShownDetail;
using detail::ShownKinds;
using detail::Tree;

namespace {

std::shared_ptr<FolderNode> folderAt(Tree const& tree, StorageIRI const& location) {
    std::shared_lock const lock(tree.mutex);
    Place const place = tree.walk(pathOf(location), LastLink::Follow);
    FolderNode* const folder = place.asFolder();
    if (!folder) {
        throw Exception(place.error.value_or(ErrorCode::ResourceNotFound), location);
    }
    return folder->shared_from_this();
}

std::unique_ptr<IFolderEntryIterator> list(std::shared_ptr<Tree> const& tree,
                                           StorageIRI const& location, Selection selection) {
    return std::make_unique<MemoryCursor>(std::make_shared<MemoryListing const>(
        MemoryListing{tree, folderAt(*tree, location), location, std::move(selection)}));
}

} // namespace

bool MemoryProvider::hasFeature(StorageIRI const&, ExtendedFeature const& feature) const {
    switch (feature) {
    case ExtendedFeature::RecursiveFolderRemoval:
    case ExtendedFeature::RecursiveListing:
    case ExtendedFeature::FlatWildcardListing:
    case ExtendedFeature::RecursiveWildcardListing:
    case ExtendedFeature::RecursiveChangeEvents:
        return true;
    }
    return false;
}

std::unique_ptr<IFolderEntryIterator> MemoryProvider::listAll(StorageIRI const& location,
                                                              ustring const& filter) const {
    return list(tree_, location, {ShownKinds::All, ShownDetail::Attributes, Depth::Flat, filter});
}

std::unique_ptr<IFolderEntryIterator> MemoryProvider::listFiles(StorageIRI const& location,
                                                                ustring const& filter) const {
    return list(tree_, location, {ShownKinds::Files, ShownDetail::Attributes, Depth::Flat, filter});
}

std::unique_ptr<IFolderEntryIterator> MemoryProvider::listFolders(StorageIRI const& location,
                                                                  ustring const& filter) const {
    return list(tree_, location,
                {ShownKinds::Folders, ShownDetail::Attributes, Depth::Flat, filter});
}

std::unique_ptr<IFolderEntryIterator>
MemoryProvider::listAllNamesOnly(StorageIRI const& location, ustring const& filter) const {
    return list(tree_, location, {ShownKinds::All, ShownDetail::NamesOnly, Depth::Flat, filter});
}

std::unique_ptr<IFolderEntryIterator>
MemoryProvider::listFilesNamesOnly(StorageIRI const& location, ustring const& filter) const {
    return list(tree_, location, {ShownKinds::Files, ShownDetail::NamesOnly, Depth::Flat, filter});
}

std::unique_ptr<IFolderEntryIterator>
MemoryProvider::listFoldersNamesOnly(StorageIRI const& location, ustring const& filter) const {
    return list(tree_, location,
                {ShownKinds::Folders, ShownDetail::NamesOnly, Depth::Flat, filter});
}

std::unique_ptr<IFolderEntryIterator>
MemoryProvider::listAllRecursive(StorageIRI const& location, ustring const& filter) const {
    return list(tree_, location,
                {ShownKinds::All, ShownDetail::Attributes, Depth::Recursive, filter});
}

std::unique_ptr<IFolderEntryIterator>
MemoryProvider::listAllRecursiveNamesOnly(StorageIRI const& location, ustring const& filter) const {
    return list(tree_, location,
                {ShownKinds::All, ShownDetail::NamesOnly, Depth::Recursive, filter});
}

} // namespace foundation::storage::provider::memory
