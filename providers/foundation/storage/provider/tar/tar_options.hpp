#pragma once

#include <cstddef>
#include <cstdint>

namespace foundation::storage::provider::tar {

/// What an archive may ask of its reader. An archive beyond a bound is refused with code
/// FileTooLarge when it is first used. A plain value.
struct TarOptions {
    /// Reads archives of 7-Zip, which are refused with code UnsupportedOperation otherwise: what
    /// their headers and their decoders take is bounded by none of these. 569 bytes may cost 1.75
    /// GB and 10 seconds. For archives of which that is known.
    bool sevenZip = false;
    /// Members and folders, also those that only the names of others imply.
    std::uint32_t maximumEntries = 1'000'000;
    /// Bytes that the directory may take in memory: 54 to 60 for each of them, their names and the
    /// targets of links.
    std::uint64_t maximumDirectoryMemory = std::uint64_t{64} * 1024 * 1024;
    /// Folders above a member.
    std::uint32_t maximumDepth = 100;
    /// Bytes that a compressed archive may decode to, and for each of its own bytes, where they are
    /// more than 64 MiB: what holds more is next to nothing but zeros. gzip reaches 1,032 at most,
    /// xz some 6,900. The latter holds for all sparse files of an archive together, too: those that
    /// go beyond it are listed, and refused when they are opened.
    std::uint64_t maximumDecoded = std::uint64_t{256} * 1024 * 1024 * 1024;
    std::uint64_t maximumRatio = 1'000;
    /// Bytes that the decoder of a compressed archive may take. The largest preset of xz takes 65
    /// MiB.
    std::uint64_t maximumDecoderMemory = std::uint64_t{80} * 1024 * 1024;
    /// Decoded bytes of a compressed archive that are kept: one that decodes to less is decoded
    /// once.
    std::size_t cacheSize = std::size_t{16} * 1024 * 1024;
};

} // namespace foundation::storage::provider::tar
