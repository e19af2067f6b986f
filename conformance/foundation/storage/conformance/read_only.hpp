#pragma once

#include <foundation/storage/conformance/provider_decorator.hpp>
#include <foundation/storage/provider/extensions/i_folder_attributes.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/extensions/i_small_file_copies.hpp>

#include <type_traits>

namespace foundation::storage::conformance {

/// A provider that cannot be changed, of one that can. Made by decorate<ReadOnly>(provider).
///
/// Every operation that changes something throws provider::Exception, code ReadOnlyProvider, with
/// the location of the operation, also where it would have failed for another reason; for two
/// locations the source, for a copy to an item of its own that item. Links are read and not made.
/// The extensions that do nothing but change are not there: IReplacingStreams, IFolderAttributes
/// and ISmallFileCopies. Everything else passes: what the inner provider is asked to change by
/// others is seen, also as change events, and copies to other providers are made.
///
/// Never changes once made, and so as safe on many threads as the inner provider.
class FOUNDATION_EXPORT ReadOnly : public ProviderDecorator {
  public:
    template<class Extension>
    static constexpr bool handsOn =
        !std::is_same_v<Extension, provider::extensions::IReplacingStreams> &&
        !std::is_same_v<Extension, provider::extensions::IFolderAttributes> &&
        !std::is_same_v<Extension, provider::extensions::ISmallFileCopies>;

    /// Without RecursiveFolderRemoval.
    bool hasFeature(provider::StorageIRI const& location,
                    provider::ExtendedFeature const& feature) const override;
    provider::CopyStatus copyFile(provider::StorageIRI const& source,
                                  provider::StorageItem const& destination,
                                  provider::CopyFileOptions const& options) override;

  protected:
    explicit ReadOnly(std::shared_ptr<provider::IProvider> inner);
    void before(Operation operation, provider::StorageIRI const* location) const override;
};

} // namespace foundation::storage::conformance
