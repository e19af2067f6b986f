#include <foundation/storage/provider/web/url.hpp>

#include <fl/i18n/conversion.hpp>
#include <foundation/network/iri.hpp>
#include <foundation/storage/provider/exception.hpp>

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

bool isPlain(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("-._~!$&'()*+,;=:@/%").find(c) != std::string_view::npos;
}

/// What stands encoded stays so; what must be and is not, is encoded.
std::string encoded(std::string const& bytes, std::string_view alsoPlain) {
    constexpr char digits[] = "0123456789ABCDEF";
    std::string result;
    for (char const c : bytes) {
        if (isPlain(c) || alsoPlain.find(c) != std::string_view::npos) {
            result += c;
        } else {
            auto const byte = static_cast<unsigned char>(c);
            result += '%';
            result += digits[byte >> 4];
            result += digits[byte & 15];
        }
    }
    return result;
}

int valueOf(char digit) noexcept {
    return digit <= '9' ? digit - '0' : (digit | 0x20) - 'a' + 10;
}

std::string decoded(std::string const& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size()) {
            result += static_cast<char>(valueOf(text[i + 1]) * 16 + valueOf(text[i + 2]));
            i += 2;
        } else {
            result += text[i];
        }
    }
    return result;
}

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
    std::string host = part(url.get(), CURLUPART_HOST);
    std::string text = part(url.get(), CURLUPART_URL);
    if ((scheme != "http" && scheme != "https") || host.empty() || text.empty()) {
        return std::nullopt;
    }
    for (char& c : host) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
    }
    std::string origin =
        scheme + "://" + host + ':' + part(url.get(), CURLUPART_PORT, CURLU_DEFAULT_PORT);
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
        std::string const path = encoded(bytesOf(args.path), "");
        text += path.empty() ? "/" : path;
        if (args.hasQuery) {
            text += '?' + encoded(bytesOf(args.query), "?");
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
        return decoded(bytesOf(iri.args().userInformation));
    } catch (std::range_error const&) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
}

} // namespace foundation::storage::provider::web
