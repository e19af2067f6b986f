#pragma once

#include <foundation/export.hpp>

#include <cstdint>
#include <iosfwd>

namespace foundation::storage::provider {

/// Why a provider refused or failed. The numbers are part of the interface.
enum class ErrorCode : std::uint32_t {
    FolderNotEmpty = 0,
    InvalidLocation = 1,
    PermissionDenied = 2,
    ResourceAlreadyExists = 3,
    ResourceNotFound = 4,
    FileTooLarge = 5,
    ResourceInUse = 6,
    ReadOnlyProvider = 7,
    NoSpaceLeft = 8,
    IOError = 9,
    InternalError = 10,
    UnsupportedOperation = 11,
    Unknown = 12,
};

/// The code for a system error number (errno(3)); docs/providers.md holds the table. A number
/// without an entry gives Unknown.
FOUNDATION_EXPORT ErrorCode errorCodeOfErrno(int number) noexcept;

FOUNDATION_EXPORT std::ostream& operator<<(std::ostream& out, ErrorCode code);

} // namespace foundation::storage::provider
