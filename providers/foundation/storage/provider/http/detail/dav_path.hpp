#pragma once

#include <foundation/storage/provider/web/url.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace foundation::storage::provider::http::detail {

/// The names on the way to an item of a server, decoded. None of them is empty, `.` or `..`, or
/// holds a slash or a NUL.
struct DavPath {
    std::vector<std::string> names;
    bool endsInSlash = false; ///< as those of folders should

    /// Of a request. Nothing where its names are not as above.
    static std::optional<DavPath> of(web::Url const& url);
    /// Of a location in an answer: a URL, an absolute path, or a path below the folder `base` (RFC
    /// 4918, section 8.3). Whose host it names does not count: behind a proxy a server may not know
    /// its own. Nothing where it has a query or a fragment, or names that are not as above.
    static std::optional<DavPath> of(std::string_view href, DavPath const& base);

    /// Whether both name the same item.
    bool isSameAs(DavPath const& other) const noexcept { return names == other.names; }
    /// Whether a server that knows no case, or another form of Unicode, may take both for the same.
    bool isLike(DavPath const& other) const noexcept;
    /// The name of an item in this folder, or in one that isLike() it: servers do not write a
    /// folder alike each time. Nothing where `other` is none.
    std::optional<std::string> nameOf(DavPath const& other) const;
    /// Whether a location that is none for of() seems to be an item in this folder all the same,
    /// with a name that cannot be read, or that none can have.
    bool holdsUnreadable(std::string_view href) const;
};

} // namespace foundation::storage::provider::http::detail
