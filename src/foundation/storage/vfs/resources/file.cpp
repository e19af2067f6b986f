#include <foundation/storage/vfs/resources/file.hpp>

#include <foundation/storage/vfs/errors/detail/translated.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/events/event_publisher.hpp>
#include <foundation/storage/vfs/resources/detail/handle.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>

#include <boost/property_tree/ptree.hpp>

#include <ostream>
#include <utility>

namespace foundation::storage::vfs {

using detail::translated;
using provider::CopyFileOptions;
using provider::CopyStatus;
using provider::ReplacementPolicy;
using provider::StorageItem;

struct File::Impl : detail::Handle {};

namespace {

/// For one file, deferring what is denied means the same as replacing.
ReplacementPolicy forOneFile(ReplacementPolicy policy) {
    return policy == ReplacementPolicy::ReplaceAndDeferDenied ? ReplacementPolicy::ReplaceExisting
                                                              : policy;
}

bool unlockingMayHelp(ReplacementPolicy policy, provider::Exception const& failure) {
    return policy == ReplacementPolicy::ReplaceReadOnly &&
           failure.getErrorCode() == provider::ErrorCode::PermissionDenied;
}

provider::GenericByteStreamDevice<provider::ByteStream>
deviceOn(std::unique_ptr<provider::ByteStream> stream, StorageItem const& item) {
    if (!stream) {
        throw provider::Exception(provider::ErrorCode::InternalError, item.getLocation());
    }
    return provider::GenericByteStreamDevice<provider::ByteStream>(stream);
}

} // namespace

File::File(AbsoluteIRI const& location, StorageSystemReference storageSystem)
    : impl_(std::make_shared<Impl const>(
          Impl{detail::makeHandle(location, std::move(storageSystem), false)})) {}

File::File(CanonicalAbsoluteIRI const& location, StorageSystemReference storageSystem)
    : impl_(std::make_shared<Impl const>(
          Impl{detail::makeHandle(location, std::move(storageSystem), true)})) {}

File::File(Folder const& parent, ustring const& name)
    : File(StorageItem(parent.item(), name), parent.getStorageSystem()) {}

File::File(StorageItem item, StorageSystemReference storageSystem)
    : impl_(
          std::make_shared<Impl const>(Impl{{std::move(item), std::move(storageSystem), false}})) {}

File::~File() = default;

AbsoluteIRI File::getLocation() const {
    return impl_->getLocation();
}
CanonicalAbsoluteIRI File::getCanonicalLocation() const {
    return impl_->getCanonicalLocation();
}
ustring File::getName() const {
    return impl_->item.getName();
}

ustring File::getExtension() const {
    ustring const name = getName();
    auto const dot = name.rfind(u'.');
    return dot == ustring::npos ? ustring() : name.substr(dot);
}

Folder File::getParent() const {
    return Folder(impl_->item.getParent(), impl_->storageSystem);
}
StorageSystemReference File::getStorageSystem() const {
    return impl_->storageSystem;
}

void File::createFile() const {
    translated([this] { impl_->item.createFile(); });
}

void File::removeFile() const {
    translated([this] { impl_->item.removeFile(); });
}

bool File::fileExists() const {
    return detail::existsTranslated([this] { return impl_->item.fileExists(); });
}

provider::FileAttributes File::getAttributes() const {
    return translated([this] { return impl_->item.getFileAttributes(); });
}

provider::ExtendedAttributes File::getExtendedAttributes() const {
    return translated([this] { return impl_->item.getExtendedAttributes(); });
}

void File::setLastModified(boost::posix_time::ptime const& time) const {
    translated([&] { impl_->item.setLastModified(time); });
}

void File::setWritable(bool writable) const {
    translated([&] { impl_->item.setWritable(writable); });
}

provider::GenericByteStreamDevice<provider::ByteStream>
File::open(provider::ByteStreamOpenOptions const& options) const {
    return translated([&] { return deviceOn(impl_->item.openStream(options), impl_->item); });
}

provider::GenericByteStreamDevice<provider::ByteStream> File::openReadOnly() const {
    return translated([this] { return deviceOn(impl_->item.openReadOnlyStream(), impl_->item); });
}

void File::copyFile(File const& destination, ReplacementPolicy const& policy) const {
    CopyFileOptions options;
    options.policy = policy;
    copyFile(destination, options);
}

CopyStatus File::copyFile(File const& destination, CopyFileOptions const& options) const {
    return translated([&] { return doCopyFile(destination, options); });
}

void File::moveFile(File const& destination, ReplacementPolicy const& policy) const {
    translated([&] { doMoveFile(destination, policy); });
}

CopyStatus File::doCopyFile(File const& destination, CopyFileOptions const& options) const {
    CopyFileOptions own = options;
    own.policy = forOneFile(own.policy);
    StorageItem const& target = destination.impl_->item;

    CopyStatus status{};
    bool unlocked = false;
    try {
        status = impl_->item.copyFile(target, own);
    } catch (provider::Exception const& failure) {
        if (!unlockingMayHelp(own.policy, failure)) {
            throw;
        }
        try {
            target.setWritable(true);
        } catch (...) {
            // The first failure is the one to report.
            throw provider::Exception(failure);
        }
        unlocked = true;
        status = impl_->item.copyFile(target, own);
    }

    if (status != CopyStatus::CopiedWithTimes) {
        carryTimeOver(destination);
    } else if (unlocked) {
        target.setWritable(false);
    }
    return status;
}

void File::carryTimeOver(File const& destination) const {
    // The copy stands, whatever becomes of its time.
    try {
        if (destination.getLocation().getScheme() == getLocation().getScheme()) {
            destination.setLastModified(getAttributes().getLastModified());
        }
    } catch (...) {
    }
}

void File::doMoveFile(File const& destination, ReplacementPolicy const& policy) const {
    ReplacementPolicy const own = forOneFile(policy);
    StorageItem const& source = impl_->item;
    StorageItem const& target = destination.impl_->item;
    auto const copyAndRemove = [&] {
        copyFile(destination, own);
        removeFile();
    };

    if (target.getScheme() != source.getScheme()) {
        copyAndRemove();
        return;
    }
    try {
        source.moveFile(target.getLocation(), own);
    } catch (provider::Exception const& failure) {
        if (failure.getErrorCode() == provider::ErrorCode::UnsupportedOperation) {
            copyAndRemove();
            return;
        }
        if (!unlockingMayHelp(own, failure)) {
            throw;
        }
        try {
            target.setWritable(true);
        } catch (provider::Exception const& unlocking) {
            // A destination that does not exist needs no unlocking.
            if (unlocking.getErrorCode() != provider::ErrorCode::ResourceNotFound) {
                throw;
            }
        }
        try {
            source.moveFile(target.getLocation(), own);
        } catch (...) {
            throw provider::Exception(failure);
        }
    }
}

void File::publishEvents(EventPublisher const& publisher,
                         provider::ChangeKinds const& kinds) const {
    translated([&] { impl_->item.publishFileEvents(publisher, kinds); });
}

void File::publishEventsRecursively(RecursiveEventPublisher const&,
                                    provider::ChangeKinds const&) const {
    throw Exception(ErrorCode::InvalidLocation, getLocation());
}

void File::stopPublishingEvents() const {
    translated([this] { impl_->item.stopPublishingFileEvents(); });
}

void File::swap(File& other) {
    detail::swapItems(impl_, other.impl_);
}

bool File::operator==(File const& other) const {
    StorageIRI const theirs = other.impl_->item.getLocation();
    return impl_->item.getLocation() == theirs;
}

bool File::operator!=(File const& other) const {
    StorageIRI const theirs = other.impl_->item.getLocation();
    return impl_->item.getLocation() != theirs;
}

bool File::operator<(File const& other) const {
    StorageIRI const theirs = other.impl_->item.getLocation();
    return impl_->item.getLocation() < theirs;
}

std::ostream& operator<<(std::ostream& out, File const& file) {
    return out << file.getLocation();
}

} // namespace foundation::storage::vfs
