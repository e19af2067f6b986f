#include <foundation/storage/conformance/provider_decorator.hpp>

#include <foundation/storage/conformance/detail/decorated_stream.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <boost/property_tree/ptree.hpp>

#include <stdexcept>
#include <utility>

namespace foundation::storage::conformance {

using namespace foundation::storage::provider;

/// Tells the decorator of every step of a cursor.
class DecoratedCursor final : public IFolderEntryIterator {
  public:
    DecoratedCursor(std::shared_ptr<ProviderDecorator const> decorator, StorageIRI location,
                    std::unique_ptr<IFolderEntryIterator> inner)
        : decorator_(std::move(decorator)),
          location_(std::move(location)),
          inner_(std::move(inner)) {}

    FolderEntry currentEntry() const override {
        decorator_->before(Operation::CurrentEntry, &location_);
        return inner_->currentEntry();
    }
    bool hasNext() const override {
        decorator_->before(Operation::HasNext, &location_);
        return inner_->hasNext();
    }
    void advance() override {
        decorator_->before(Operation::Advance, &location_);
        inner_->advance();
    }
    IFolderEntryIterator* cloneIterator() const override {
        decorator_->before(Operation::CloneIterator, &location_);
        std::unique_ptr<IFolderEntryIterator> clone(inner_->cloneIterator());
        return new DecoratedCursor(decorator_, location_, std::move(clone));
    }

