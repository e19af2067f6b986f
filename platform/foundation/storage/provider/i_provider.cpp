#include <foundation/storage/provider/i_provider.hpp>

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/extensions/i_end_first_streams.hpp>
#include <foundation/storage/provider/extensions/i_flushable_filesystem.hpp>
#include <foundation/storage/provider/extensions/i_folder_attributes.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/provider/extensions/i_pinned_stream.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/extensions/i_resting_stream.hpp>
#include <foundation/storage/provider/extensions/i_small_file_copies.hpp>
#include <foundation/storage/provider/factories.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/provider/streaming_copy.hpp>

#include <boost/property_tree/ptree.hpp>

#include <algorithm>

namespace foundation::storage::provider {

IProvider::~IProvider() = default;
ByteStream::~ByteStream() = default;
IFolderEntryIterator::~IFolderEntryIterator() = default;
PhysicalProviderFactory::~PhysicalProviderFactory() = default;
ContainerProviderFactory::~ContainerProviderFactory() = default;
extensions::IEndFirstStreams::~IEndFirstStreams() = default;
extensions::IFlushableFilesystem::~IFlushableFilesystem() = default;
extensions::IFolderAttributes::~IFolderAttributes() = default;
extensions::ILinks::~ILinks() = default;
extensions::INewFileAttributes::~INewFileAttributes() = default;
extensions::IPinnedStream::~IPinnedStream() = default;
extensions::IRestingStream::~IRestingStream() = default;
extensions::IReplacingStreams::~IReplacingStreams() = default;
extensions::ISmallFileCopies::~ISmallFileCopies() = default;

namespace {

[[noreturn]] void refuse(StorageIRI const& location) {
    throw Exception(ErrorCode::UnsupportedOperation, location);
}

/// exists() may throw code ResourceNotFound in place of the answer Nothing.
ExistsResult existsOrNothing(IProvider const& provider, StorageIRI const& location) {
    try {
        return provider.exists(location);
    } catch (Exception const& e) {
        if (e.getErrorCode() != ErrorCode::ResourceNotFound) {
            throw;
        }
        return ExistsResult::Nothing;
    }
}

char16_t lowerAscii(char16_t c) {
    return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c - u'A' + u'a') : c;
}

bool sameName(ustring const& a, ustring const& b, CaseModifier modifier) {
    if (modifier != CaseModifier::Insensitive) {
        return a == b;
    }
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char16_t x, char16_t y) { return lowerAscii(x) == lowerAscii(y); });
}

} // namespace

ExtendedExistsResult IProvider::existsExtended(StorageIRI const& location) const {
    switch (exists(location)) {
    case ExistsResult::File:
        return ExtendedExistsResult::File;
    case ExistsResult::Nothing:
        return ExtendedExistsResult::Nothing;
    case ExistsResult::Folder:
        break;
    }
    return ExtendedExistsResult::Folder;
}

bool IProvider::fileExists(StorageIRI const& location) const {
    return existsOrNothing(*this, location) == ExistsResult::File;
}

bool IProvider::folderExists(StorageIRI const& location) const {
    ExistsResult const result = existsOrNothing(*this, location);
    return result != ExistsResult::File && result != ExistsResult::Nothing;
}

bool IProvider::hasFeature(StorageIRI const&, ExtendedFeature const&) const {
    return false;
}

StorageIRI IProvider::getCanonicalLocation(StorageIRI const& location) const {
    return location.withResolvedPath();
}

PathComparatorFunction IProvider::getPathComparator(StorageIRI const&) const {
    return sameName;
}

FilenameSensitivity IProvider::getFilenameSensitivity(StorageIRI const&) const {
    return FilenameSensitivity::Sensitive;
}

