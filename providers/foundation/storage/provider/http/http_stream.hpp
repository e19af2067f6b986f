#pragma once

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/http/http_options.hpp>
#include <foundation/storage/provider/storage_iri.hpp>
#include <foundation/storage/provider/web/client.hpp>

#include <functional>
#include <memory>

namespace foundation::storage::provider::http {

/// Where redirects have led the one who opened a file.
using LedTo = std::function<void(web::Url const& place)>;

/// Opens a file for reading: its first bytes are asked for. A file that changes while it is open
/// gives a failing read, never bytes of both.
///
/// Throws provider::Exception naming `location`, and what `ledTo` throws.
std::unique_ptr<ByteStream> openForReading(std::shared_ptr<web::Client const> client,
                                           web::Url const& url, StorageIRI const& location,
                                           HttpOptions const& options, LedTo const& ledTo);

} // namespace foundation::storage::provider::http
