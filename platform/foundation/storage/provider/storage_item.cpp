#include <foundation/storage/provider/storage_item.hpp>

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/extensions/i_flushable_filesystem.hpp>

#include <boost/property_tree/ptree.hpp>

#include <utility>

namespace foundation::storage::provider {

namespace {

StorageIRI childOf(StorageIRI const& parent, ustring const& name) {
    // An empty name would be the parent again, and an absolute one an item elsewhere.
    if (name.empty() || name.front() == u'/') {
        throw Exception(ErrorCode::InvalidLocation, parent);
    }
    return StorageIRI(parent, name);
}

} // namespace

StorageItem::StorageItem(std::shared_ptr<IProvider> provider, StorageIRI location)
    : provider_(std::move(provider)),
      location_(std::move(location)) {}

StorageItem::StorageItem(StorageItem const& parent, ustring name)
    : provider_(parent.provider_),
      location_(childOf(parent.location_, name)) {}

StorageIRI StorageItem::getCanonicalLocation() const {
    return provider_->getCanonicalLocation(location_);
}
ustring StorageItem::getName() const {
    return location_.getName();
}
ustring StorageItem::getScheme() const {
    return location_.getScheme();
}
bool StorageItem::hasParent() const {
    return location_.hasParent();
}
StorageItem StorageItem::getParent() const {
    return StorageItem(provider_, location_.getParent());
}

bool StorageItem::hasFeature(ExtendedFeature const& feature) const {
    return provider_->hasFeature(location_, feature);
}
PathComparatorFunction StorageItem::getPathComparator() const {
    return provider_->getPathComparator(location_);
}
FilenameSensitivity StorageItem::getFilenameSensitivity() const {
    return provider_->getFilenameSensitivity(location_);
}

FileAttributes StorageItem::getFileAttributes() const {
    return provider_->getFileAttributes(location_);
}
FolderAttributes StorageItem::getFolderAttributes() const {
    return provider_->getFolderAttributes(location_);
}
ExtendedAttributes StorageItem::getExtendedAttributes() const {
    return provider_->getExtendedAttributes(location_);
}
bool StorageItem::fileExists() const {
    return provider_->fileExists(location_);
}
bool StorageItem::folderExists() const {
    return provider_->folderExists(location_);
}

void StorageItem::createFile() const {
    provider_->createFile(location_);
}
void StorageItem::createFolder() const {
    provider_->createFolder(location_);
}
void StorageItem::createFolderRecursive() const {
    provider_->createFolderRecursive(location_);
}
void StorageItem::removeFile() const {
    provider_->removeFile(location_);
}
void StorageItem::removeFolder() const {
    provider_->removeFolder(location_);
}
void StorageItem::removeFolderRecursively() const {
    provider_->removeFolderRecursively(location_);
}
void StorageItem::setLastModified(boost::posix_time::ptime const& time) const {
    provider_->setLastModified(location_, time);
}
void StorageItem::setWritable(bool writable) const {
    provider_->setWritable(location_, writable);
}

CopyStatus StorageItem::copyFile(StorageItem const& destination,
                                 CopyFileOptions const& options) const {
    return provider_->copyFile(location_, destination, options);
}
void StorageItem::moveFile(StorageIRI const& destination, ReplacementPolicy const& policy) const {
    provider_->moveFile(location_, destination, policy);
}
void StorageItem::moveFolder(StorageIRI const& destination, ReplacementPolicy const& policy) const {
    provider_->moveFolder(location_, destination, policy);
}

std::unique_ptr<ByteStream> StorageItem::openStream(ByteStreamOpenOptions const& options) const {
    return provider_->openStream(location_, options);
}
std::unique_ptr<ByteStream> StorageItem::openReadOnlyStream() const {
    return provider_->openReadOnlyStream(location_);
}

std::unique_ptr<IFolderEntryIterator> StorageItem::listAll(ustring filter) const {
    return provider_->listAll(location_, filter);
}
std::unique_ptr<IFolderEntryIterator> StorageItem::listFiles(ustring filter) const {
    return provider_->listFiles(location_, filter);
}
std::unique_ptr<IFolderEntryIterator> StorageItem::listFolders(ustring filter) const {
    return provider_->listFolders(location_, filter);
}
std::unique_ptr<IFolderEntryIterator> StorageItem::listAllNamesOnly(ustring filter) const {
    return provider_->listAllNamesOnly(location_, filter);
}
std::unique_ptr<IFolderEntryIterator> StorageItem::listFilesNamesOnly(ustring filter) const {
    return provider_->listFilesNamesOnly(location_, filter);
}
std::unique_ptr<IFolderEntryIterator> StorageItem::listFoldersNamesOnly(ustring filter) const {
    return provider_->listFoldersNamesOnly(location_, filter);
}
std::unique_ptr<IFolderEntryIterator> StorageItem::listAllRecursive(ustring filter) const {
    return provider_->listAllRecursive(location_, filter);
}
std::unique_ptr<IFolderEntryIterator> StorageItem::listAllRecursiveNamesOnly(ustring filter) const {
    return provider_->listAllRecursiveNamesOnly(location_, filter);
}

void StorageItem::publishFileEvents(ChangeCallback callback, ChangeKinds const& kinds) const {
    provider_->publishFileEvents(location_, std::move(callback), kinds);
}
void StorageItem::publishFolderEvents(ChangeCallback callback, ChangeKinds const& kinds,
                                      RecursiveFileWatching recursive) const {
    provider_->publishFolderEvents(location_, std::move(callback), kinds, recursive);
}
void StorageItem::stopPublishingFileEvents() const {
    provider_->stopPublishingFileEvents(location_);
}
void StorageItem::stopPublishingFolderEvents() const {
    provider_->stopPublishingFolderEvents(location_);
}

void StorageItem::flushFilesystem() {
    if (auto* flushable = dynamic_cast<extensions::IFlushableFilesystem*>(provider_.get())) {
        flushable->flushFilesystem();
    }
}

} // namespace foundation::storage::provider
