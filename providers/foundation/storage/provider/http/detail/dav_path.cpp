#include <foundation/storage/provider/http/detail/dav_path.hpp>

#include <algorithm>

namespace foundation::storage::provider::http::detail {

namespace {

int valueOf(char digit) noexcept {
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    char const small = static_cast<char>(digit | 0x20);
    return small >= 'a' && small <= 'f' ? small - 'a' + 10 : -1;
}

/// Once; what comes out with a percent sign is a name with a percent sign.
std::optional<std::string> decoded(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            result += text[i];
            continue;
        }
        if (i + 2 >= text.size() || valueOf(text[i + 1]) < 0 || valueOf(text[i + 2]) < 0) {
            return std::nullopt;
        }
        result += static_cast<char>(valueOf(text[i + 1]) * 16 + valueOf(text[i + 2]));
        i += 2;
    }
    return result;
}

bool isName(std::string_view name) noexcept {
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

/// The names in a path, behind those that are there already.
bool append(std::string_view path, DavPath& result) {
    result.endsInSlash = path.empty() || path.back() == '/';
    while (!path.empty()) {
        std::size_t const end = std::min(path.find('/'), path.size());
        auto name = decoded(path.substr(0, end));
        if (!name || !isName(*name)) {
            return false;
        }
        result.names.push_back(*std::move(name));
        path.remove_prefix(std::min(end + 1, path.size()));
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

} // namespace

std::optional<DavPath> DavPath::of(web::Url const& url) {
    std::string_view path = pathOf(url.text());
    path = path.substr(0, path.find('?'));
    DavPath result;
    if (!path.starts_with('/') || !append(path.substr(1), result)) {
        return std::nullopt;
    }
    return result;
}

std::optional<DavPath> DavPath::of(std::string_view href, DavPath const& base) {
    href = href.substr(0, href.find('#'));
    if (href.find('?') != std::string_view::npos) {
        return std::nullopt;
    }
    DavPath result;
    if (isWebUrl(href)) {
        href = pathOf(href);
    } else if (href.starts_with("//") || href.empty()) {
        return std::nullopt; // the first of which would be a host
    } else if (!href.starts_with('/')) {
        if (href.substr(0, href.find('/')).find(':') != std::string_view::npos) {
            return std::nullopt; // a URL of another scheme
        }
        result.names = base.names;
        return append(href, result) ? std::optional(result) : std::nullopt;
    }
    if (!href.starts_with('/') || !append(href.substr(1), result)) {
        return std::nullopt;
    }
    return result;
}

std::optional<std::string> DavPath::nameOf(DavPath const& other) const {
    if (other.names.size() != names.size() + 1 ||
        !std::equal(names.begin(), names.end(), other.names.begin())) {
        return std::nullopt;
    }
    return other.names.back();
}

} // namespace foundation::storage::provider::http::detail
