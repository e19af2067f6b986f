#include <foundation/storage/provider/s3/detail/digest.hpp>

#include <foundation/storage/provider/web/encoding.hpp>
#include <foundation/storage/provider/web/failure.hpp>

#include <openssl/evp.h>
#include <openssl/hmac.h>

namespace foundation::storage::provider::s3::detail {

namespace {

template<class Digest>
Digest digestOf(std::span<char const> bytes, EVP_MD const* kind) {
    Digest digest;
    unsigned size = 0;
    if (::EVP_Digest(bytes.data(), bytes.size(), digest.data(), &size, kind, nullptr) != 1 ||
        size != digest.size()) {
        // Where a policy of the system forbids the kind, say.
        throw web::Failure(ErrorCode::InternalError, "a digest cannot be computed");
    }
    return digest;
}

} // namespace

Sha256 sha256(std::span<char const> bytes) {
    return digestOf<Sha256>(bytes, ::EVP_sha256());
}

Md5 md5(std::span<char const> bytes) {
    return digestOf<Md5>(bytes, ::EVP_md5());
}

Sha256 hmacSha256(std::span<unsigned char const> key, std::string_view text) {
    Sha256 code;
    unsigned size = 0;
    auto const* const bytes = reinterpret_cast<unsigned char const*>(text.data());
    if (!::HMAC(::EVP_sha256(), key.data(), static_cast<int>(key.size()), bytes, text.size(),
                code.data(), &size) ||
        size != code.size()) {
        throw web::Failure(ErrorCode::InternalError, "a request cannot be signed");
    }
    return code;
}

std::string hex(std::span<unsigned char const> bytes) {
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (unsigned char const byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

std::string bytesOfHex(std::string_view text) {
    std::string bytes;
    if (text.size() % 2 != 0) {
        return bytes;
    }
    for (std::size_t i = 0; i < text.size(); i += 2) {
        int const high = web::valueOfHex(text[i]);
        int const low = web::valueOfHex(text[i + 1]);
        if (high < 0 || low < 0) {
            return {};
        }
        bytes += static_cast<char>(high * 16 + low);
    }
    return bytes;
}

} // namespace foundation::storage::provider::s3::detail
