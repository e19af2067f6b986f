#pragma once

#include <foundation/storage/provider/exception.hpp>

#include <cerrno>

namespace foundation::storage::provider::local::detail {

/// Throws provider::Exception with the code of a system error number.
[[noreturn]] inline void throwErrno(int number, StorageIRI const& location) {
    throw Exception(errorCodeOfErrno(number), location);
}

/// Whether a system error number says that nothing is there.
inline bool meansAbsent(int number) noexcept {
    return number == ENOENT || number == ENOTDIR;
}

/// Whether a system error number says that owners, modes or times are not kept here, or not this
/// process's to give: nothing is lost by it.
inline bool meansNotKept(int number) noexcept {
    return number == EPERM || number == EOPNOTSUPP || number == ENOSYS || number == EINVAL;
}

} // namespace foundation::storage::provider::local::detail
