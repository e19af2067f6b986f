#include "rehearsal.hpp"

#include "schemes.hpp"

#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/standard/standard_storage_system.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>
#include <foundation/storage/vfs/storage_system/exists.hpp>
#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>

#include <utility>

namespace cli {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;

using provider::StorageIRI;

namespace {

StorageIRI emptyItem() {
    return StorageIRI(u"mem:/empty");
}

} // namespace

Rehearsal::Rehearsal(vfs::StorageSystemReference system) : system_(std::move(system)) {}

void Rehearsal::begin(vfs::AbsoluteIRI const& location) {
    StorageIRI const inside = location.toStorageIRI();
    if (!inside.hasInnerIRI() || !isWrittenArchive(inside.getScheme())) {
        return;
    }
    vfs::AbsoluteIRI const item(inside.getInnerIRI(), true);
    begin(item); // outermost first
    vfs::StorageSystemReference const self{std::weak_ptr<vfs::StorageSystem>(shared_from_this())};
    if (existsExtended(item, self) != provider::ExtendedExistsResult::Nothing) {
        return;
    }
    if (!vfs::Folder(item.getParent(), self).folderExists()) {
        throw vfs::Exception(vfs::ErrorCode::ResourceNotFound, item);
    }
    if (!empty_) {
        empty_ = provider::standard::makeStandardStorageSystem({});
        empty_->buildProvider(emptyItem())->createFile(emptyItem());
    }
    begun_.insert(item);
}

std::shared_ptr<provider::IProvider> Rehearsal::buildProvider(StorageIRI const& location) const {
    for (StorageIRI inside = location; inside.hasInnerIRI(); inside = inside.getInnerIRI()) {
        if (begun_.contains(vfs::AbsoluteIRI(inside.getInnerIRI(), true))) {
            // For the outermost path alone, whatever the archive's own location is.
            return empty_->buildProvider(StorageIRI(location.getScheme(), emptyItem(), u"/"));
        }
    }
    return system_.buildProvider(location);
}

boost::shared_ptr<vfs::EventMgr> Rehearsal::getEventMgr() const {
    return system_.getEventMgr();
}

} // namespace cli
