#pragma once

#include <array>
#include <span>
#include <string>
#include <string_view>

namespace foundation::storage::provider::s3::detail {

using Sha256 = std::array<unsigned char, 32>;
using Md5 = std::array<unsigned char, 16>;

Sha256 sha256(std::span<char const> bytes);
/// RFC 2104, over SHA-256.
Sha256 hmacSha256(std::span<unsigned char const> key, std::string_view text);
Md5 md5(std::span<char const> bytes);

/// Two small letters or digits a byte.
std::string hex(std::span<unsigned char const> bytes);
/// The bytes of such a text; empty where it is none.
std::string bytesOfHex(std::string_view text);

} // namespace foundation::storage::provider::s3::detail
