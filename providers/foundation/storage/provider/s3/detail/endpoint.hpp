#pragma once

#include <foundation/storage/provider/s3/s3_options.hpp>
#include <foundation/storage/provider/web/url.hpp>

#include <string>
#include <string_view>

namespace foundation::storage::provider::s3::detail {

/// Where the requests to one bucket go. An immutable value.
class Endpoint {
  public:
    /// Throws web::Failure, code InvalidLocation, where the options or the name make no address.
    Endpoint(std::string_view bucket, S3Options const& options);

    /// Of the bucket itself.
    web::Url const& home() const noexcept { return home_; }
    /// Of a key, or of the bucket where it is empty. The query is encoded already.
    web::Url of(std::string_view key, std::string_view query) const;

  private:
    web::Url home_;
    std::string path_; ///< what stands before the key; ends in a slash
};

} // namespace foundation::storage::provider::s3::detail
