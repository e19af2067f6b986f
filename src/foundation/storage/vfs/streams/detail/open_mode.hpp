#pragma once

#include <foundation/storage/provider/byte_stream_open_options.hpp>

#include <ios>

namespace foundation::storage::vfs::detail {

/// An open mode as the file streams read it: appending is writing, also where the caller did not
/// say.
struct ParsedOpenMode {
    explicit ParsedOpenMode(std::ios_base::openmode given) noexcept;

    std::ios_base::openmode mode;
    bool atEnd;
    bool binary; ///< bytes are bytes on every storage
};

/// Whether the mode reads and does not write.
bool isReadOnly(ParsedOpenMode const& parsed) noexcept;

/// Throws AnonymousInternalException<std::runtime_error> for a mode that opens nothing.
provider::ByteStreamOpenOptions toByteStreamOpenOptions(ParsedOpenMode const& parsed);

} // namespace foundation::storage::vfs::detail
