#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

namespace foundation::storage::provider::web {

/// How a provider talks to servers: how long it waits, what it tries again, by which way it goes.
/// Certificates are always checked. A plain value.
struct WebOptions {
    /// For a connection, with the search for the host's address and the TLS handshake.
    std::chrono::milliseconds connectTimeout{10'000};
    /// For the next byte of an open connection.
    std::chrono::milliseconds stallTimeout{30'000};
    /// For one operation: a question, the opening of a file, one read; with all that is tried
    /// again.
    std::chrono::milliseconds operationTimeout{300'000};

    /// How often a request is sent that fails in a way that may pass: a connection that is refused
    /// or lost, a stall, the answers 408, 429, 500, 502, 503 and 504. 1 tries nothing again.
    unsigned attempts = 5;
    /// The pause before the second attempt; each further one is twice as long as the one before, up
    /// to the longest. The pause that is made is a random part of that, and never shorter than the
    /// server asks for (Retry-After).
    std::chrono::milliseconds firstPause{200};
    std::chrono::milliseconds longestPause{10'000};

    /// Redirects that are followed one after the other; 0: a redirect is the answer.
    unsigned redirects = 10;
    /// Whether a redirect may lead from https to http.
    bool followsToPlainHttp = false;

    /// The URL of a proxy; empty for none. Where nothing is said, the environment counts:
    /// http_proxy, https_proxy, all_proxy and no_proxy, in small letters.
    std::optional<std::string> proxy = std::nullopt;
    /// A file with the certificates that are trusted; empty for those of the system.
    std::string certificateFile = {};
    std::string userAgent = "foundation_storage_vfs";
    /// Connections that are kept open for the next request.
    std::size_t idleConnections = 8;
};

} // namespace foundation::storage::provider::web
