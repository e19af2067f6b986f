#pragma once

#include <foundation/storage/provider/s3/s3_options.hpp>
#include <foundation/storage/provider/web/exchange.hpp>

#include <cstdint>
#include <string>
#include <string_view>

namespace foundation::storage::provider::s3::detail {

/// What a request is signed for.
struct SigningScope {
    std::string region;
    std::string service = "s3";
};

/// The request in the one form that both sides sign. `target` is its path and its query, encoded
/// as they are sent; `payloadHash` what the request says of its body. Of the fields, all those
/// count that the way to the server leaves alone.
std::string canonicalRequest(std::string_view method, std::string_view target,
                             web::Headers const& fields, std::string_view payloadHash);

/// Names of the fields that are signed, with a semicolon between them.
std::string signedNames(web::Headers const& fields);

/// `time` is YYYYMMDD'T'HHMMSS'Z'.
std::string stringToSign(std::string_view time, SigningScope const& scope,
                         std::string_view canonicalRequest);

std::string signatureOf(std::string_view secretKey, std::string_view time,
                        SigningScope const& scope, std::string_view stringToSign);

/// Adds the fields that say who asks, and when; nothing where nobody does. The request says
/// already what its body hashes to, in `x-amz-content-sha256`. `now` in seconds since 1970.
///
/// AWS General Reference, Signature Version 4, as the S3 API Reference has it: names are encoded
/// once, and paths not normalised.
void sign(web::Request& request, Credentials const& credentials, SigningScope const& scope,
          std::int64_t now);

} // namespace foundation::storage::provider::s3::detail
