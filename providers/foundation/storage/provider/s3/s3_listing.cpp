// The eight listings.

#include <foundation/storage/provider/s3/detail/translation.hpp>
#include <foundation/storage/provider/s3/s3_cursor.hpp>
#include <foundation/storage/provider/s3/s3_provider.hpp>

#include <utility>

namespace foundation::storage::provider::s3 {

using detail::Depth;
using detail::ShownDetail;
using detail::ShownKinds;

bool S3Provider::hasFeature(StorageIRI const&, ExtendedFeature const& feature) const {
    switch (feature) {
    case ExtendedFeature::RecursiveFolderRemoval:
    case ExtendedFeature::RecursiveListing:
    case ExtendedFeature::FlatWildcardListing:
    case ExtendedFeature::RecursiveWildcardListing:
        return true;
    case ExtendedFeature::RecursiveChangeEvents:
        return false;
    }
    return false;
}

std::unique_ptr<IFolderEntryIterator> S3Provider::list(StorageIRI const& location,
                                                       detail::Selection selection) const {
    ItemKey const key = keyOf(location);
    if (!key.canBeFolder()) {
        throw Exception(ErrorCode::ResourceNotFound, location);
    }
    auto const listing = std::make_shared<detail::Listing const>(
        detail::Listing{bucket_, key.folder(), location, std::move(selection)});
    detail::ListedPagePtr page = detail::translated(location, [&] {
        auto first = readPage(*listing, {}, bucket_->deadline());
        // A folder without anything in it has a marker at least.
        if (!key.isRoot() && first->isEmpty() && first->isLast()) {
            throw Exception(ErrorCode::ResourceNotFound, location);
        }
        return first;
    });
    return std::make_unique<S3Cursor>(listing, threads_, std::move(page));
}

std::unique_ptr<IFolderEntryIterator> S3Provider::listAll(StorageIRI const& location,
                                                          ustring const& filter) const {
    return list(location, {ShownKinds::All, ShownDetail::Attributes, Depth::Flat, filter});
}

std::unique_ptr<IFolderEntryIterator> S3Provider::listFiles(StorageIRI const& location,
                                                            ustring const& filter) const {
    return list(location, {ShownKinds::Files, ShownDetail::Attributes, Depth::Flat, filter});
}

std::unique_ptr<IFolderEntryIterator> S3Provider::listFolders(StorageIRI const& location,
                                                              ustring const& filter) const {
    return list(location, {ShownKinds::Folders, ShownDetail::Attributes, Depth::Flat, filter});
}

std::unique_ptr<IFolderEntryIterator> S3Provider::listAllNamesOnly(StorageIRI const& location,
                                                                   ustring const& filter) const {
    return list(location, {ShownKinds::All, ShownDetail::NamesOnly, Depth::Flat, filter});
}

std::unique_ptr<IFolderEntryIterator> S3Provider::listFilesNamesOnly(StorageIRI const& location,
                                                                     ustring const& filter) const {
    return list(location, {ShownKinds::Files, ShownDetail::NamesOnly, Depth::Flat, filter});
}

std::unique_ptr<IFolderEntryIterator>
S3Provider::listFoldersNamesOnly(StorageIRI const& location, ustring const& filter) const {
    return list(location, {ShownKinds::Folders, ShownDetail::NamesOnly, Depth::Flat, filter});
}

std::unique_ptr<IFolderEntryIterator> S3Provider::listAllRecursive(StorageIRI const& location,
                                                                   ustring const& filter) const {
    return list(location, {ShownKinds::All, ShownDetail::Attributes, Depth::Recursive, filter});
}

std::unique_ptr<IFolderEntryIterator>
S3Provider::listAllRecursiveNamesOnly(StorageIRI const& location, ustring const& filter) const {
    return list(location, {ShownKinds::All, ShownDetail::NamesOnly, Depth::Recursive, filter});
}

} // namespace foundation::storage::provider::s3
