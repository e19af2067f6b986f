#pragma once

#include <foundation/storage/provider/container/decoder.hpp>
#include <foundation/storage/provider/zip/detail/member.hpp>
#include <foundation/storage/provider/zip/zip_options.hpp>

#include <cstdint>
#include <memory>
#include <span>

namespace foundation::storage::provider::zip::detail {

using container::Decoder;
using container::DecodingFailure;

bool isKnown(Method method) noexcept;
/// REQUIRES: a known method, and not Stored.
std::unique_ptr<Decoder> makeDecoder(Method method, ZipOptions const& options);

/// Decodes deflated bytes at once; false where they do not make exactly as many as there is room
/// for.
bool decodeDeflated(std::span<unsigned char const> input, std::span<unsigned char> output);

/// The check sum of a member (APPNOTE 4.4.7), continued from `crc`, 0 at first.
std::uint32_t checkSum(std::uint32_t crc, std::span<unsigned char const> bytes) noexcept;

} // namespace foundation::storage::provider::zip::detail
