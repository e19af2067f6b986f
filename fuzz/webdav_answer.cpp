// Any bytes as the answer to a listing by WebDAV: they are refused, or every name in them is that
// of an item in the folder, and comes once.

#include "require.hpp"

#include <foundation/storage/provider/http/detail/dav_listing.hpp>
#include <foundation/storage/provider/http/detail/dav_multistatus.hpp>
#include <foundation/storage/provider/web/failure.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace http = foundation::storage::provider::http::detail;
namespace web = foundation::storage::provider::web;

namespace {

/// What comes of a text that comes in so many pieces; nothing where it is refused.
std::optional<std::vector<http::DavResponse>> responsesOf(std::string_view text,
                                                          std::size_t pieces) {
    http::MultistatusReader reader(1000);
    try {
        for (; pieces > 0; --pieces) {
            std::size_t const size = text.size() / pieces;
            reader.take(text.substr(0, size));
            text.remove_prefix(size);
        }
        return reader.finish();
    } catch (web::Failure const&) {
        return std::nullopt;
    }
}

void requireSame(std::vector<http::DavResponse> const& a, std::vector<http::DavResponse> const& b) {
    require(a.size() == b.size());
    for (std::size_t i = 0; i < a.size(); ++i) {
        require(a[i].href == b[i].href && a[i].status == b[i].status &&
                a[i].refusal == b[i].refusal && a[i].properties.etag == b[i].properties.etag &&
                a[i].properties.isFolder == b[i].properties.isFolder &&
                a[i].properties.size == b[i].properties.size);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
    std::string_view const text(reinterpret_cast<char const*>(bytes), size);
    http::DavPath const folder{{"a folder", "below"}, true};
    auto const answer = responsesOf(text, 1);
    // Where it is cut on its way makes no difference.
    auto const inPieces = responsesOf(text, 7);
    require(answer.has_value() == inPieces.has_value());
    if (!answer) {
        return 0;
    }
    auto const& responses = *answer;
    requireSame(responses, *inPieces);
    try {
        http::DavListing const listing = http::listingOf(responses, folder);
        std::set<std::string> names;
        for (http::DavMember const& member : listing.members) {
            std::string const& name = member.name;
            require(!name.empty() && name != "." && name != "..");
            require(name.find_first_of(std::string_view("/\0", 2)) == std::string::npos);
            require(names.insert(name).second);
        }
        require(listing.members.size() + listing.leftOut <= responses.size());
    } catch (web::Failure const&) {
    }
    return 0;
}
