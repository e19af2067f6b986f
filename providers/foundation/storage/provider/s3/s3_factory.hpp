#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/factories.hpp>
#include <foundation/storage/provider/s3/s3_options.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <map>
#include <memory>
#include <mutex>

namespace foundation::storage::provider::s3 {

/// The files of a bucket, for the alias scheme `s3`: of the bucket that is the authority of
/// `location`. Nothing is sent yet. Safe on any thread.
///
/// Throws provider::Exception, code InvalidLocation, where the location names no bucket, and
/// std::invalid_argument for options beyond their bounds, and for a line break or another control
/// character in the credentials, the region or the endpoint.
FOUNDATION_EXPORT std::shared_ptr<IProvider> buildS3Provider(StorageIRI const& location,
                                                             S3Options const& options = {});

/// Gives one provider for each bucket. Safe on any thread.
class FOUNDATION_EXPORT S3ProviderFactory final : public PhysicalProviderFactory {
  public:
    explicit S3ProviderFactory(S3Options options = {});
    std::shared_ptr<IProvider> buildProvider(StorageIRI const& location) const override;
    /// Forgets the providers; whoever has one goes on with it.
    void shutdownProvider() const override;

  private:
    S3Options const options_;
    mutable std::mutex mutex_;
    mutable std::map<ustring, std::shared_ptr<IProvider>> providers_; ///< guarded by the mutex
};

} // namespace foundation::storage::provider::s3
