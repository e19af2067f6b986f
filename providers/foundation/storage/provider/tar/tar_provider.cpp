#include <foundation/storage/provider/tar/tar_provider.hpp>

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/tar/tar_stream.hpp>

#include <fl/i18n/conversion.hpp>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace foundation::storage::provider::tar {

using container::EntryKind;
using container::LastLink;

namespace {

/// The path in the archive, as its names are spelled there; a name that no archive can hold is in
/// none.
std::string pathOf(StorageIRI const& location) {
    if (!location.hasPath() || !location.hasInnerIRI() || location.hasQuery() ||
        location.hasFragment()) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    try {
        return fl::i18n::ustringToStorageName(location.getResolvedPath());
    } catch (std::range_error const&) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
}

} // namespace

TarProvider::TarProvider(StorageItem item, TarOptions const& options)
    : item_(std::move(item)),
      options_(options),
      itemState_(detail::stateOf(item_)),
      archive_(read(itemState_)) {}

TarProvider::ArchivePtr TarProvider::read(detail::ItemState const& state) const {
    auto const archive = std::make_shared<Archive>();
    try {
        archive->source = std::make_shared<detail::ArchiveSource>(item_, state, options_);
    } catch (ByteStreamFailure const& failure) {
        throw Exception(failure.getErrorCode(), item_.getLocation());
    }
    archive->headers = detail::readHeaders(*archive->source, options_);
    archive->readers =
        std::make_shared<detail::MemberReaders>(archive->source, archive->headers.charset);
    return archive;
}

TarProvider::ArchivePtr TarProvider::archive() const {
    detail::ItemState now = detail::stateOf(item_);
    std::lock_guard const lock(mutex_);
    auto const isOutdated = [&] { return now != itemState_ || archive_->source->isOutdated(); };
    if (isOutdated()) {
        now = detail::stateOf(item_); // another thread may have waited, and seen more
        if (isOutdated()) {
            archive_ = read(now);
            itemState_ = now;
        }
    }
    return archive_;
}

TarProvider::Place TarProvider::placeOf(Archive const& archive, StorageIRI const& location,
                                        LastLink last) const {
    Index const& index = *archive.headers.index;
    return container::walk(index, index.rootHandle(), pathOf(location), last, [&](Number link) {
        // Empty where it is too long to be known, and then the link leads nowhere.
        return std::string(index.targetOf(link));
    });
}

TarProvider::Found TarProvider::find(StorageIRI const& location, LastLink last) const {
    ArchivePtr archive = this->archive();
    Place const place = placeOf(*archive, location, last);
    if (place.error) {
        throw Exception(*place.error, location);
    }
    return {std::move(archive), place.entry};
}

TarProvider::Found TarProvider::findFolder(StorageIRI const& location) const {
    Found found = find(location, LastLink::Followed);
    if (!found.index().isFolder(found.entry)) {
        throw Exception(ErrorCode::ResourceNotFound, location);
    }
    return found;
}

/// A link whose target is too long is told from one that leads to nothing.
TarProvider::Found TarProvider::findToOpen(StorageIRI const& location) const {
    ArchivePtr archive = this->archive();
    Place const place = placeOf(*archive, location, LastLink::Followed);
    if (place.error) {
        Index const& index = *archive->headers.index;
        Place const link = placeOf(*archive, location, LastLink::Itself);
        bool const isTooLong = !link.error && index.kindOf(link.entry) == EntryKind::Link &&
                               index.memberOf(link.entry).access == detail::Access::Missing;
        throw Exception(isTooLong ? ErrorCode::InvalidLocation : *place.error, location);
    }
    return {std::move(archive), place.entry};
}

/// What a link leads to, and the link itself where that is nothing.
TarProvider::Found TarProvider::findFollowed(StorageIRI const& location) const {
    ArchivePtr archive = this->archive();
    Place place = placeOf(*archive, location, LastLink::Followed);
    if (place.error) {
        place = placeOf(*archive, location, LastLink::Itself);
    }
    if (place.error) {
        throw Exception(*place.error, location);
    }
    return {std::move(archive), place.entry};
}