  private:
    std::shared_ptr<ProviderDecorator const> const decorator_;
    StorageIRI const location_;
    std::unique_ptr<IFolderEntryIterator> const inner_;
};

ProviderDecorator::ProviderDecorator(std::shared_ptr<IProvider> inner) : inner_(std::move(inner)) {
    if (!inner_) {
        throw std::invalid_argument("a decorator without a provider");
    }
}

ProviderDecorator::~ProviderDecorator() = default;

void ProviderDecorator::before(Operation, StorageIRI const*) const {}

std::unique_ptr<IFolderEntryIterator> ProviderDecorator::doList(Operation, Listing listing,
                                                                StorageIRI const& location,
                                                                ustring const& filter) const {
    return (inner_.get()->*listing)(location, filter);
}

long ProviderDecorator::doRead(ByteStream& inner, char* buffer, long count) const {
    return inner.read(buffer, count);
}

long ProviderDecorator::doWrite(ByteStream& inner, char const* buffer, long count) const {
    return inner.write(buffer, count);
}

std::unique_ptr<ByteStream> ProviderDecorator::decorateStream(StorageIRI const& location,
                                                              std::unique_ptr<ByteStream> inner,
                                                              StreamKind kind) const {
    if (!inner) {
        return inner;
    }
    if (dynamic_cast<extensions::INewFileAttributes*>(inner.get()) != nullptr) {
        return std::make_unique<DescribedStream>(shared_from_this(), location, std::move(inner),
                                                 kind);
    }
    return std::make_unique<DecoratedStream>(shared_from_this(), location, std::move(inner), kind);
}

ExistsResult ProviderDecorator::exists(StorageIRI const& location) const {
    before(Operation::Exists, &location);
    return inner_->exists(location);
}

ExtendedExistsResult ProviderDecorator::existsExtended(StorageIRI const& location) const {
    before(Operation::ExistsExtended, &location);
    return inner_->existsExtended(location);
}

bool ProviderDecorator::fileExists(StorageIRI const& location) const {
    before(Operation::FileExists, &location);
    return inner_->fileExists(location);
}

bool ProviderDecorator::folderExists(StorageIRI const& location) const {
    before(Operation::FolderExists, &location);
    return inner_->folderExists(location);
}

bool ProviderDecorator::hasFeature(StorageIRI const& location,
                                   ExtendedFeature const& feature) const {
    before(Operation::HasFeature, &location);
    return inner_->hasFeature(location, feature);
}

StorageIRI ProviderDecorator::getCanonicalLocation(StorageIRI const& location) const {
    before(Operation::GetCanonicalLocation, &location);
    return inner_->getCanonicalLocation(location);
}

PathComparatorFunction ProviderDecorator::getPathComparator(StorageIRI const& location) const {
    before(Operation::GetPathComparator, &location);
    return inner_->getPathComparator(location);
}

FilenameSensitivity ProviderDecorator::getFilenameSensitivity(StorageIRI const& location) const {
    before(Operation::GetFilenameSensitivity, &location);
    return inner_->getFilenameSensitivity(location);
}

FileAttributes ProviderDecorator::getFileAttributes(StorageIRI const& location) const {
    before(Operation::GetFileAttributes, &location);
    return inner_->getFileAttributes(location);
}

FolderAttributes ProviderDecorator::getFolderAttributes(StorageIRI const& location) const {
    before(Operation::GetFolderAttributes, &location);
    return inner_->getFolderAttributes(location);
}

ExtendedAttributes ProviderDecorator::getExtendedAttributes(StorageIRI const& location) const {
    before(Operation::GetExtendedAttributes, &location);
    return inner_->getExtendedAttributes(location);
}

void ProviderDecorator::setLastModified(StorageIRI const& location,
                                        boost::posix_time::ptime const& time) {
    before(Operation::SetLastModified, &location);
    inner_->setLastModified(location, time);
}

void ProviderDecorator::setWritable(StorageIRI const& location, bool writable) {
    before(Operation::SetWritable, &location);
    inner_->setWritable(location, writable);
}

void ProviderDecorator::createFile(StorageIRI const& location) {
    before(Operation::CreateFile, &location);
    inner_->createFile(location);
}

void ProviderDecorator::createFolder(StorageIRI const& location) {
    before(Operation::CreateFolder, &location);
    inner_->createFolder(location);
}

void ProviderDecorator::createFolderRecursive(StorageIRI const& location) {
    before(Operation::CreateFolderRecursive, &location);
    inner_->createFolderRecursive(location);
}

void ProviderDecorator::removeFile(StorageIRI const& location) {
    before(Operation::RemoveFile, &location);
    inner_->removeFile(location);
}

void ProviderDecorator::removeFolder(StorageIRI const& location) {
    before(Operation::RemoveFolder, &location);
    inner_->removeFolder(location);
}

void ProviderDecorator::removeFolderRecursively(StorageIRI const& location) {
    before(Operation::RemoveFolderRecursively, &location);
    inner_->removeFolderRecursively(location);
}

CopyStatus ProviderDecorator::copyFile(StorageIRI const& source, StorageItem const& destination,
                                       CopyFileOptions const& options) {
    before(Operation::CopyFile, &source);
    if (destination.getProvider().get() == this) {
        return inner_->copyFile(source, StorageItem(inner_, destination.getLocation()), options);
    }
    return inner_->copyFile(source, destination, options);
}

void ProviderDecorator::moveFile(StorageIRI const& source, StorageIRI const& destination,
                                 ReplacementPolicy const& policy) {
    before(Operation::MoveFile, &source);
    inner_->moveFile(source, destination, policy);
}

void ProviderDecorator::moveFolder(StorageIRI const& source, StorageIRI const& destination,
                                   ReplacementPolicy const& policy) {
    before(Operation::MoveFolder, &source);
    inner_->moveFolder(source, destination, policy);
}

std::unique_ptr<ByteStream> ProviderDecorator::openStream(StorageIRI const& location,
                                                          ByteStreamOpenOptions const& options) {
    before(Operation::OpenStream, &location);
    return decorateStream(location, inner_->openStream(location, options), StreamKind::Plain);
}

std::unique_ptr<ByteStream>
ProviderDecorator::openReadOnlyStream(StorageIRI const& location) const {
    before(Operation::OpenReadOnlyStream, &location);
    return decorateStream(location, inner_->openReadOnlyStream(location), StreamKind::Plain);
}

std::unique_ptr<IFolderEntryIterator> ProviderDecorator::list(Operation operation, Listing listing,
                                                              StorageIRI const& location,
                                                              ustring const& filter) const {
    before(operation, &location);
    return std::make_unique<DecoratedCursor>(shared_from_this(), location,
                                             doList(operation, listing, location, filter));
}

std::unique_ptr<IFolderEntryIterator> ProviderDecorator::listAll(StorageIRI const& location,
                                                                 ustring const& filter) const {
    return list(Operation::ListAll, &IProvider::listAll, location, filter);
}

std::unique_ptr<IFolderEntryIterator> ProviderDecorator::listFiles(StorageIRI const& location,
                                                                   ustring const& filter) const {
    return list(Operation::ListFiles, &IProvider::listFiles, location, filter);
}

std::unique_ptr<IFolderEntryIterator> ProviderDecorator::listFolders(StorageIRI const& location,
                                                                     ustring const& filter) const {
    return list(Operation::ListFolders, &IProvider::listFolders, location, filter);
}

std::unique_ptr<IFolderEntryIterator>
ProviderDecorator::listAllNamesOnly(StorageIRI const& location, ustring const& filter) const {
    return list(Operation::ListAllNamesOnly, &IProvider::listAllNamesOnly, location, filter);
}

std::unique_ptr<IFolderEntryIterator>
ProviderDecorator::listFilesNamesOnly(StorageIRI const& location, ustring const& filter) const {
    return list(Operation::ListFilesNamesOnly, &IProvider::listFilesNamesOnly, location, filter);
}

std::unique_ptr<IFolderEntryIterator>
ProviderDecorator::listFoldersNamesOnly(StorageIRI const& location, ustring const& filter) const {
    return list(Operation::ListFoldersNamesOnly, &IProvider::listFoldersNamesOnly, location,
                filter);
}

std::unique_ptr<IFolderEntryIterator>
ProviderDecorator::listAllRecursive(StorageIRI const& location, ustring const& filter) const {
    return list(Operation::ListAllRecursive, &IProvider::listAllRecursive, location, filter);
}

std::unique_ptr<IFolderEntryIterator>
ProviderDecorator::listAllRecursiveNamesOnly(StorageIRI const& location,
                                             ustring const& filter) const {
    return list(Operation::ListAllRecursiveNamesOnly, &IProvider::listAllRecursiveNamesOnly,
                location, filter);
}

void ProviderDecorator::publishFileEvents(StorageIRI const& location, ChangeCallback callback,
                                          ChangeKinds const& kinds) {
    before(Operation::PublishFileEvents, &location);
    inner_->publishFileEvents(location, std::move(callback), kinds);
}

void ProviderDecorator::publishFolderEvents(StorageIRI const& location, ChangeCallback callback,
                                            ChangeKinds const& kinds,
                                            RecursiveFileWatching recursive) {
    before(Operation::PublishFolderEvents, &location);
    inner_->publishFolderEvents(location, std::move(callback), kinds, recursive);
}

void ProviderDecorator::stopPublishingFileEvents(StorageIRI const& location) {
    before(Operation::StopPublishingFileEvents, &location);
    inner_->stopPublishingFileEvents(location);
}

void ProviderDecorator::stopPublishingFolderEvents(StorageIRI const& location) {
    before(Operation::StopPublishingFolderEvents, &location);
    inner_->stopPublishingFolderEvents(location);
}

} // namespace foundation::storage::conformance
