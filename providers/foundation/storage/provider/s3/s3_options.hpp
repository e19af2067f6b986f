#pragma once

#include <foundation/storage/provider/web/web_options.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace foundation::storage::provider::s3 {

/// Who asks. A plain value; it is never printed.
struct Credentials {
    std::string accessKey = {}; ///< empty: nobody, for buckets that are open to all
    std::string secretKey = {};
    std::string sessionToken = {};
};

/// Where the name of the bucket stands in a request.
enum class AddressingStyle {
    Automatic,   ///< in the host, where the endpoint and the name allow it; else in the path
    Path,        ///< https://ENDPOINT/BUCKET/KEY
    VirtualHost, ///< https://BUCKET.ENDPOINT/KEY
};

/// How a bucket is reached and used. A plain value.
struct S3Options {
    web::WebOptions web;

    /// The URL of the store, without the bucket; empty for the public one of the region.
    std::string endpoint = {};
    std::string region = "us-east-1";
    Credentials credentials = {};
    AddressingStyle addressing = AddressingStyle::Automatic;

    /// Bytes of a part of an upload, and the most that is asked for at once when reading; from
    /// 5 MiB to 5 GiB. Objects beyond 10,000 parts get larger ones.
    std::uint64_t partSize = std::uint64_t{8} * 1024 * 1024;
    /// Bytes that the store copies in one request; larger objects are copied by parts. From 5 MiB
    /// to 5 GiB. A store answers when it is done, so that this much must not take longer than
    /// `web.stallTimeout`.
    std::uint64_t largestCopy = std::uint64_t{1024} * 1024 * 1024;
    /// Requests in flight for one stream, one copy or one removal; from 1 to 1,000.
    unsigned concurrency = 10;
    /// Keys that a page of a listing has at most, from 1 to 1,000.
    unsigned pageSize = 1000;

    /// How long what a store has told of a file (size, time, that it is there) answers further
    /// questions; zero to ask each time. Reading a file is not concerned, and changes that are made
    /// through the provider are seen at once.
    std::chrono::milliseconds attributeLifetime{1'000};

    /// Bytes that the provider keeps in memory of files that are changed in place, until they are
    /// written back. What is more goes to a temporary file without a name.
    std::size_t maximumPendingMemory = std::size_t{64} * 1024 * 1024;
    /// Where that file is; empty for /var/tmp, and /tmp where that does not do.
    std::string temporaryFolder = {};
};

} // namespace foundation::storage::provider::s3
