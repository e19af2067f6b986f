#include <foundation/storage/provider/http/detail/dav_path.hpp>

#include <foundation/storage/provider/web/encoding.hpp>
#include <foundation/storage/provider/web/headers.hpp>

#include <algorithm>

namespace foundation::storage::provider::http::detail {

namespace {

bool isName(std::string_view name) noexcept {
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

/// There are too many forms of characters beyond ASCII to know what servers make of them.
bool areAlike(std::string_view a, std::string_view b) noexcept {
    auto const isOther = [](char c) { return static_cast<unsigned char>(c) >= 0x80; };
    return web::areEqualNames(a, b) ||
           (std::any_of(a.begin(), a.end(), isOther) && std::any_of(b.begin(), b.end(), isOther));
}

/// Takes the first name off a path that begins with one, or with slashes; empty at its end. Several
/// slashes are one, as in locations.
std::string_view takeName(std::string_view& path) noexcept {
    path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()));
    std::string_view const name = path.substr(0, path.find('/'));
    path.remove_prefix(name.size());
    return name;
}

/// The names in a path, behind those that are there already.
bool append(std::string_view path, DavPath& result) {
    result.endsInSlash = path.empty() || path.back() == '/';
    for (auto text = takeName(path); !text.empty(); text = takeName(path)) {
        auto name = web::percentDecoded(text);
        if (!name || !isName(*name)) {
            return false;
        }
        result.names.push_back(*std::move(name));
    }
    return true;
}

/// The path of a URL with a scheme and a host; empty where it has none of the three.
std::string_view pathOf(std::string_view url) noexcept {
    std::size_t const host = url.find("://");
    std::size_t const path = host == std::string_view::npos ? host : url.find('/', host + 3);
    return path == std::string_view::npos ? std::string_view() : url.substr(path);
}

bool isWebUrl(std::string_view text) noexcept {
    auto const startsWith = [&](std::string_view scheme) {
        return text.size() > scheme.size() &&
               std::equal(scheme.begin(), scheme.end(), text.begin(),
                          [](char a, char b) { return a == b || a == (b | 0x20); });
    };
    return startsWith("http://") || startsWith("https://");
}

/// The path in a location of an answer, which has neither query nor fragment.
struct Place {
    std::string_view path;
    bool isAbsolute;
};

std::optional<Place> placeOf(std::string_view href) noexcept {
    if (isWebUrl(href)) {
        href = pathOf(href);
        return href.empty() ? std::nullopt : std::optional(Place{href, true});
    }
    if (href.starts_with("//") || href.empty()) {
        return std::nullopt; // the first of which would be a host
    }
    if (href.starts_with('/')) {
        return Place{href, true};
    }
    while (href.starts_with("./")) {
        href.remove_prefix(2);
    }
    if (href.substr(0, href.find('/')).find(':') != std::string_view::npos) {
        return std::nullopt; // a URL of another scheme
    }
    return Place{href, false};
}

} // namespace

std::optional<DavPath> DavPath::of(web::Url const& url) {
    std::string_view path = pathOf(url.text());
    path = path.substr(0, path.find('?'));
    DavPath result;
    if (!path.starts_with('/') || !append(path, result)) {
        return std::nullopt;
    }
    return result;
}

std::optional<DavPath> DavPath::of(std::string_view href, DavPath const& base) {
    if (href.find_first_of("?#") != std::string_view::npos) {
        return std::nullopt;
    }
    auto const place = placeOf(href);
    if (!place) {
        return std::nullopt;
    }
    DavPath result;
    if (!place->isAbsolute) {
        result.names = base.names;
    }
    return append(place->path, result) ? std::optional(result) : std::nullopt;
}

bool DavPath::holdsUnreadable(std::string_view href) const {
    std::size_t const end = std::min(href.find_first_of("?#"), href.size());
    bool const hasMore = end < href.size();
    if (href.starts_with("//")) { // a host, or a slash too many
        std::string_view const path = href.substr(1);
        auto const isIn = [&](std::string_view text) {
            auto const read = of(text, *this);
            return read ? nameOf(*read).has_value() : holdsUnreadable(text);
        };
        std::size_t const behindHost = path.find('/', 1);
        return isIn(path.substr(std::min(path.find_first_not_of('/'), path.size()) - 1)) ||
               (behindHost != std::string_view::npos &&
                isIn(path.substr(std::min(path.find_first_not_of('/', behindHost), path.size()) -
                                 1)));
    }
    auto place = placeOf(href.substr(0, end));
    if (!place) {
        return false;
    }
    if (place->isAbsolute) {
        for (std::string const& name : names) {
            auto const written = web::percentDecoded(takeName(place->path));
            if (!written || !areAlike(*written, name)) {
                return false;
            }
        }
    }
    std::string_view const text = takeName(place->path);
    if (text.empty()) {
        return hasMore && href.substr(0, end).ends_with('/');
    }
    auto const name = web::percentDecoded(text);
    bool const isLast = place->path.find_first_not_of('/') == std::string_view::npos;
    bool const leadsElsewhere = name == "." || name == "..";
    return !leadsElsewhere && (!name || !isName(*name) || (isLast && hasMore));
}

bool DavPath::isLike(DavPath const& other) const noexcept {
    return std::equal(names.begin(), names.end(), other.names.begin(), other.names.end(), areAlike);
}

std::optional<std::string> DavPath::nameOf(DavPath const& other) const {
    if (other.names.size() != names.size() + 1 ||
        !std::equal(names.begin(), names.end(), other.names.begin(), areAlike)) {
        return std::nullopt;
    }
    return other.names.back();
}

} // namespace foundation::storage::provider::http::detail