FileAttributes IProvider::getFileAttributes(StorageIRI const& location) const {
    refuse(location);
}
FolderAttributes IProvider::getFolderAttributes(StorageIRI const& location) const {
    refuse(location);
}
ExtendedAttributes IProvider::getExtendedAttributes(StorageIRI const& location) const {
    refuse(location);
}
void IProvider::setLastModified(StorageIRI const& location, boost::posix_time::ptime const&) {
    refuse(location);
}
void IProvider::setWritable(StorageIRI const& location, bool) {
    refuse(location);
}

void IProvider::createFile(StorageIRI const& location) {
    refuse(location);
}
void IProvider::createFolder(StorageIRI const& location) {
    refuse(location);
}
void IProvider::createFolderRecursive(StorageIRI const& location) {
    refuse(location);
}
void IProvider::removeFile(StorageIRI const& location) {
    refuse(location);
}
void IProvider::removeFolder(StorageIRI const& location) {
    refuse(location);
}
void IProvider::removeFolderRecursively(StorageIRI const& location) {
    refuse(location);
}

CopyStatus IProvider::copyFile(StorageIRI const& source, StorageItem const& destination,
                               CopyFileOptions const& options) {
    return copyFileByStreams(*this, source, destination, options);
}

void IProvider::moveFile(StorageIRI const& source, StorageIRI const&, ReplacementPolicy const&) {
    refuse(source);
}
void IProvider::moveFolder(StorageIRI const& source, StorageIRI const& destination,
                           ReplacementPolicy const&) {
    // A caller answers UnsupportedOperation with a copy and the removal of the source, which would
    // be all there is where both are one.
    if (source.isAncestorOf(StorageIRI(destination, u"child"))) {
        throw Exception(ErrorCode::InvalidLocation, destination);
    }
    refuse(source);
}

std::unique_ptr<ByteStream> IProvider::openStream(StorageIRI const& location,
                                                  ByteStreamOpenOptions const&) {
    refuse(location);
}
std::unique_ptr<ByteStream> IProvider::openReadOnlyStream(StorageIRI const& location) const {
    refuse(location);
}

std::unique_ptr<IFolderEntryIterator> IProvider::listAll(StorageIRI const& location,
                                                         ustring const&) const {
    refuse(location);
}
std::unique_ptr<IFolderEntryIterator> IProvider::listFiles(StorageIRI const& location,
                                                           ustring const&) const {
    refuse(location);
}
std::unique_ptr<IFolderEntryIterator> IProvider::listFolders(StorageIRI const& location,
                                                             ustring const&) const {
    refuse(location);
}
std::unique_ptr<IFolderEntryIterator> IProvider::listAllNamesOnly(StorageIRI const& location,
                                                                  ustring const&) const {
    refuse(location);
}
std::unique_ptr<IFolderEntryIterator> IProvider::listFilesNamesOnly(StorageIRI const& location,
                                                                    ustring const&) const {
    refuse(location);
}
std::unique_ptr<IFolderEntryIterator> IProvider::listFoldersNamesOnly(StorageIRI const& location,
                                                                      ustring const&) const {
    refuse(location);
}
std::unique_ptr<IFolderEntryIterator> IProvider::listAllRecursive(StorageIRI const& location,
                                                                  ustring const&) const {
    refuse(location);
}
std::unique_ptr<IFolderEntryIterator>
IProvider::listAllRecursiveNamesOnly(StorageIRI const& location, ustring const&) const {
    refuse(location);
}

void IProvider::publishFileEvents(StorageIRI const& location, ChangeCallback, ChangeKinds const&) {
    throw ChangeEventsNotSupportedException(location);
}
void IProvider::publishFolderEvents(StorageIRI const& location, ChangeCallback, ChangeKinds const&,
                                    RecursiveFileWatching) {
    throw ChangeEventsNotSupportedException(location);
}
void IProvider::stopPublishingFileEvents(StorageIRI const& location) {
    throw ChangeEventsNotSupportedException(location);
}
void IProvider::stopPublishingFolderEvents(StorageIRI const& location) {
    throw ChangeEventsNotSupportedException(location);
}

} // namespace foundation::storage::provider
