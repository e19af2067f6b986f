#include "link_target.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/provider/i_provider.hpp>

namespace cli {

using foundation::storage::provider::ExtendedExistsResult;
using foundation::storage::provider::extensions::ILinks;

namespace vfs = foundation::storage::vfs;

bool isLink(ExtendedExistsResult kind) noexcept {
    return kind == ExtendedExistsResult::LinkToFile || kind == ExtendedExistsResult::LinkToFolder ||
           kind == ExtendedExistsResult::DanglingLink;
}

bool hasLinks(vfs::StorageSystemReference const& system, vfs::AbsoluteIRI const& iri) {
    auto const owner = system.buildProvider(iri.toStorageIRI());
    return dynamic_cast<ILinks const*>(owner.get()) != nullptr;
}

std::optional<std::string> linkTarget(vfs::StorageSystemReference const& system,
                                      vfs::AbsoluteIRI const& iri) {
    auto const owner = system.buildProvider(iri.toStorageIRI());
    auto const* const links = dynamic_cast<ILinks const*>(owner.get());
    if (links == nullptr) {
        return std::nullopt;
    }
    return fl::i18n::toDisplayString(links->readLink(iri.toStorageIRI()));
}

} // namespace cli
