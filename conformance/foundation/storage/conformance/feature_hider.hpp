#pragma once

#include <foundation/storage/conformance/provider_decorator.hpp>

#include <set>

namespace foundation::storage::conformance {

/// A provider without some of the features that it has, so that the system has to do their work.
/// Made by decorate<FeatureHider>(provider), or with a set of features to hide; all by default.
///
/// hasFeature() answers false to what is hidden, and the operation refuses it: the recursive
/// listings and removeFolderRecursively with provider::Exception, code UnsupportedOperation, and
/// publishing a whole tree with provider::ChangeEventsNotSupportedException. Without a wildcard
/// feature the inner provider is handed an empty filter, so that nothing is filtered.
///
/// Never changes once made, and so as safe on many threads as the inner provider.
class FOUNDATION_EXPORT FeatureHider : public ProviderDecorator {
  public:
    using Features = std::set<provider::ExtendedFeature>;
    static Features allFeatures();

    bool hasFeature(provider::StorageIRI const& location,
                    provider::ExtendedFeature const& feature) const override;
    void removeFolderRecursively(provider::StorageIRI const& location) override;
    void publishFolderEvents(provider::StorageIRI const& location,
                             provider::ChangeCallback callback, provider::ChangeKinds const& kinds,
                             provider::RecursiveFileWatching recursive) override;

  protected:
    explicit FeatureHider(std::shared_ptr<provider::IProvider> inner,
                          Features hidden = allFeatures());

    std::unique_ptr<provider::IFolderEntryIterator>
    doList(Operation operation, Listing listing, provider::StorageIRI const& location,
           provider::ustring const& filter) const override;

  private:
    bool isHidden(provider::ExtendedFeature feature) const { return hidden_.contains(feature); }

    Features const hidden_;
};

} // namespace foundation::storage::conformance
