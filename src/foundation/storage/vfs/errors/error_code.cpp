#include <foundation/storage/vfs/errors/error_code.hpp>

#include <fl/i18n/conversion.hpp>

#include <ostream>

namespace foundation::storage::vfs {

char const* errorCodeText(ErrorCode code) noexcept {
    switch (code) {
    case ErrorCode::FolderNotEmpty:
        return "ErrorCode::FolderNotEmpty";
    case ErrorCode::InvalidLocation:
        return "ErrorCode::InvalidLocation";
    case ErrorCode::PermissionDenied:
        return "ErrorCode::PermissionDenied";
    case ErrorCode::ResourceAlreadyExists:
        return "ErrorCode::ResourceAlreadyExists";
    case ErrorCode::ResourceNotFound:
        return "ErrorCode::ResourceNotFound";
    case ErrorCode::ReadOnlyProvider:
        return "ErrorCode::ReadOnlyProvider";
    case ErrorCode::FileTooLarge:
        return "ErrorCode::FileTooLarge";
    case ErrorCode::ResourceInUse:
        return "ErrorCode::ResourceInUse";
    case ErrorCode::NoSpaceLeft:
        return "ErrorCode::NoSpaceLeft";
    case ErrorCode::IOError:
        return "ErrorCode::IOError";
    case ErrorCode::InternalError:
        return "ErrorCode::InternalError";
    case ErrorCode::UnsupportedOperation:
        return "ErrorCode::UnsupportedOperation";
    case ErrorCode::Unknown:
        return "ErrorCode::Unknown";
    }
    return "Unhandled ErrorCode";
}

fl::i18n::ustring errorCodeUstring(ErrorCode code) {
    return fl::i18n::to_ustring(errorCodeText(code));
}

std::ostream& operator<<(std::ostream& out, ErrorCode const& code) {
    return out << errorCodeText(code);
}

} // namespace foundation::storage::vfs
