#include <foundation/storage/provider/zip/zip_provider.hpp>

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/zip/detail/central_directory.hpp>
#include <foundation/storage/provider/zip/zip_stream.hpp>

#include <fl/i18n/conversion.hpp>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace foundation::storage::provider::zip {

using detail::ArchiveIndex;
using detail::ArchivePlace;
using detail::EntryKind;
using detail::LastLink;
using Kinds = ZipSelection::Kinds;

namespace {

/// As long as a path may be for the kernel.
constexpr std::uint64_t longestTarget = 4096;

[[noreturn]] void fail(ErrorCode code, StorageIRI const& location) {
    throw Exception(code, location);
}

/// The path in the archive, as its names are spelled there; a name that no archive can hold is in
/// none.
std::string pathOf(StorageIRI const& location) {
    if (!location.hasPath() || !location.hasInnerIRI() || location.hasQuery() ||
        location.hasFragment()) {
        fail(ErrorCode::InvalidLocation, location);
    }
    try {
        return fl::i18n::ustringToStorageName(location.getResolvedPath());
    } catch (std::range_error const&) {
        fail(ErrorCode::InvalidLocation, location);
    }
}

char const* methodName(std::uint16_t method) {
    switch (static_cast<detail::Method>(method)) {
    case detail::Method::Stored:
        return "stored";
    case detail::Method::Deflated:
        return "deflate";
    case detail::Method::Bzip2:
        return "bzip2";
    case detail::Method::OldZstandard:
    case detail::Method::Zstandard:
        return "zstd";
    case detail::Method::Xz:
        return "xz";
    }
    return "unknown";
}

std::string octal(unsigned mode) {
    std::string text(4, '0');
    for (auto digit = text.rbegin(); digit != text.rend(); ++digit, mode >>= 3) {
        *digit = static_cast<char>('0' + (mode & 7U));
    }
    return text;
}

} // namespace

ZipProvider::ZipProvider(StorageItem item, ZipOptions const& options)
    : item_(std::move(item)),
      options_(options),
      itemState_(stateOfItem()) {
    archive_ = read();
}

ZipProvider::ItemState ZipProvider::stateOfItem() const {
    AttributeValues const values = item_.getFileAttributes().values();
    return {values.size, values.lastModified, values.created};
}

ZipProvider::ArchivePtr ZipProvider::read() const {
    auto const archive = std::make_shared<Archive>();
    archive->streams = std::make_shared<container::ItemStreams>(item_);
    archive->index = detail::readCentralDirectory(*archive->streams, options_);
    return archive;
}

ZipProvider::ArchivePtr ZipProvider::archive() const {
    ItemState const now = stateOfItem();
    std::lock_guard const lock(mutex_);
    if (now != itemState_) {
        archive_ = read();
        itemState_ = now;
    }
    return archive_;
}

std::string ZipProvider::linkTarget(Archive& archive, Number link,
                                    StorageIRI const& location) const {
    if (std::optional<std::string> known = archive.targets.find(link)) {
        return *std::move(known);
    }
    detail::Member const member = archive.index->memberOf(link);
    if (member.size > longestTarget) {
        fail(ErrorCode::InvalidLocation, location);
    }
    try {
        std::string target(static_cast<std::size_t>(member.size), '\0');
        auto const stream = openMember(*archive.streams, member, location, options_);
        if (!target.empty()) {
            stream->read(target.data(), static_cast<long>(target.size()));
        }
        archive.targets.keep(link, target);
        return target;
    } catch (ByteStreamFailure const& failure) {
        fail(failure.getErrorCode(), location);
    }
}

ArchivePlace ZipProvider::placeOf(Archive& archive, StorageIRI const& location,
                                  LastLink last) const {
    return detail::walk(*archive.index, pathOf(location), last,
                        [&](Number link) { return linkTarget(archive, link, location); });
}

ZipProvider::Found ZipProvider::find(StorageIRI const& location, LastLink last) const {
    ArchivePtr archive = this->archive();
    ArchivePlace const place = placeOf(*archive, location, last);
    if (place.error) {
        fail(*place.error, location);
    }
    auto index = archive->index;
    return {std::move(archive), std::move(index), place.entry};
}

ZipProvider::Found ZipProvider::findFolder(StorageIRI const& location) const {
    Found found = find(location, LastLink::Followed);
    if (!found.index->isFolder(found.entry)) {
        fail(ErrorCode::ResourceNotFound, location);
    }
    return found;
}

