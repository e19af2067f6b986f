#include "tree_listing.hpp"

#include <foundation/storage/provider/extended_feature.hpp>
#include <foundation/storage/provider/i_provider.hpp>

#include <span>

namespace cli {

namespace vfs = foundation::storage::vfs;

bool listsTrees(vfs::StorageSystemReference const& system, vfs::AbsoluteIRI const& iri) {
    using foundation::storage::provider::ExtendedFeature;
    return system.buildProvider(iri.toStorageIRI())
        ->hasFeature(iri.toStorageIRI(), ExtendedFeature::RecursiveListing);
}

FailureText describeFailureBelow(vfs::StorageSystemReference const& system, Location const& root) {
    std::optional<vfs::AbsoluteIRI> const at = locationOfCurrentFailure();
    Location const subject = at && root.iri.isAncestorOf(*at)
                                 ? childLocation(root, at->makePathRelativeTo(root.iri))
                                 : root;
    return describeCurrentFailure(system, std::span(&subject, 1));
}

} // namespace cli
