#pragma once

#include <foundation/storage/provider/error_code.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>

namespace foundation::storage::provider::container {

/// The bytes are not what the method makes: code IOError; or they ask for more than is allowed:
/// code FileTooLarge.
class DecodingFailure : public std::runtime_error {
  public:
    explicit DecodingFailure(std::string const& text, ErrorCode code = ErrorCode::IOError)
        : std::runtime_error(text),
          code_(code) {}
    ErrorCode getErrorCode() const noexcept { return code_; }

  private:
    ErrorCode code_;
};

/// Turns compressed bytes into their content, from the first to the last. For one thread
/// at a time.
class Decoder {
  public:
    struct Step {
        std::size_t consumed;
        std::size_t produced;
        bool isEnd; ///< of the content, as the compressed bytes have it
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

/// What stands around deflated bytes.
enum class Wrapping { None, Gzip };

std::unique_ptr<Decoder> makeInflateDecoder(Wrapping wrapping);
std::unique_ptr<Decoder> makeBzip2Decoder();
std::unique_ptr<Decoder> makeXzDecoder(std::uint64_t maximumMemory);
/// Of lzma's file format, which has no check sum, and of lzip's.
std::unique_ptr<Decoder> makeLzmaDecoder(std::uint64_t maximumMemory);
std::unique_ptr<Decoder> makeZstandardDecoder(std::uint64_t maximumMemory);

} // namespace foundation::storage::provider::container
