#pragma once

#include <fl/i18n/ustring.hpp>
#include <foundation/export.hpp>

#include <cstdint>
#include <iosfwd>

namespace foundation::storage::vfs {

/// Why an operation failed. The numbers are part of the interface; three of them differ from those
/// of the provider layer.
enum class ErrorCode : std::uint32_t {
    FolderNotEmpty = 0,
    InvalidLocation = 1,
    PermissionDenied = 2,
    ResourceAlreadyExists = 3,
    ResourceNotFound = 4,
    ReadOnlyProvider = 5,
    FileTooLarge = 6,
    ResourceInUse = 7,
    NoSpaceLeft = 8,
    IOError = 9,
    InternalError = 10,
    UnsupportedOperation = 11,
    Unknown = 12,
};

/// "ErrorCode::ResourceNotFound" and the like; "Unhandled ErrorCode" for a value out of range.
FOUNDATION_EXPORT char const* errorCodeText(ErrorCode code) noexcept;
FOUNDATION_EXPORT fl::i18n::ustring errorCodeUstring(ErrorCode code);
FOUNDATION_EXPORT std::ostream& operator<<(std::ostream& out, ErrorCode const& code);

} // namespace foundation::storage::vfs
