#pragma once

#include <foundation/storage/provider/web/web_options.hpp>

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace foundation::storage::provider::http {

/// How a server of the web is read and written. What says who asks (user, password, token, headers)
/// is sent to the authority of the provider's locations alone, never to where a redirect leads. A
/// plain value.
struct HttpOptions {
    web::WebOptions web;

    /// For basic authentication. Where no user is given, the one of the location counts.
    std::string user = {};
    std::string password = {};
    /// For `Authorization: Bearer`, instead of a user.
    std::string bearerToken = {};
    /// A file as netrc(5) describes, with users and passwords by host, for where nothing above says
    /// who asks; empty for none. It is not read where there is none.
    std::string netrcFile = {};
    /// Further fields of every request, names and values.
    std::vector<std::pair<std::string, std::string>> headers = {};

    /// How long what a server has told of a file (size, time, that it is there) answers further
    /// questions; zero to ask each time. Reading a file is not concerned.
    std::chrono::milliseconds attributeLifetime{1'000};

    /// Bytes that are asked for where a file is opened, and behind each seek. A reader that goes on
    /// from there gets four times as much with each further request. Of a file that is opened from
    /// its end, twice as many are asked for and kept, but no more than 128 KiB.
    std::uint64_t firstRange = std::uint64_t{64} * 1024;
    /// From this size on, a request is for everything to the end of the file.
    std::uint64_t largestRange = std::uint64_t{64} * 1024 * 1024;

    /// Bytes of the answer to one listing that are taken at most; an item takes 300 to 1,000. A
    /// folder with more is refused with code FileTooLarge. While it is read, it takes somewhat more
    /// memory than that, and up to four times as much where a server means harm.
    std::uint64_t largestListing = std::uint64_t{64} * 1024 * 1024;
    /// Bytes of files that are being written and are kept in memory, by all streams of a provider.
    /// What is more goes to a temporary file without a name.
    std::size_t maximumPendingMemory = std::size_t{64} * 1024 * 1024;
    /// Where that file is; empty for /var/tmp, and /tmp where that does not do.
    std::string temporaryFolder = {};
};

} // namespace foundation::storage::provider::http
