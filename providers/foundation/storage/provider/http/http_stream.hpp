#pragma once

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/http/http_options.hpp>
#include <foundation/storage/provider/storage_iri.hpp>
#include <foundation/storage/provider/web/client.hpp>

#include <functional>
#include <memory>

namespace foundation::storage::provider::http {

namespace detail {
class RangeReader;
} // namespace detail

/// What whoever opens a file makes of the first answer.
using Opened = std::function<void(detail::RangeReader const& reader)>;

/// Which bytes of a file are asked for when it is opened.
enum class First { Start, End };

/// Opens a file for reading. One that changes while it is open gives a failing read, never bytes of
/// both.
///
/// Throws provider::Exception naming `location`, and what `opened` throws.
std::unique_ptr<ByteStream> openForReading(std::shared_ptr<web::Client const> client,
                                           web::Url const& url, StorageIRI const& location,
                                           HttpOptions const& options, First first,
                                           Opened const& opened);

} // namespace foundation::storage::provider::http
