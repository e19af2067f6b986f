// Any bytes as the answer to a listing by WebDAV: they are refused, or every name in them is that
// of an item in the folder, and comes once.

#include "require.hpp"

#include <foundation/storage/provider/http/detail/dav_listing.hpp>
#include <foundation/storage/provider/web/failure.hpp>

#include <cstdint>
#include <set>
#include <string>
#include <string_view>

namespace http = foundation::storage::provider::http::detail;
namespace web = foundation::storage::provider::web;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
    http::DavPath const folder{{"a folder", "below"}, true};
    try {
        auto const responses =
            http::parseMultistatus(std::string(reinterpret_cast<char const*>(bytes), size), 1000);
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
