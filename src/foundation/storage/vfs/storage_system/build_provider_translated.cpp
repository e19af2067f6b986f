#include <foundation/storage/vfs/storage_system/detail/build_provider_translated.hpp>

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/vfs/errors/detail/rethrow_as_vfs_exception.hpp>
#include <foundation/storage/vfs/storage_system/storage_system.hpp>

namespace foundation::storage::vfs {

std::shared_ptr<provider::IProvider> buildProviderTranslated(StorageSystem const& system,
                                                             provider::StorageIRI const& location) {
    try {
        return system.buildProvider(location);
    } catch (provider::Exception const&) {
        rethrowAsVfsException();
    }
}

} // namespace foundation::storage::vfs
