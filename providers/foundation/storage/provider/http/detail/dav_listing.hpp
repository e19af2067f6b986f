#pragma once

#include <foundation/storage/provider/http/detail/dav_path.hpp>
#include <foundation/storage/provider/http/detail/dav_xml.hpp>

#include <cstddef>
#include <string>
#include <vector>

namespace foundation::storage::provider::http::detail {

struct DavMember {
    std::string name; ///< as the storage knows it
    bool isFolder = false;
    bool hasProperties = false; ///< whether the server has let us have them
    DavProperties properties;
};

struct DavListing {
    int status = 0;
    bool isFolder = false; ///< where the status is success
    std::vector<DavMember> members;
    std::size_t leftOut = 0; ///< items that are not in the folder, as far as their places tell
};

/// What an answer says of a folder, and of what is in it: each name once, and none that leads out
/// of the folder. Throws web::Failure where it tells nothing of it,
/// or of an item in it that cannot be told, or two things of one.
DavListing listingOf(std::vector<DavResponse> const& responses, DavPath const& asked);

/// The place that was asked for, as the server writes it in an answer: where it does not tell of
/// the names that were sent, those of its own that it may take for the same.
DavPath asWritten(std::vector<DavResponse> const& responses, DavPath const& asked);

/// Of a folder. It should say so by its type; its location may end in a slash.
bool isFolder(DavResponse const& response) noexcept;

} // namespace foundation::storage::provider::http::detail