ExistsResult TarProvider::exists(StorageIRI const& location) const {
    ArchivePtr const archive = this->archive();
    Index const* const index = archive->headers.index.get();
    Place const place = placeOf(*archive, location, LastLink::Itself);
    if (place.error && *place.error != ErrorCode::ResourceNotFound) {
        throw Exception(*place.error, location);
    }
    return place.error                    ? ExistsResult::Nothing
           : index->isFolder(place.entry) ? ExistsResult::Folder
                                          : ExistsResult::File;
}

ExtendedExistsResult TarProvider::existsExtended(StorageIRI const& location) const {
    ArchivePtr const archive = this->archive();
    Index const* const index = archive->headers.index.get();
    Place const place = placeOf(*archive, location, LastLink::Itself);
    if (place.error) {
        if (*place.error != ErrorCode::ResourceNotFound) {
            throw Exception(*place.error, location);
        }
        return ExtendedExistsResult::Nothing;
    }
    switch (index->kindOf(place.entry)) {
    case EntryKind::Folder:
        return ExtendedExistsResult::Folder;
    case EntryKind::File:
        return ExtendedExistsResult::File;
    case EntryKind::Other:
        return ExtendedExistsResult::Other;
    case EntryKind::Link:
        break;
    }
    Place const target = placeOf(*archive, location, LastLink::Followed);
    return target.error                    ? ExtendedExistsResult::DanglingLink
           : index->isFolder(target.entry) ? ExtendedExistsResult::LinkToFolder
                                           : ExtendedExistsResult::LinkToFile;
}

bool TarProvider::fileExists(StorageIRI const& location) const {
    return exists(location) == ExistsResult::File;
}

bool TarProvider::folderExists(StorageIRI const& location) const {
    ArchivePtr const archive = this->archive();
    Index const* const index = archive->headers.index.get();
    Place const place = placeOf(*archive, location, LastLink::Followed);
    return !place.error && index->isFolder(place.entry);
}

bool TarProvider::hasFeature(StorageIRI const&, ExtendedFeature const& feature) const {
    switch (feature) {
    case ExtendedFeature::RecursiveListing:
    case ExtendedFeature::FlatWildcardListing:
    case ExtendedFeature::RecursiveWildcardListing:
        return true;
    case ExtendedFeature::RecursiveFolderRemoval:
    case ExtendedFeature::RecursiveChangeEvents:
        break;
    }
    return false;
}

StorageIRI TarProvider::getCanonicalLocation(StorageIRI const& location) const {
    ArchivePtr const archive = this->archive();
    Index const* const index = archive->headers.index.get();
    // What is missing has a place too, be it the path itself or what a link leads to.
    Place const place = placeOf(*archive, location, LastLink::Followed);
    if (place.error && place.folder == Index::none) {
        throw Exception(*place.error, location);
    }
    std::string path = place.name;
    Number const from = place.error ? place.folder : place.entry;
    for (Number entry = from; entry != Index::root; entry = index->parentOf(entry)) {
        std::string longer(index->nameOf(entry));
        longer += path.empty() ? "" : "/";
        longer += path;
        path = std::move(longer);
    }
    StorageIRI const root(location.getScheme(), item_.getCanonicalLocation(), u"/");
    return path.empty() ? root : StorageIRI(root, fl::i18n::storageNameToUstring(path));
}

FileAttributes TarProvider::getFileAttributes(StorageIRI const& location) const {
    Found const found = findFollowed(location);
    if (found.index().isFolder(found.entry)) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    return FileAttributes(found.index().attributesOf(found.entry));
}

FolderAttributes TarProvider::getFolderAttributes(StorageIRI const& location) const {
    Found const found = findFolder(location);
    return FolderAttributes(found.index().attributesOf(found.entry));
}

