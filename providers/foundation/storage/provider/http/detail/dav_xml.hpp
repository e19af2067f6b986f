#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace foundation::storage::provider::http::detail {

/// What a server tells of an item (RFC 4918, section 15); what it does not tell is empty.
struct DavProperties {
    /// Empty where the server does not say what kind of item it is.
    std::optional<bool> isFolder;
    std::optional<std::uint64_t> size;
    std::optional<std::int64_t> created; ///< in seconds from 1970
    std::string lastModified;            ///< as it stands in the answer
    std::string etag;
    std::string contentType;
};

/// What an answer of several parts says of one item.
struct DavResponse {
    std::string href; ///< as it stands in the answer
    int status = 0;   ///< of the item; 0 where only its properties have one
    /// Those that were found, or set.
    DavProperties properties;
    /// The status of the first properties for which it is neither success nor absence; else 0.
    int refusal = 0;
};

/// Appends the parts of a Multi-Status document (RFC 4918, section 13). Takes the text apart in
/// place, for which up to forty times as much memory is needed meanwhile.
///
/// Throws web::Failure for anything else: no well-formed XML, another root, a document type, a part
/// without a location.
void parseMultistatus(std::string text, std::vector<DavResponse>& responses);

} // namespace foundation::storage::provider::http::detail
