#pragma once

#include <foundation/storage/provider/zip/zip_options.hpp>

#include <cstdint>

namespace foundation::storage::provider::zip::detail {

/// How the bytes of a member are stored: the numbers of APPNOTE 4.4.5.
enum class Method : std::uint16_t {
    Stored = 0,
    Deflated = 8,
    Bzip2 = 12,
    OldZstandard = 20,
    Zstandard = 93,
    Xz = 95,
};

/// What the central directory tells of a member.
struct Member {
    std::uint64_t headerOffset = 0; ///< of the local header, from the start of the item
    std::uint64_t compressedSize = 0;
    std::uint64_t size = 0;
    std::uint32_t crc = 0;
    std::uint32_t nameHash = 0; ///< of the name as the archive spells it
    std::uint16_t method = 0;
    bool isEncrypted = false;
    bool hasDescriptor = false; ///< behind the content

    /// More content for each stored byte than a reader takes.
    static bool isTooDense(std::uint64_t size, std::uint64_t compressedSize,
                           ZipOptions const& options) noexcept {
        return compressedSize != 0 && size / compressedSize > options.maximumRatio;
    }
};

/// Of the bytes of a name, to hold a local header against the central one.
std::uint32_t hashOfName(unsigned char const* bytes, std::size_t size) noexcept;

} // namespace foundation::storage::provider::zip::detail
