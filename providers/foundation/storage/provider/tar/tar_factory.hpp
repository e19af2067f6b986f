#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/factories.hpp>
#include <foundation/storage/provider/tar/tar_options.hpp>

#include <memory>

namespace foundation::storage::provider::tar {

/// The inside of an archive of tar, also compressed, or of cpio, ar or ISO 9660, for the
/// container scheme `tar`, read-only: changes are refused with code ReadOnlyProvider. The headers
/// of all members are read here, and again when the item's size or time has changed. Safe on any
/// thread.
///
/// Throws provider::Exception naming the item: ResourceNotFound where it is missing,
/// InvalidLocation for a folder, IOError for what is no archive, UnsupportedOperation for one of
/// 7-Zip that the options do not ask for, or with encrypted headers, FileTooLarge beyond a bound of
/// the options.
FOUNDATION_EXPORT std::shared_ptr<IProvider> buildTarProvider(StorageItem const& item,
                                                              TarOptions const& options = {});

/// Gives a provider for each item that it is asked for. Safe on any thread.
class FOUNDATION_EXPORT TarProviderFactory final : public ContainerProviderFactory {
  public:
    explicit TarProviderFactory(TarOptions const& options = {}) : options_(options) {}
    std::shared_ptr<IProvider> buildProvider(StorageItem const& item) const override;
    /// Nothing was started.
    void shutdownProvider() const override;

  private:
    TarOptions const options_;
};

} // namespace foundation::storage::provider::tar
