#pragma once

#include <foundation/storage/provider/zip/detail/member.hpp>
#include <foundation/storage/provider/zip/zip_options.hpp>

#include <cstddef>
#include <memory>
#include <span>
#include <stdexcept>

namespace foundation::storage::provider::zip::detail {

/// The bytes are not what the method of the member makes, or need more memory than is allowed.
class DecodingFailure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Turns the stored bytes of one member into its content, from the first to the last. For one
/// thread at a time.
class Decoder {
  public:
    struct Step {
        std::size_t consumed;
        std::size_t produced;
        bool isEnd; ///< of the content, as the stored bytes have it
    };

    Decoder() = default;
    Decoder(Decoder const&) = delete;
    Decoder& operator=(Decoder const&) = delete;
    virtual ~Decoder();

    /// Goes on with `input`, and fills `output` as far as that goes. Throws DecodingFailure.
    virtual Step decode(std::span<unsigned char const> input, std::span<unsigned char> output) = 0;
    /// One that stands where this one stands; null where the method has none.
    virtual std::unique_ptr<Decoder> copy() const { return nullptr; }
};

bool isKnown(Method method) noexcept;
/// REQUIRES: a known method, and not Stored.
std::unique_ptr<Decoder> makeDecoder(Method method, ZipOptions const& options);

/// Decodes deflated bytes at once; false where they do not make exactly as many as there is room
/// for.
bool decodeDeflated(std::span<unsigned char const> input, std::span<unsigned char> output);

/// The check sum of a member (APPNOTE 4.4.7), continued from `crc`, 0 at first.
std::uint32_t checkSum(std::uint32_t crc, std::span<unsigned char const> bytes) noexcept;

} // namespace foundation::storage::provider::zip::detail
