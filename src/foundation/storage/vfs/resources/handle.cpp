#include <foundation/storage/vfs/resources/detail/handle.hpp>

#include <foundation/storage/vfs/errors/detail/translated.hpp>
#include <foundation/storage/vfs/storage_system/detail/build_provider_translated.hpp>

#include <utility>

namespace foundation::storage::vfs::detail {

AbsoluteIRI Handle::getLocation() const {
    return translated([this] { return AbsoluteIRI(item.getLocation(), true); });
}

CanonicalAbsoluteIRI Handle::getCanonicalLocation() const {
    return translated([this] {
        return CanonicalAbsoluteIRI(
            AbsoluteIRI(canonicalFlag ? item.getLocation() : item.getCanonicalLocation(), true));
    });
}

Handle makeHandle(AbsoluteIRI const& location, StorageSystemReference storageSystem,
                  bool canonicalFlag) {
    StorageIRI iri = location.toStorageIRI();
    auto provider = buildProviderTranslated(storageSystem, iri);
    return {provider::StorageItem(std::move(provider), std::move(iri)), std::move(storageSystem),
            canonicalFlag};
}

} // namespace foundation::storage::vfs::detail
