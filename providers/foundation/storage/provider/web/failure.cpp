#include <foundation/storage/provider/web/failure.hpp>

#include <foundation/storage/provider/web/headers.hpp>

#include <algorithm>
#include <string_view>

namespace foundation::storage::provider::web {

namespace {

/// Whether a way to say who one is stands among those that a field of the answer 401 offers, each
/// with its parameters behind it (RFC 9110, section 11.6.1).
bool offers(std::string_view field, std::string_view scheme) {
    while (!field.empty()) {
        field.remove_prefix(std::min(field.find_first_not_of(" \t,"), field.size()));
        std::string_view const word = field.substr(0, field.find_first_of(" \t,"));
        if (areEqualNames(word, scheme)) {
            return true;
        }
        field.remove_prefix(word.size());
    }
    return false;
}

bool offers(Headers const& headers, std::string_view scheme) {
    return std::any_of(headers.fields().begin(), headers.fields().end(), [&](auto const& field) {
        return areEqualNames(field.first, "WWW-Authenticate") && offers(field.second, scheme);
    });
}

} // namespace

ErrorCode errorCodeOfStatus(int status) noexcept {
    switch (status) {
    case 401: // who are you
    case 403:
    case 407: // who are you, asks the proxy
    case 451: // for legal reasons
        return ErrorCode::PermissionDenied;
    case 404:
    case 410:
        return ErrorCode::ResourceNotFound;
    case 405: // the method is not allowed
    case 501: // nor known
        return ErrorCode::UnsupportedOperation;
    case 413:
        return ErrorCode::FileTooLarge;
    case 414: // the location is too long
        return ErrorCode::InvalidLocation;
    case 423:
        return ErrorCode::ResourceInUse;
    case 507:
        return ErrorCode::NoSpaceLeft;
    default:
        return ErrorCode::IOError;
    }
}

bool mayPass(int status) noexcept {
    return status == 408 || status == 429 || status == 500 || status == 502 || status == 503 ||
           status == 504;
}

bool isUndone(int status) noexcept {
    return status == 408 || status == 429 || status == 503;
}

Failure failureOfStatus(int status) {
    return {errorCodeOfStatus(status), "the server answered " + std::to_string(status),
            mayPass(status) ? Failure::Repetition::MayHelp : Failure::Repetition::IsUseless};
}

Failure failureOf(int status, Headers const& headers) {
    Failure failure = failureOfStatus(status);
    if (status != 401 || offers(headers, "Basic") || offers(headers, "Bearer")) {
        return failure;
    }
    for (std::string_view const scheme : {"Digest", "Negotiate", "NTLM"}) {
        if (offers(headers, scheme)) {
            return {failure.code(), std::string(failure.what()) + ": it wants " +
                                        std::string(scheme) +
                                        " authentication, and only Basic and Bearer can be given"};
        }
    }
    return failure;
}

Failure unusableAnswer(std::string const& what) {
    return {ErrorCode::IOError, "the server's answer cannot be used: " + what};
}

} // namespace foundation::storage::provider::web