/// What a link leads to, and the link itself where that is nothing.
ZipProvider::Found ZipProvider::findFollowed(StorageIRI const& location) const {
    ArchivePtr archive = this->archive();
    ArchivePlace place = placeOf(*archive, location, LastLink::Followed);
    if (place.error) {
        place = placeOf(*archive, location, LastLink::Itself);
    }
    if (place.error) {
        fail(*place.error, location);
    }
    auto index = archive->index;
    return {std::move(archive), std::move(index), place.entry};
}

ExistsResult ZipProvider::exists(StorageIRI const& location) const {
    ArchivePtr const archive = this->archive();
    ArchiveIndex const* const index = archive->index.get();
    ArchivePlace const place = placeOf(*archive, location, LastLink::Itself);
    if (place.error && *place.error != ErrorCode::ResourceNotFound) {
        fail(*place.error, location);
    }
    return place.error                    ? ExistsResult::Nothing
           : index->isFolder(place.entry) ? ExistsResult::Folder
                                          : ExistsResult::File;
}

ExtendedExistsResult ZipProvider::existsExtended(StorageIRI const& location) const {
    ArchivePtr const archive = this->archive();
    ArchiveIndex const* const index = archive->index.get();
    ArchivePlace const place = placeOf(*archive, location, LastLink::Itself);
    if (place.error) {
        if (*place.error != ErrorCode::ResourceNotFound) {
            fail(*place.error, location);
        }
        return ExtendedExistsResult::Nothing;
    }
    switch (index->kindOf(place.entry)) {
    case EntryKind::Folder:
        return ExtendedExistsResult::Folder;
    case EntryKind::File:
        return ExtendedExistsResult::File;
    case EntryKind::Link:
        break;
    }
    ArchivePlace const target = placeOf(*archive, location, LastLink::Followed);
    return target.error                    ? ExtendedExistsResult::DanglingLink
           : index->isFolder(target.entry) ? ExtendedExistsResult::LinkToFolder
                                           : ExtendedExistsResult::LinkToFile;
}

bool ZipProvider::fileExists(StorageIRI const& location) const {
    return exists(location) == ExistsResult::File;
}

bool ZipProvider::folderExists(StorageIRI const& location) const {
    ArchivePtr const archive = this->archive();
    ArchiveIndex const* const index = archive->index.get();
    ArchivePlace const place = placeOf(*archive, location, LastLink::Followed);
    return !place.error && index->isFolder(place.entry);
}

