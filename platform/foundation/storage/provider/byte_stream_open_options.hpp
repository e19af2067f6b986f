#pragma once

#include <cstdint>

namespace foundation::storage::provider {

enum class ByteStreamAccess : std::uint32_t { WriteOnly = 0, ReadWrite = 1 };

enum class ByteStreamCreation : std::uint32_t { OpenOrCreate = 0, OpenExisting = 1 };

/// How a file is opened for writing. Reading alone has an operation of its own.
struct ByteStreamOpenOptions {
    ByteStreamAccess access = ByteStreamAccess::WriteOnly;
    ByteStreamCreation creation = ByteStreamCreation::OpenOrCreate;
    std::uint32_t withoutTruncate = 0; ///< 0: an existing file loses its content
    std::uint32_t withoutAppend = 1;   ///< 0: every write goes to the end
};

} // namespace foundation::storage::provider
