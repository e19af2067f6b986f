#pragma once

#include <foundation/storage/provider/container/decoder.hpp>

#include <cstdint>
#include <memory>
#include <span>

namespace foundation::storage::provider::tar::detail {

/// What is around an archive.
enum class Compression { None, Gzip, Bzip2, Xz, Lzma, Lzip, Zstandard };

/// As many bytes as it takes to tell.
constexpr std::size_t signatureSize = 14;

constexpr std::size_t tarHeaderSize = 512;

/// Whether the check sum is that of a header of tar, whose name may begin like a signature.
bool isTarHeader(std::span<unsigned char const> begin) noexcept;
/// By the first bytes of a file.
Compression compressionOf(std::span<unsigned char const> begin) noexcept;
/// As people know it, `none` where there is none.
char const* nameOf(Compression compression) noexcept;
/// Of one stream; several of them may stand behind each other. REQUIRES: not None.
std::unique_ptr<container::Decoder> makeDecoder(Compression compression,
                                                std::uint64_t maximumMemory);

} // namespace foundation::storage::provider::tar::detail