bool ZipProvider::hasFeature(StorageIRI const&, ExtendedFeature const& feature) const {
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

StorageIRI ZipProvider::getCanonicalLocation(StorageIRI const& location) const {
    ArchivePtr const archive = this->archive();
    ArchiveIndex const* const index = archive->index.get();
    // What is missing has a place too, be it the path itself or what a link leads to.
    ArchivePlace const place = placeOf(*archive, location, LastLink::Followed);
    if (place.error && place.folder == ArchiveIndex::none) {
        fail(*place.error, location);
    }
    std::string path = place.name;
    Number const from = place.error ? place.folder : place.entry;
    for (Number entry = from; entry != ArchiveIndex::root; entry = index->parentOf(entry)) {
        path = std::string(index->nameOf(entry)) + (path.empty() ? "" : "/") + path;
    }
    StorageIRI const root(location.getScheme(), item_.getCanonicalLocation(), u"/");
    return path.empty() ? root : StorageIRI(root, fl::i18n::storageNameToUstring(path));
}

FileAttributes ZipProvider::getFileAttributes(StorageIRI const& location) const {
    Found const found = findFollowed(location);
    if (found.index->isFolder(found.entry)) {
        fail(ErrorCode::InvalidLocation, location);
    }
    return FileAttributes(found.index->attributesOf(found.entry));
}

FolderAttributes ZipProvider::getFolderAttributes(StorageIRI const& location) const {
    Found const found = findFolder(location);
    return FolderAttributes(found.index->attributesOf(found.entry));
}

ExtendedAttributes ZipProvider::getExtendedAttributes(StorageIRI const& location) const {
    Found const found = findFollowed(location);
    AttributeValues const values = found.index->attributesOf(found.entry);
    ExtendedAttributes result{{"posix.mode", octal(values.mode.value_or(0))}};
    if (found.entry == ArchiveIndex::root && found.index->leftOut() != 0) {
        result["zip.left-out"] = std::to_string(found.index->leftOut());
    }
    if (!found.index->isFolder(found.entry)) {
        detail::Member const member = found.index->memberOf(found.entry);
        result["zip.method"] = methodName(member.method);
        result["zip.compressed-size"] = std::to_string(member.compressedSize);
        if (member.isEncrypted) {
            result["zip.encrypted"] = "yes";
        }
    }
    return result;
}

void ZipProvider::setLastModified(StorageIRI const& location, boost::posix_time::ptime const&) {
    fail(ErrorCode::ReadOnlyProvider, location);
}
void ZipProvider::setWritable(StorageIRI const& location, bool) {
    fail(ErrorCode::ReadOnlyProvider, location);
}
void ZipProvider::createFile(StorageIRI const& location) {
    fail(ErrorCode::ReadOnlyProvider, location);
}
void ZipProvider::createFolder(StorageIRI const& location) {
    fail(ErrorCode::ReadOnlyProvider, location);
}
void ZipProvider::createFolderRecursive(StorageIRI const& location) {
    fail(ErrorCode::ReadOnlyProvider, location);
}
void ZipProvider::createLink(StorageIRI const& location, ustring const&) {
    fail(ErrorCode::ReadOnlyProvider, location);
}
void ZipProvider::removeFile(StorageIRI const& location) {
    fail(ErrorCode::ReadOnlyProvider, location);
}
void ZipProvider::removeFolder(StorageIRI const& location) {
    fail(ErrorCode::ReadOnlyProvider, location);
}
void ZipProvider::removeFolderRecursively(StorageIRI const& location) {
    fail(ErrorCode::ReadOnlyProvider, location);
}
void ZipProvider::moveFile(StorageIRI const& source, StorageIRI const&, ReplacementPolicy const&) {
    fail(ErrorCode::ReadOnlyProvider, source);
}
void ZipProvider::moveFolder(StorageIRI const& source, StorageIRI const& destination,
                             ReplacementPolicy const&) {
    bool const isOntoItself = source == destination || source.isAncestorOf(destination);
    fail(isOntoItself ? ErrorCode::InvalidLocation : ErrorCode::ReadOnlyProvider, source);
}
std::unique_ptr<ByteStream> ZipProvider::openStream(StorageIRI const& location,
                                                    ByteStreamOpenOptions const&) {
    fail(ErrorCode::ReadOnlyProvider, location);
}

std::unique_ptr<ByteStream> ZipProvider::openReadOnlyStream(StorageIRI const& location) const {
    Found const found = find(location, LastLink::Followed);
    if (found.index->isFolder(found.entry)) {
        fail(ErrorCode::InvalidLocation, location);
    }
    return openMember(*found.archive->streams, found.index->memberOf(found.entry), location,
                      options_);
}

ustring ZipProvider::readLink(StorageIRI const& location) const {
    Found const found = find(location, LastLink::Itself);
    if (found.index->kindOf(found.entry) != EntryKind::Link) {
        fail(ErrorCode::InvalidLocation, location);
    }
    return fl::i18n::storageNameToUstring(linkTarget(*found.archive, found.entry, location));
}

std::unique_ptr<IFolderEntryIterator> ZipProvider::list(StorageIRI const& location,
                                                        ZipSelection selection) const {
    Found const found = findFolder(location);
    return std::make_unique<ZipCursor>(std::make_shared<ZipListing const>(
        ZipListing{found.index, found.entry, std::move(selection)}));
}

std::unique_ptr<IFolderEntryIterator> ZipProvider::listAll(StorageIRI const& location,
                                                           ustring const& filter) const {
    return list(location, {Kinds::All, true, false, filter});
}
std::unique_ptr<IFolderEntryIterator> ZipProvider::listFiles(StorageIRI const& location,
                                                             ustring const& filter) const {
    return list(location, {Kinds::Files, true, false, filter});
}
std::unique_ptr<IFolderEntryIterator> ZipProvider::listFolders(StorageIRI const& location,
                                                               ustring const& filter) const {
    return list(location, {Kinds::Folders, true, false, filter});
}
std::unique_ptr<IFolderEntryIterator> ZipProvider::listAllNamesOnly(StorageIRI const& location,
                                                                    ustring const& filter) const {
    return list(location, {Kinds::All, false, false, filter});
}
std::unique_ptr<IFolderEntryIterator> ZipProvider::listFilesNamesOnly(StorageIRI const& location,
                                                                      ustring const& filter) const {
    return list(location, {Kinds::Files, false, false, filter});
}
std::unique_ptr<IFolderEntryIterator>
ZipProvider::listFoldersNamesOnly(StorageIRI const& location, ustring const& filter) const {
    return list(location, {Kinds::Folders, false, false, filter});
}
std::unique_ptr<IFolderEntryIterator> ZipProvider::listAllRecursive(StorageIRI const& location,
                                                                    ustring const& filter) const {
    return list(location, {Kinds::All, true, true, filter});
}
std::unique_ptr<IFolderEntryIterator>
ZipProvider::listAllRecursiveNamesOnly(StorageIRI const& location, ustring const& filter) const {
    return list(location, {Kinds::All, false, true, filter});
}

} // namespace foundation::storage::provider::zip
