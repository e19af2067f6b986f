#include <foundation/storage/provider/web/url.hpp>

#include <fl/i18n/conversion.hpp>
#include <foundation/network/iri.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/web/encoding.hpp>

#include <curl/curl.h>
#include <memory>
#include <stdexcept>

namespace foundation::storage::provider::web {

namespace {

struct UrlDeleter {
    void operator()(CURLU* url) const noexcept { ::curl_url_cleanup(url); }
};
struct TextDeleter {
    void operator()(char* text) const noexcept { ::curl_free(text); }
};

std::string part(CURLU* url, CURLUPart which, unsigned flags = 0) {
    char* raw = nullptr;
    if (::curl_url_get(url, which, &raw, flags) != CURLUE_OK) {
        return {};
    }
    std::unique_ptr<char, TextDeleter> const text(raw);
    return text.get();
}

/// The bytes of a part of a location; its text is that of wide characters.
std::string bytesOf(std::wstring const& text) {
    ustring units;
    for (wchar_t const c : text) {
        auto const code = static_cast<char32_t>(c);
        if (code >= 0x10000) {
            units += static_cast<char16_t>(0xd800 + ((code - 0x10000) >> 10));
            units += static_cast<char16_t>(0xdc00 + ((code - 0x10000) & 0x3ff));
        } else {
            units += static_cast<char16_t>(code);
        }
    }
    return fl::i18n::ustringToStorageName(units);
}

/// What may stand in a path as it is; what stands encoded stays so.
constexpr std::string_view plainInPath = "-._~!$&'()*+,;=:@/%";
constexpr std::string_view plainInQuery = "-._~!$&'()*+,;=:@/%?";

} // namespace

std::optional<Url> Url::parse(std::string const& base, std::string const& reference) {
    std::unique_ptr<CURLU, UrlDeleter> const url(::curl_url());
    if (!url) {
        throw std::bad_alloc();
    }
    // Spaces and bytes beyond ASCII are encoded; with a base the second text may be relative.
    if (!base.empty() && ::curl_url_set(url.get(), CURLUPART_URL, base.c_str(), 0) != CURLUE_OK) {
        return std::nullopt;
    }
    if (::curl_url_set(url.get(), CURLUPART_URL, reference.c_str(), CURLU_URLENCODE) != CURLUE_OK) {
        return std::nullopt;
    }
    for (CURLUPart const dropped :
         {CURLUPART_USER, CURLUPART_PASSWORD, CURLUPART_OPTIONS, CURLUPART_FRAGMENT}) {
        ::curl_url_set(url.get(), dropped, nullptr, 0);
    }
    std::string const scheme = part(url.get(), CURLUPART_SCHEME);
    std::string const host = part(url.get(), CURLUPART_HOST);
    std::string text = part(url.get(), CURLUPART_URL);
    if ((scheme != "http" && scheme != "https") || host.empty() || text.empty()) {
        return std::nullopt;
    }
    std::string origin = scheme + "://" + inSmallLetters(host) + ':' +
                         part(url.get(), CURLUPART_PORT, CURLU_DEFAULT_PORT);
    return Url(std::move(text), std::move(origin));
}

Url Url::of(StorageIRI const& location) {
    network::IRI const iri = location.toIRI(); // keeps the parts
    network::IRIArgs const& args = iri.args();
    try {
        std::string text = bytesOf(args.scheme) + "://" + bytesOf(args.host);
        if (args.hasPort) {
            text += ':' + std::to_string(args.port);
        }
        std::string const path = percentEncoded(bytesOf(args.path), plainInPath);
        text += path.empty() ? "/" : path;
        if (args.hasQuery) {
            text += '?' + percentEncoded(bytesOf(args.query), plainInQuery);
        }
        if (!location.hasInnerIRI() && !args.host.empty()) {
            if (std::optional<Url> url = parse({}, text)) {
                return *std::move(url);
            }
        }
    } catch (std::range_error const&) { // a lone surrogate that stands for no byte
    }
    throw Exception(ErrorCode::InvalidLocation, location);
}

std::optional<Url> Url::resolve(std::string_view reference) const {
    return parse(text_, std::string(reference));
}

Url Url::withTarget(std::string_view target) const {
    std::size_t const end = text_.find('/', text_.find("://") + 3);
    return Url(text_.substr(0, end).append(target), origin_);
}

bool Url::isSecure() const noexcept {
    return text_.starts_with("https:");
}

std::string Url::redacted() const {
    std::size_t const query = text_.find('?');
    return query == std::string::npos ? text_ : text_.substr(0, query) + "?...";
}

std::string userOf(StorageIRI const& location) {
    network::IRI const iri = location.toIRI();
    try {
        if (auto user = percentDecoded(bytesOf(iri.args().userInformation))) {
            return *std::move(user);
        }
    } catch (std::range_error const&) { // a lone surrogate that stands for no byte
    }
    throw Exception(ErrorCode::InvalidLocation, location);
}

} // namespace foundation::storage::provider::web
