#pragma once

#include <fl/i18n/ustring.hpp>

#include <cstdint>
#include <functional>

namespace foundation::storage::provider {

/// How a storage treats the case of names.
enum class FilenameSensitivity : std::uint32_t {
    Sensitive = 0,   ///< `a` and `A` are two names
    Insensitive = 1, ///< one name, and the storage may change its case
    Preserving = 2,  ///< one name, kept as it was first written
};

/// What a comparison does with case.
enum class CaseModifier : std::uint32_t {
    AsStorage = 0, ///< as this storage does
    Sensitive = 1,
    Insensitive = 2, ///< ASCII letters compare without case
};

/// Whether two names or paths mean the same in a storage.
using PathComparatorFunction =
    std::function<bool(fl::i18n::ustring const&, fl::i18n::ustring const&, CaseModifier)>;

} // namespace foundation::storage::provider
