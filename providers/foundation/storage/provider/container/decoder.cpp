#include <foundation/storage/provider/container/decoder.hpp>

#include <algorithm>
#include <bit>
#include <bzlib.h>
#include <limits>
#include <lzma.h>
#include <new>
#include <string_view>
#include <zlib.h>
#include <zstd.h>

namespace foundation::storage::provider::container {

namespace {

constexpr char const* damaged = "the compressed bytes are damaged";
constexpr char const* tooLarge = "decoding needs more memory than is allowed";

template<class Size>
Size atMost(std::size_t size) noexcept {
    return static_cast<Size>(std::min<std::size_t>(size, std::numeric_limits<Size>::max()));
}

class InflateDecoder final : public Decoder {
  public:
    explicit InflateDecoder(Wrapping wrapping) {
        constexpr int withoutHeader = -MAX_WBITS;
        constexpr int withGzipHeader = MAX_WBITS + 16;
        if (::inflateInit2(&state_, wrapping == Wrapping::Gzip ? withGzipHeader : withoutHeader) !=
            Z_OK) {
            throw std::bad_alloc();
        }
    }
    ~InflateDecoder() override { ::inflateEnd(&state_); }

    Step decode(std::span<unsigned char const> input, std::span<unsigned char> output) override {
        auto const given = atMost<uInt>(input.size());
        auto const room = atMost<uInt>(output.size());
        state_.next_in =
            const_cast<Bytef*>(input.data()); // NOLINT(cppcoreguidelines-pro-type-const-cast)
        state_.avail_in = given;
        state_.next_out = output.data();
        state_.avail_out = room;
        int const result = ::inflate(&state_, Z_NO_FLUSH);
        if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR) {
            if (result == Z_MEM_ERROR) {
                throw std::bad_alloc();
            }
            throw DecodingFailure(damaged);
        }
        return {given - state_.avail_in, room - state_.avail_out, result == Z_STREAM_END};
    }

    std::unique_ptr<Decoder> copy() const override {
        return std::unique_ptr<Decoder>(new InflateDecoder(*this));
    }

  private:
    InflateDecoder(InflateDecoder const& other) : Decoder() {
        // Reads the state only, whatever its declaration says.
        if (::inflateCopy(&state_, const_cast<z_stream*>(&other.state_)) !=
            Z_OK) { // NOLINT(cppcoreguidelines-pro-type-const-cast)
            throw std::bad_alloc();
        }
    }

    z_stream state_{};
};

class Bzip2Decoder final : public Decoder {
  public:
    Bzip2Decoder() {
        if (::BZ2_bzDecompressInit(&state_, 0, 0) != BZ_OK) {
            throw std::bad_alloc();
        }
    }
    ~Bzip2Decoder() override { ::BZ2_bzDecompressEnd(&state_); }

    Step decode(std::span<unsigned char const> input, std::span<unsigned char> output) override {
        auto const given = atMost<unsigned>(input.size());
        auto const room = atMost<unsigned>(output.size());
        // The library only reads what it declares to be writable.
        state_.next_in = const_cast<char*>(reinterpret_cast<char const*>(
            input.data())); // NOLINT(cppcoreguidelines-pro-type-const-cast)
        state_.avail_in = given;
        state_.next_out = reinterpret_cast<char*>(output.data());
        state_.avail_out = room;
        int const result = ::BZ2_bzDecompress(&state_);
        if (result == BZ_MEM_ERROR) {
            throw std::bad_alloc();
        }
        if (result != BZ_OK && result != BZ_STREAM_END) {
            throw DecodingFailure(damaged);
        }
        return {given - state_.avail_in, room - state_.avail_out, result == BZ_STREAM_END};
    }

  private:
    bz_stream state_{};
};

class XzDecoder final : public Decoder {
  public:
    using Start = lzma_ret(lzma_stream*, std::uint64_t, std::uint32_t);

    XzDecoder(Start* start, std::uint64_t memory) {
        if (start(&state_, memory, 0) != LZMA_OK) {
            throw std::bad_alloc();
        }
    }
    ~XzDecoder() override { ::lzma_end(&state_); }

    Step decode(std::span<unsigned char const> input, std::span<unsigned char> output) override {
        state_.next_in = input.data();
        state_.avail_in = input.size();
        state_.next_out = output.data();
        state_.avail_out = output.size();
        lzma_ret const result = ::lzma_code(&state_, LZMA_RUN);
        switch (result) {
        case LZMA_OK:
        case LZMA_STREAM_END:
        case LZMA_BUF_ERROR:
            break;
        case LZMA_MEM_ERROR:
            throw std::bad_alloc();
        case LZMA_MEMLIMIT_ERROR:
            throw DecodingFailure(tooLarge, ErrorCode::FileTooLarge);
        default:
            throw DecodingFailure(damaged);
        }
        return {input.size() - state_.avail_in, output.size() - state_.avail_out,
                result == LZMA_STREAM_END};
    }

  private:
    lzma_stream state_ = LZMA_STREAM_INIT;
};

class ZstandardDecoder final : public Decoder {
  public:
    explicit ZstandardDecoder(std::uint64_t memory) : state_(::ZSTD_createDCtx()) {
        if (state_ == nullptr) {
            throw std::bad_alloc();
        }
        constexpr int smallestWindow = 10;
        constexpr int largestWindow = 31;
        int const window =
            std::clamp(static_cast<int>(std::bit_width(memory)) - 1, smallestWindow, largestWindow);
        ::ZSTD_DCtx_setParameter(state_, ZSTD_d_windowLogMax, window);
    }
    ~ZstandardDecoder() override { ::ZSTD_freeDCtx(state_); }

    Step decode(std::span<unsigned char const> input, std::span<unsigned char> output) override {
        ZSTD_inBuffer in{input.data(), input.size(), 0};
        ZSTD_outBuffer out{output.data(), output.size(), 0};
        std::size_t const result = ::ZSTD_decompressStream(state_, &out, &in);
        if (::ZSTD_isError(result) != 0) {
            // The one error that says so has no name in the library's stable interface.
            if (std::string_view(::ZSTD_getErrorName(result)).find("memory") !=
                std::string_view::npos) {
                throw DecodingFailure(tooLarge, ErrorCode::FileTooLarge);
            }
            throw DecodingFailure(damaged);
        }
        return {in.pos, out.pos, result == 0};
    }

  private:
    ZSTD_DCtx* state_;
};

} // namespace

Decoder::~Decoder() = default;

std::unique_ptr<Decoder> makeInflateDecoder(Wrapping wrapping) {
    return std::make_unique<InflateDecoder>(wrapping);
}
std::unique_ptr<Decoder> makeBzip2Decoder() {
    return std::make_unique<Bzip2Decoder>();
}
std::unique_ptr<Decoder> makeXzDecoder(std::uint64_t maximumMemory) {
    return std::make_unique<XzDecoder>(&::lzma_stream_decoder, maximumMemory);
}
std::unique_ptr<Decoder> makeLzmaDecoder(std::uint64_t maximumMemory) {
    return std::make_unique<XzDecoder>(&::lzma_auto_decoder, maximumMemory);
}
std::unique_ptr<Decoder> makeZstandardDecoder(std::uint64_t maximumMemory) {
    return std::make_unique<ZstandardDecoder>(maximumMemory);
}

} // namespace foundation::storage::provider::container
