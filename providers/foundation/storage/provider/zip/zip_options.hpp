#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace foundation::storage::provider::zip {

/// What an archive may ask of its reader, and how one is written. An archive beyond a bound is
/// refused with code FileTooLarge when it is first used, a member when it is opened. A plain value.
struct ZipOptions {
    /// Members and folders, also those that only the names of others imply.
    std::uint32_t maximumEntries = 1'000'000;
    /// Bytes that the directory may take in memory: some 60 for each of them, and their names.
    std::uint64_t maximumDirectoryMemory = std::uint64_t{64} * 1024 * 1024;
    /// Folders above a member.
    std::uint32_t maximumDepth = 100;
    /// Bytes of content for each byte of a compressed member.
    std::uint64_t maximumRatio = 100'000;
    /// Bytes that the decoder of a member may take, for the methods that say how much they need.
    /// The largest preset of xz takes 65 MiB.
    std::uint64_t maximumDecoderMemory = std::uint64_t{80} * 1024 * 1024;
    /// Up to this size a compressed member is decoded as a whole, which takes as much memory and
    /// the least time; a larger one piece by piece.
    std::size_t wholeMemberSize = std::size_t{4} * 1024 * 1024;

    /// Bytes of changed content that are kept in memory until they are flushed. What is more goes
    /// to a temporary file without a name.
    std::size_t maximumPendingMemory = std::size_t{64} * 1024 * 1024;
    /// Where that file is; empty for /var/tmp, and /tmp where that does not do.
    std::string temporaryFolder = {};
    /// Of what is deflated: 1 is the fastest, 9 the smallest; others become the nearest.
    int compressionLevel = 6;
};

} // namespace foundation::storage::provider::zip
