#include <foundation/storage/provider/zip/detail/encoder.hpp>

#include <algorithm>
#include <array>
#include <libdeflate.h>
#include <limits>
#include <new>
#include <utility>
#include <zlib.h>

namespace foundation::storage::provider::zip::detail {

namespace {

/// The levels that both libraries know.
int knownLevel(int level) noexcept {
    return std::clamp(level, 1, 9);
}

} // namespace

WholeEncoder::WholeEncoder(int level)
    : compressor_(::libdeflate_alloc_compressor(knownLevel(level))) {
    if (compressor_ == nullptr) {
        throw std::bad_alloc();
    }
}

WholeEncoder::~WholeEncoder() {
    ::libdeflate_free_compressor(compressor_);
}

std::span<unsigned char const> WholeEncoder::encode(std::span<unsigned char const> content) {
    if (content.size() < 2) {
        return {};
    }
    output_.resize(content.size() - 1); // more than that is not wanted
    std::size_t const size = ::libdeflate_deflate_compress(
        compressor_, content.data(), content.size(), output_.data(), output_.size());
    return std::span(output_).first(size);
}

struct PieceEncoder::State {
    z_stream stream{};
    std::array<unsigned char, 64 * 1024> output{};
};

PieceEncoder::PieceEncoder(int level, Take take)
    : take_(std::move(take)),
      state_(std::make_unique<State>()) {
    constexpr int withoutHeader = -MAX_WBITS;
    constexpr int usualMemory = 8;
    if (::deflateInit2(&state_->stream, knownLevel(level), Z_DEFLATED, withoutHeader, usualMemory,
                       Z_DEFAULT_STRATEGY) != Z_OK) {
        throw std::bad_alloc();
    }
}

PieceEncoder::~PieceEncoder() {
    ::deflateEnd(&state_->stream);
}

void PieceEncoder::encode(std::span<unsigned char const> content) {
    run(content, Z_NO_FLUSH);
}

void PieceEncoder::finish() {
    run({}, Z_FINISH);
}

/// REQUIRES: pieces are below 4 GiB.
void PieceEncoder::run(std::span<unsigned char const> content, int flush) {
    z_stream& stream = state_->stream;
    stream.next_in =
        const_cast<Bytef*>(content.data()); // NOLINT(cppcoreguidelines-pro-type-const-cast)
    stream.avail_in = static_cast<uInt>(content.size());
    int result = Z_OK;
    do {
        stream.next_out = state_->output.data();
        stream.avail_out = static_cast<uInt>(state_->output.size());
        result = ::deflate(&stream, flush);
        take_(std::span(state_->output).first(state_->output.size() - stream.avail_out));
    } while (stream.avail_out == 0 || (flush == Z_FINISH && result == Z_OK));
}

} // namespace foundation::storage::provider::zip::detail
