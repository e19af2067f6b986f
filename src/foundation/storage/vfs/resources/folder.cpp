#include <foundation/storage/vfs/resources/folder.hpp>

#include <foundation/storage/vfs/errors/detail/translated.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/events/event_publisher.hpp>
#include <foundation/storage/vfs/resources/detail/handle.hpp>

#include <boost/property_tree/ptree.hpp>

#include <ostream>
#include <utility>

namespace foundation::storage::vfs {

using detail::translated;
using provider::StorageItem;

struct Folder::Impl : detail::Handle {};

Folder::Folder(AbsoluteIRI const& location, StorageSystemReference storageSystem)
    : impl_(std::make_shared<Impl const>(
          Impl{detail::makeHandle(location, std::move(storageSystem), false)})) {}

Folder::Folder(CanonicalAbsoluteIRI const& location, StorageSystemReference storageSystem)
    : impl_(std::make_shared<Impl const>(
          Impl{detail::makeHandle(location, std::move(storageSystem), true)})) {}

Folder::Folder(Folder const& parent, ustring const& name)
    : Folder(StorageItem(parent.item(), name), parent.getStorageSystem()) {}

Folder::Folder(StorageItem item, StorageSystemReference storageSystem)
    : impl_(
          std::make_shared<Impl const>(Impl{{std::move(item), std::move(storageSystem), false}})) {}

StorageItem const& Folder::item() const {
    return impl_->item;
}

AbsoluteIRI Folder::getLocation() const {
    return impl_->getLocation();
}
CanonicalAbsoluteIRI Folder::getCanonicalLocation() const {
    return impl_->getCanonicalLocation();
}
ustring Folder::getName() const {
    return impl_->item.getName();
}
bool Folder::hasParent() const {
    return impl_->item.hasParent();
}
Folder Folder::getParent() const {
    return Folder(impl_->item.getParent(), impl_->storageSystem);
}
StorageSystemReference Folder::getStorageSystem() const {
    return impl_->storageSystem;
}

void Folder::createFolder() const {
    translated([this] { impl_->item.createFolder(); });
}

void Folder::createFolderRecursive() const {
    translated([this] { impl_->item.createFolderRecursive(); });
}

bool Folder::folderExists() const {
    return detail::existsTranslated([this] { return impl_->item.folderExists(); });
}

provider::FolderAttributes Folder::getAttributes() const {
    return translated([this] { return impl_->item.getFolderAttributes(); });
}

provider::ExtendedAttributes Folder::getExtendedAttributes() const {
    return translated([this] { return impl_->item.getExtendedAttributes(); });
}

void Folder::setLastModified(boost::posix_time::ptime const& time) const {
    translated([&] { impl_->item.setLastModified(time); });
}

void Folder::setWritable(bool writable) const {
    translated([&] { impl_->item.setWritable(writable); });
}

provider::FilenameSensitivity Folder::getFilenameSensitivity() const {
    return translated([this] { return impl_->item.getFilenameSensitivity(); });
}

PathComparator Folder::getPathComparator() const {
    return translated([this] { return PathComparator(impl_->item.getPathComparator()); });
}

void Folder::flushFilesystem() {
    translated([this] { StorageItem(impl_->item).flushFilesystem(); });
}

void Folder::publishEvents(EventPublisher const& publisher,
                           provider::ChangeKinds const& kinds) const {
    translated([&] {
        impl_->item.publishFolderEvents(publisher, kinds,
                                        provider::RecursiveFileWatching::NonRecursive);
    });
}

void Folder::publishEventsRecursively(RecursiveEventPublisher const& publisher,
                                      provider::ChangeKinds const& kinds) const {
    if (!impl_->item.hasFeature(provider::ExtendedFeature::RecursiveChangeEvents)) {
        throw Exception(ErrorCode::UnsupportedOperation, getLocation());
    }
    translated([&] {
        impl_->item.publishFolderEvents(publisher, kinds,
                                        provider::RecursiveFileWatching::Recursive);
    });
}

void Folder::stopPublishingEvents() const {
    translated([this] { impl_->item.stopPublishingFolderEvents(); });
}

void Folder::swap(Folder& other) {
    detail::swapItems(impl_, other.impl_);
}

bool Folder::operator==(Folder const& other) const {
    StorageIRI const theirs = other.impl_->item.getLocation();
    return impl_->item.getLocation() == theirs;
}

bool Folder::operator!=(Folder const& other) const {
    StorageIRI const theirs = other.impl_->item.getLocation();
    return impl_->item.getLocation() != theirs;
}

bool Folder::operator<(Folder const& other) const {
    StorageIRI const theirs = other.impl_->item.getLocation();
    return impl_->item.getLocation() < theirs;
}

std::ostream& operator<<(std::ostream& out, Folder const& folder) {
    return out << folder.getLocation();
}

} // namespace foundation::storage::vfs
