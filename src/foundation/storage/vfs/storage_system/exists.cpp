#include <foundation/storage/vfs/storage_system/exists.hpp>

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/vfs/errors/detail/rethrow_as_vfs_exception.hpp>
#include <foundation/storage/vfs/iri/absolute_iri.hpp>
#include <foundation/storage/vfs/storage_system/detail/build_provider_translated.hpp>
#include <foundation/storage/vfs/storage_system/storage_system_reference.hpp>

namespace foundation::storage::vfs {

namespace {

/// Asks the location's provider; its own ResourceNotFound is the answer `nothing`.
template<class Result, class Query>
Result ask(AbsoluteIRI const& iri, StorageSystemReference const& system, Result nothing,
           Query query) {
    StorageIRI const location = iri.toStorageIRI();
    std::shared_ptr<provider::IProvider> const provider = buildProviderTranslated(system, location);
    try {
        return query(*provider, location);
    } catch (provider::Exception const& e) {
        if (e.getErrorCode() == provider::ErrorCode::ResourceNotFound) {
            return nothing;
        }
        rethrowAsVfsException();
    }
}

} // namespace

provider::ExistsResult exists(AbsoluteIRI const& iri, StorageSystemReference const& system) {
    return ask(iri, system, provider::ExistsResult::Nothing,
               [](provider::IProvider const& asked, StorageIRI const& location) {
                   return asked.exists(location);
               });
}

provider::ExtendedExistsResult existsExtended(AbsoluteIRI const& iri,
                                              StorageSystemReference const& system) {
    return ask(iri, system, provider::ExtendedExistsResult::Nothing,
               [](provider::IProvider const& asked, StorageIRI const& location) {
                   return asked.existsExtended(location);
               });
}

} // namespace foundation::storage::vfs
