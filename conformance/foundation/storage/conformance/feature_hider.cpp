#include <foundation/storage/conformance/feature_hider.hpp>

#include <foundation/storage/provider/exception.hpp>

#include <utility>

namespace foundation::storage::conformance {

using namespace foundation::storage::provider;

FeatureHider::FeatureHider(std::shared_ptr<IProvider> inner, Features hidden)
    : ProviderDecorator(std::move(inner)),
      hidden_(std::move(hidden)) {}

FeatureHider::Features FeatureHider::allFeatures() {
    return {ExtendedFeature::RecursiveFolderRemoval, ExtendedFeature::RecursiveListing,
            ExtendedFeature::FlatWildcardListing, ExtendedFeature::RecursiveChangeEvents,
            ExtendedFeature::RecursiveWildcardListing};
}

bool FeatureHider::hasFeature(StorageIRI const& location, ExtendedFeature const& feature) const {
    return ProviderDecorator::hasFeature(location, feature) && !isHidden(feature);
}

void FeatureHider::removeFolderRecursively(StorageIRI const& location) {
    if (isHidden(ExtendedFeature::RecursiveFolderRemoval)) {
        throw Exception(ErrorCode::UnsupportedOperation, location);
    }
    ProviderDecorator::removeFolderRecursively(location);
}

void FeatureHider::publishFolderEvents(StorageIRI const& location, ChangeCallback callback,
                                       ChangeKinds const& kinds, RecursiveFileWatching recursive) {
    if (recursive == RecursiveFileWatching::Recursive &&
        isHidden(ExtendedFeature::RecursiveChangeEvents)) {
        throw ChangeEventsNotSupportedException(location);
    }
    ProviderDecorator::publishFolderEvents(location, std::move(callback), kinds, recursive);
}

std::unique_ptr<IFolderEntryIterator> FeatureHider::doList(Operation operation, Listing listing,
                                                           StorageIRI const& location,
                                                           ustring const& filter) const {
    bool const recursive = operation == Operation::ListAllRecursive ||
                           operation == Operation::ListAllRecursiveNamesOnly;
    if (recursive && isHidden(ExtendedFeature::RecursiveListing)) {
        throw Exception(ErrorCode::UnsupportedOperation, location);
    }
    bool const filters = !isHidden(recursive ? ExtendedFeature::RecursiveWildcardListing
                                             : ExtendedFeature::FlatWildcardListing);
    return ProviderDecorator::doList(operation, listing, location, filters ? filter : ustring());
}

} // namespace foundation::storage::conformance
