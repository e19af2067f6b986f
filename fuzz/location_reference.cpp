// Locations that are URIs (RFC 3986) as well, read by a parser of URIs beside this one: both see
// the same parts, and what is refused is refused for a reason that docs/locations.md gives.

#include "require.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/network/iri.hpp>
#include <foundation/storage/provider/malformed_iri_exception.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <uriparser/Uri.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

using namespace foundation::storage::provider;

namespace {

struct Parts {
    std::string scheme;
    std::string user;
    std::string host;
    std::string port;
    std::string path;
    std::string query;
    std::string fragment;
    bool hasScheme = false;
    bool hasHost = false;
    bool hasQuery = false;
    bool hasFragment = false;
};

std::string textOf(UriTextRangeA const& range) {
    return range.first == nullptr ? std::string() : std::string(range.first, range.afterLast);
}

std::optional<Parts> partsOfURI(std::string const& text) {
    UriUriA uri;
    char const* error = nullptr;
    if (uriParseSingleUriExA(&uri, text.data(), text.data() + text.size(), &error) != URI_SUCCESS) {
        return std::nullopt;
    }
    Parts parts;
    parts.hasScheme = uri.scheme.first != nullptr;
    parts.scheme = textOf(uri.scheme);
    parts.user = textOf(uri.userInfo);
    parts.hasHost = uri.hostText.first != nullptr;
    parts.host = textOf(uri.hostText);
    if (uri.hostData.ip6 != nullptr || uri.hostData.ipFuture.first != nullptr) {
        parts.host = '[' + parts.host + ']';
    }
    parts.port = textOf(uri.portText);
    bool slash = uri.absolutePath == URI_TRUE || parts.hasHost;
    for (UriPathSegmentA const* at = uri.pathHead; at != nullptr; at = at->next) {
        parts.path += (slash ? "/" : "") + textOf(at->text);
        slash = true;
    }
    if (uri.pathHead == nullptr && uri.absolutePath == URI_TRUE) {
        parts.path = "/";
    }
    parts.hasQuery = uri.query.first != nullptr;
    parts.query = textOf(uri.query);
    parts.hasFragment = uri.fragment.first != nullptr;
    parts.fragment = textOf(uri.fragment);
    uriFreeUriMembersA(&uri);
    return parts;
}

std::string narrow(std::wstring const& text) {
    std::string out(text.size(), '\0');
    std::transform(text.begin(), text.end(), out.begin(),
                   [](wchar_t c) { return static_cast<char>(c); }); // a URI is ASCII
    return out;
}

void checkParts(StorageIRI const& location, Parts const& uri) {
    foundation::network::IRI const iri = location.toIRI();
    foundation::network::IRIArgs const& args = iri.args();
    require(narrow(args.scheme) == uri.scheme);
    if (location.hasInnerIRI()) {
        if (!uri.hasQuery && !uri.hasFragment) {
            require(narrow(args.path) == uri.path);
        }
        return;
    }
    require(args.hasHost == uri.hasHost);
    require(narrow(args.userInformation) == uri.user);
    require(narrow(args.host) == uri.host);
    require(args.hasPort ? args.port == std::strtoul(uri.port.c_str(), nullptr, 10)
                         : uri.port.empty());
    require(narrow(args.path) == uri.path);
    require(args.hasQuery == uri.hasQuery && narrow(args.query) == uri.query);
    require(args.hasFragment == uri.hasFragment && narrow(args.fragment) == uri.fragment);
}

bool has(std::string_view text, std::string_view what) {
    return text.find(what) != std::string_view::npos;
}

/// Whether a path has a segment of one or two dots of which one is encoded.
bool hasEncodedDots(std::string path) {
    path += '/';
    for (std::size_t begin = 0, end = 0; (end = path.find('/', begin)) != std::string::npos;
         begin = end + 1) {
        std::string segment = path.substr(begin, end - begin);
        bool const encoded = has(segment, "%");
        for (char const* const dot : {"%2e", "%2E"}) {
            for (std::size_t at = 0; (at = segment.find(dot)) != std::string::npos;) {
                segment.replace(at, 3, ".");
            }
        }
        if (encoded && (segment == "." || segment == "..")) {
            return true;
        }
    }
    return false;
}

/// Whether a URI is one of those that are no locations.
bool isRefused(Parts const& uri) {
    std::string const beforeQuery = uri.user + '@' + uri.host + uri.path;
    std::string const all = beforeQuery + uri.query + uri.fragment;
    bool const portFits =
        uri.port.empty() || (uri.port.find_first_not_of('0') != std::string::npos &&
                             std::strtoul(uri.port.c_str(), nullptr, 10) <= 65535);
    return !uri.hasScheme || uri.scheme.size() < 2 || !(uri.hasHost || uri.path.starts_with('/')) ||
           has(uri.user, ":") || !portFits || has(all, "%00") || has(beforeQuery, "%2f") ||
           has(beforeQuery, "%2F") || hasEncodedDots(uri.path);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string const text(reinterpret_cast<char const*>(data), size);
    std::optional<Parts> const uri = partsOfURI(text);
    if (!uri) {
        return 0;
    }
    try {
        StorageIRI const location(fl::i18n::storageNameToUstring(text));
        checkParts(location, *uri);
        require(location.hasInnerIRI() || !isRefused(*uri));
    } catch (MalformedIRIException const&) {
        require(isRefused(*uri));
    }
    return 0;
}
