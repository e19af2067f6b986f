#include <foundation/storage/provider/web/failure.hpp>

namespace foundation::storage::provider::web {

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

} // namespace foundation::storage::provider::web
