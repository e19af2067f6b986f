#include <foundation/storage/provider/s3/detail/endpoint.hpp>

#include <foundation/storage/provider/s3/detail/encoding.hpp>
#include <foundation/storage/provider/web/failure.hpp>

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <algorithm>
#include <exception>

namespace foundation::storage::provider::s3::detail {

namespace {

web::Failure badEndpoint() {
    return {ErrorCode::InvalidLocation, "the endpoint is no http or https address"};
}

bool isLabelCharacter(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-';
}

/// Whether it can stand in a host name. A certificate for all buckets of a store covers no name
/// with a dot.
bool canBeHost(std::string_view bucket, bool isSecure) noexcept {
    if (bucket.size() < 3 || bucket.size() > 63) {
        return false;
    }
    while (true) {
        std::string_view const label = bucket.substr(0, bucket.find('.'));
        if (label.empty() || label.front() == '-' || label.back() == '-' ||
            !std::all_of(label.begin(), label.end(), isLabelCharacter)) {
            return false;
        }
        if (label.size() == bucket.size()) {
            return true;
        }
        if (isSecure) {
            return false;
        }
        bucket.remove_prefix(label.size() + 1);
    }
}

/// Whether a name can be put before it: a name of several labels, and no number of an address.
bool canBeLonger(std::string_view host) noexcept {
    std::size_t const dot = host.rfind('.');
    if (dot == std::string_view::npos || dot + 1 == host.size() || host.front() == '[') {
        return false;
    }
    std::string_view const last = host.substr(dot + 1);
    return !std::all_of(last.begin(), last.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::string publicEndpoint(std::string const& region) {
    return "https://s3." + region + ".amazonaws.com" + (region.starts_with("cn-") ? ".cn" : "");
}

web::Url urlOf(std::string const& text) {
    try {
        return web::Url::of(StorageIRI(fl::i18n::to_ustring(text)));
    } catch (std::exception const&) { // the text may name a user; what is wrong of it is not told
        throw badEndpoint();
    }
}

/// Scheme, authority and path of an address.
struct Parts {
    std::string scheme;
    std::string authority; ///< without the port that the scheme has anyway
    std::string path;      ///< ends in a slash
};

Parts partsOf(web::Url const& url) {
    std::string const& text = url.text();
    std::size_t const begin = text.find("://") + 3;
    std::size_t const end = std::min(text.find('/', begin), text.size());
    Parts parts{text.substr(0, begin), text.substr(begin, end - begin), text.substr(end)};
    if (parts.path.find('?') != std::string::npos) {
        throw badEndpoint();
    }
    std::string_view const port = url.isSecure() ? ":443" : ":80";
    if (parts.authority.ends_with(port)) { // which no client names in a request
        parts.authority.resize(parts.authority.size() - port.size());
    }
    if (!parts.path.ends_with('/')) {
        parts.path += '/';
    }
    return parts;
}

bool isInHost(AddressingStyle style, std::string_view bucket, bool isSecure,
              std::string_view authority) {
    if (style != AddressingStyle::Automatic) {
        return style == AddressingStyle::VirtualHost;
    }
    std::size_t const end = authority.ends_with(']') ? authority.size() : authority.rfind(':');
    return canBeHost(bucket, isSecure) && canBeLonger(authority.substr(0, end));
}

} // namespace

Endpoint::Endpoint(std::string_view bucket, S3Options const& options)
    : home_(urlOf(options.endpoint.empty() ? publicEndpoint(options.region) : options.endpoint)) {
    Parts const parts = partsOf(home_);
    if (bucket.empty() || bucket == "." || bucket == ".." ||
        bucket.find('/') != std::string_view::npos) {
        throw web::Failure(ErrorCode::InvalidLocation, "no bucket has such a name");
    }
    if (isInHost(options.addressing, bucket, home_.isSecure(), parts.authority)) {
        if (!canBeHost(bucket, false)) {
            throw web::Failure(ErrorCode::InvalidLocation,
                               "the name of the bucket cannot stand in a host name");
        }
        path_ = parts.path;
        home_ = urlOf(parts.scheme + std::string(bucket) + '.' + parts.authority + '/');
    } else {
        path_ = parts.path + encoded(bucket, Slash::Encoded) + '/';
        home_ = urlOf(parts.scheme + parts.authority + '/');
    }
    home_ = of({}, {});
}

web::Url Endpoint::of(std::string_view key, std::string_view query) const {
    std::string target = path_ + encoded(key, Slash::Kept);
    if (key.empty() && target.size() > 1) {
        target.pop_back(); // the bucket, and not a key without a name
    }
    if (!query.empty()) {
        target.append("?").append(query);
    }
    return home_.withTarget(target);
}

} // namespace foundation::storage::provider::s3::detail