ExtendedAttributes TarProvider::getExtendedAttributes(StorageIRI const& location) const {
    Found const found = findFollowed(location);
    AttributeValues const values = found.index().attributesOf(found.entry);
    ExtendedAttributes result{{"posix.mode", container::octal(values.mode.value_or(0))}};
    if (found.entry == Index::root) {
        result["tar.format"] = found.archive->headers.format;
        result["tar.compression"] = detail::nameOf(found.archive->source->compression());
        if (found.index().leftOut() != 0) {
            result["tar.left-out"] = std::to_string(found.index().leftOut());
        }
        if (found.index().replaced() != 0) {
            result["tar.replaced"] = std::to_string(found.index().replaced());
        }
    }
    if (found.member().access == detail::Access::Encrypted) {
        result["tar.encrypted"] = "yes";
    }
    return result;
}

void TarProvider::setLastModified(StorageIRI const& location, boost::posix_time::ptime const&) {
    throw Exception(ErrorCode::ReadOnlyProvider, location);
}
void TarProvider::setWritable(StorageIRI const& location, bool) {
    throw Exception(ErrorCode::ReadOnlyProvider, location);
}
void TarProvider::createFile(StorageIRI const& location) {
    throw Exception(ErrorCode::ReadOnlyProvider, location);
}
void TarProvider::createFolder(StorageIRI const& location) {
    throw Exception(ErrorCode::ReadOnlyProvider, location);
}
void TarProvider::createFolderRecursive(StorageIRI const& location) {
    throw Exception(ErrorCode::ReadOnlyProvider, location);
}
void TarProvider::createLink(StorageIRI const& location, ustring const&) {
    throw Exception(ErrorCode::ReadOnlyProvider, location);
}
void TarProvider::removeFile(StorageIRI const& location) {
    throw Exception(ErrorCode::ReadOnlyProvider, location);
}
void TarProvider::removeFolder(StorageIRI const& location) {
    throw Exception(ErrorCode::ReadOnlyProvider, location);
}
void TarProvider::removeFolderRecursively(StorageIRI const& location) {
    throw Exception(ErrorCode::ReadOnlyProvider, location);
}
void TarProvider::moveFile(StorageIRI const& source, StorageIRI const&, ReplacementPolicy const&) {
    throw Exception(ErrorCode::ReadOnlyProvider, source);
}
void TarProvider::moveFolder(StorageIRI const& source, StorageIRI const& destination,
                             ReplacementPolicy const&) {
    bool const isOntoItself = source == destination || source.isAncestorOf(destination);
    throw Exception(isOntoItself ? ErrorCode::InvalidLocation : ErrorCode::ReadOnlyProvider,
                    source);
}
std::unique_ptr<ByteStream> TarProvider::openStream(StorageIRI const& location,
                                                    ByteStreamOpenOptions const&) {
    throw Exception(ErrorCode::ReadOnlyProvider, location);
}

std::unique_ptr<ByteStream> TarProvider::openReadOnlyStream(StorageIRI const& location) const {
    Found const found = findToOpen(location);
    if (found.index().isFolder(found.entry)) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    return openMember(*found.archive->source, found.archive->readers, found.member(), location);
}

ustring TarProvider::readLink(StorageIRI const& location) const {
    Found const found = find(location, LastLink::Itself);
    if (found.index().kindOf(found.entry) != EntryKind::Link) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    if (found.member().access == detail::Access::Missing) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    return fl::i18n::storageNameToUstring(found.index().targetOf(found.entry));
}

std::unique_ptr<IFolderEntryIterator> TarProvider::list(StorageIRI const& location,
                                                        container::Selection selection) const {
    Found const found = findFolder(location);
    return std::make_unique<TarCursor>(std::make_shared<TarCursor::Listing const>(
        TarCursor::Listing{found.archive->headers.index, found.entry, std::move(selection)}));
}

} // namespace foundation::storage::provider::tar
