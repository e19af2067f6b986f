#include <foundation/storage/provider/error_code.hpp>

#include <cerrno>
#include <ostream>

namespace foundation::storage::provider {

ErrorCode errorCodeOfErrno(int number) noexcept {
    switch (number) {
    case ENOTEMPTY:
        return ErrorCode::FolderNotEmpty;
    case EINVAL:
    case EISDIR:
    case ELOOP:
    case ENAMETOOLONG:
    case EILSEQ:
        return ErrorCode::InvalidLocation;
    case EACCES:
    case EPERM:
        return ErrorCode::PermissionDenied;
    case EEXIST:
        return ErrorCode::ResourceAlreadyExists;
    case ENOENT:
    case ENOTDIR:
        return ErrorCode::ResourceNotFound;
    case EFBIG:
    case EOVERFLOW:
        return ErrorCode::FileTooLarge;
    case EAGAIN:
    case EBUSY:
    case ETXTBSY:
        return ErrorCode::ResourceInUse;
    case EROFS:
        return ErrorCode::ReadOnlyProvider;
    case ENOSPC:
    case EDQUOT:
    case EMLINK:
        return ErrorCode::NoSpaceLeft;
    case EIO:
    case EPIPE:
    case ESTALE:
    case ENXIO:
    case ENODEV:
    case ETIMEDOUT:
        return ErrorCode::IOError;
    case EBADF:
    case EMFILE:
    case ENFILE:
    case ENOMEM:
        return ErrorCode::InternalError;
    case EXDEV:
    case ENOSYS:
    case EOPNOTSUPP:
    case ENOTTY:
        return ErrorCode::UnsupportedOperation;
    default:
        return ErrorCode::Unknown;
    }
}

std::ostream& operator<<(std::ostream& out, ErrorCode code) {
    switch (code) {
    case ErrorCode::FolderNotEmpty:
        return out << "FolderNotEmpty";
    case ErrorCode::InvalidLocation:
        return out << "InvalidLocation";
    case ErrorCode::PermissionDenied:
        return out << "PermissionDenied";
    case ErrorCode::ResourceAlreadyExists:
        return out << "ResourceAlreadyExists";
    case ErrorCode::ResourceNotFound:
        return out << "ResourceNotFound";
    case ErrorCode::FileTooLarge:
        return out << "FileTooLarge";
    case ErrorCode::ResourceInUse:
        return out << "ResourceInUse";
    case ErrorCode::ReadOnlyProvider:
        return out << "ReadOnlyProvider";
    case ErrorCode::NoSpaceLeft:
        return out << "NoSpaceLeft";
    case ErrorCode::IOError:
        return out << "IOError";
    case ErrorCode::InternalError:
        return out << "InternalError";
    case ErrorCode::UnsupportedOperation:
        return out << "UnsupportedOperation";
    case ErrorCode::Unknown:
        return out << "Unknown";
    }
    return out << static_cast<std::uint32_t>(code);
}

} // namespace foundation::storage::provider
