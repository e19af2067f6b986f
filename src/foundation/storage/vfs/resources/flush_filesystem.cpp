#include <foundation/storage/vfs/resources/flush_filesystem.hpp>

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/extensions/i_flushable_filesystem.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/vfs/errors/detail/rethrow_as_vfs_exception.hpp>
#include <foundation/storage/vfs/iri/absolute_iri.hpp>
#include <foundation/storage/vfs/storage_system/detail/build_provider_translated.hpp>
#include <foundation/storage/vfs/storage_system/storage_system_reference.hpp>

namespace foundation::storage::vfs::extensions {

void flushFilesystem(AbsoluteIRI const& location, StorageSystemReference const& storageSystem) {
    try {
        auto const provider = buildProviderTranslated(storageSystem, location.toStorageIRI());
        if (auto* const flushable =
                dynamic_cast<provider::extensions::IFlushableFilesystem*>(provider.get())) {
            flushable->flushFilesystem();
        }
    } catch (provider::Exception const&) {
        rethrowAsVfsException();
    }
}

} // namespace foundation::storage::vfs::extensions
