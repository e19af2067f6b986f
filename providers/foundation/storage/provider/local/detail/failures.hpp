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

} // namespace foundation::storage::provider::local::detail
