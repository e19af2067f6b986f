#include <foundation/storage/provider/zip/detail/decoder.hpp>

#include <libdeflate.h>
#include <new>
#include <stdexcept>

namespace foundation::storage::provider::zip::detail {

bool isKnown(Method method) noexcept {
    switch (method) {
    case Method::Stored:
    case Method::Deflated:
    case Method::Bzip2:
    case Method::OldZstandard:
    case Method::Zstandard:
    case Method::Xz:
        return true;
    }
    return false;
}

std::unique_ptr<Decoder> makeDecoder(Method method, ZipOptions const& options) {
    switch (method) {
    case Method::Deflated:
        return container::makeInflateDecoder(container::Wrapping::None);
    case Method::Bzip2:
        return container::makeBzip2Decoder();
    case Method::OldZstandard:
    case Method::Zstandard:
        return container::makeZstandardDecoder(options.maximumDecoderMemory);
    case Method::Xz:
        return container::makeXzDecoder(options.maximumDecoderMemory);
    case Method::Stored:
        break;
    }
    throw std::invalid_argument("a method without decoder");
}

bool decodeDeflated(std::span<unsigned char const> input, std::span<unsigned char> output) {
    struct Free {
        void operator()(libdeflate_decompressor* decompressor) const {
            ::libdeflate_free_decompressor(decompressor);
        }
    };
    // Making one costs as much as a small member.
    static thread_local std::unique_ptr<libdeflate_decompressor, Free> decompressor;
    if (!decompressor) {
        decompressor.reset(::libdeflate_alloc_decompressor());
    }
    if (!decompressor) {
        throw std::bad_alloc();
    }
    return ::libdeflate_deflate_decompress(decompressor.get(), input.data(), input.size(),
                                           output.data(), output.size(),
                                           nullptr) == LIBDEFLATE_SUCCESS;
}

std::uint32_t checkSum(std::uint32_t crc, std::span<unsigned char const> bytes) noexcept {
    return ::libdeflate_crc32(crc, bytes.data(), bytes.size());
}

} // namespace foundation::storage::provider::zip::detail
