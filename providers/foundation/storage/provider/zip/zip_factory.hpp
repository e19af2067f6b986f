#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/factories.hpp>
#include <foundation/storage/provider/zip/zip_options.hpp>

#include <memory>

namespace foundation::storage::provider::zip {

/// The inside of a zip archive, for the container scheme `zip`. Changes are kept back until
/// flushFilesystem() writes a new archive; where the item may not be written, they are refused with
/// code ReadOnlyProvider. The archive's directory is read here, and again when the item's size or
/// time has changed. Safe on any thread.
///
/// Throws provider::Exception naming the item: ResourceNotFound where it is missing,
/// InvalidLocation for a folder, IOError for what is no archive, UnsupportedOperation for one of
/// several volumes or with an encrypted directory, FileTooLarge beyond a bound of the options.
FOUNDATION_EXPORT std::shared_ptr<IProvider> buildZipProvider(StorageItem const& item,
                                                              ZipOptions const& options = {});

/// Gives a provider for each item that it is asked for. Safe on any thread.
class FOUNDATION_EXPORT ZipProviderFactory final : public ContainerProviderFactory {
  public:
    explicit ZipProviderFactory(ZipOptions const& options = {}) : options_(options) {}
    std::shared_ptr<IProvider> buildProvider(StorageItem const& item) const override;
    /// Nothing was started.
    void shutdownProvider() const override;

  private:
    ZipOptions const options_;
};

} // namespace foundation::storage::provider::zip
