#include <foundation/storage/provider/http/detail/dav_listing.hpp>

#include <foundation/storage/provider/web/failure.hpp>

#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace foundation::storage::provider::http::detail {

bool isFolder(DavResponse const& response) noexcept {
    return response.properties.isFolder.value_or(response.href.ends_with('/'));
}

DavPath asWritten(std::vector<DavResponse> const& responses, DavPath const& asked) {
    std::optional<DavPath> alike;
    for (DavResponse const& response : responses) {
        auto path = DavPath::of(response.href, asked);
        if (!path || !path->isLike(asked)) {
            continue;
        }
        if (path->isSameAs(asked) || (alike && !alike->isSameAs(*path))) {
            return asked;
        }
        alike = std::move(path);
    }
    return alike ? *std::move(alike) : asked;
}

DavListing listingOf(std::vector<DavResponse> const& responses, DavPath const& asked) {
    DavPath const folder = asWritten(responses, asked);
    DavListing listing;
    listing.status = 200;
    std::unordered_map<std::string_view, bool> names; // and whether it is a folder
    std::optional<bool> isItselfFolder;
    listing.members.reserve(responses.size()); // the names stay where they are
    for (DavResponse const& response : responses) {
        auto const path = DavPath::of(response.href, folder);
        bool const isThere = response.status == 0 || web::isSuccess(response.status);
        if (path && path->isSameAs(folder)) {
            if (!isThere) {
                DavListing refused;
                refused.status = response.status;
                return refused;
            }
            if (isItselfFolder.value_or(isFolder(response)) != isFolder(response)) {
                throw web::unusableAnswer("two kinds of one item");
            }
            isItselfFolder = isFolder(response);
            continue;
        }
        auto name = path ? folder.nameOf(*path) : std::nullopt;
        if (!name) {
            // Whoever copies a listing, and then removes the folder, relies on it to be complete.
            if (!path && folder.holdsUnreadable(response.href)) {
                throw web::unusableAnswer("an item's place is not well written");
            }
            ++listing.leftOut;
            continue;
        }
        if (web::isAbsence(response.status)) {
            continue; // vanished meanwhile
        }
        if (auto const before = names.find(*name); before != names.end()) {
            if (before->second != isFolder(response)) {
                throw web::unusableAnswer("two kinds of one item");
            }
            continue;
        }
        DavMember& member = listing.members.emplace_back();
        member.name = *std::move(name);
        member.isFolder = isFolder(response);
        member.hasProperties = isThere && response.refusal == 0;
        member.properties = response.properties;
        names.emplace(member.name, member.isFolder);
    }
    // A server that tells nothing of the folder has listed something else.
    if (!isItselfFolder && listing.members.empty()) {
        throw web::unusableAnswer("it tells of something else");
    }
    listing.isFolder = isItselfFolder.value_or(true);
    return listing;
}

} // namespace foundation::storage::provider::http::detail
