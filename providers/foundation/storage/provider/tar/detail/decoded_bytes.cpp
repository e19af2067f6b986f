#include <foundation/storage/provider/tar/detail/decoded_bytes.hpp>

#include <foundation/storage/provider/tar/detail/ratio.hpp>

#include <algorithm>
#include <cstring>
#include <utility>

namespace foundation::storage::provider::tar::detail {

using container::DecodingFailure;

namespace {

constexpr std::size_t inputSize = std::size_t{64} * 1024;
constexpr std::uint64_t blockSize = BlockCache::blockSize;

} // namespace

DecodedBytes::DecodedBytes(container::ItemStreams::Lent item, Compression compression,
                           std::shared_ptr<BlockCache> cache, TarOptions const& options)
    : item_(std::move(item)),
      compression_(compression),
      cache_(std::move(cache)),
      options_(options) {
    startAgain();
}

std::span<unsigned char const> DecodedBytes::see(std::uint64_t position) {
    seen_ = block(position / blockSize);
    auto const inBlock = static_cast<std::size_t>(position % blockSize);
    if (!seen_ || seen_->size() <= inBlock) {
        return {};
    }
    return std::span(*seen_).subspan(inBlock);
}

std::size_t DecodedBytes::readAt(std::uint64_t position, std::span<unsigned char> buffer) {
    std::size_t done = 0;
    while (done < buffer.size()) {
        std::span<unsigned char const> const seen = see(position + done);
        if (seen.empty()) {
            break;
        }
        std::size_t const part = std::min(seen.size(), buffer.size() - done);
        std::memcpy(buffer.data() + done, seen.data(), part);
        done += part;
    }
    return done;
}

std::uint64_t DecodedBytes::reach(std::uint64_t position) {
    if (position == 0 || !see(position - 1).empty()) {
        return position;
    }
    return std::min(position, cache_->end().value_or(0)); // the end is known now
}

/// Null behind the end.
BlockCache::Block DecodedBytes::block(std::uint64_t number) {
    if (std::optional<std::uint64_t> const end = cache_->end();
        end && number >= (*end + blockSize - 1) / blockSize) {
        return nullptr;
    }
    if (BlockCache::Block known = cache_->find(number)) {
        return known;
    }
    if (number < next_ || !isGood_) {
        startAgain();
    }
    while (!isEnd_) {
        BlockCache::Block decoded = decodeNext();
        if (next_ == number + 1) {
            return decoded->empty() ? nullptr : decoded;
        }
    }
    return nullptr;
}

BlockCache::Block DecodedBytes::decodeNext() {
    isGood_ = false; // until the end
    auto const space = std::make_shared<std::vector<unsigned char>>(blockSize);
    std::size_t filled = 0;
    while (filled < space->size() && !isEnd_) {
        filled += decode(std::span(*space).subspan(filled));
    }
    checkBounds(next_ * blockSize + filled);
    if (isEnd_) {
        space->resize(filled);
        cache_->setEnd(next_ * blockSize + filled);
    }
    if (filled != 0) {
        cache_->keep(next_, space);
    }
    ++next_;
    isGood_ = true;
    return space;
}

std::size_t DecodedBytes::decode(std::span<unsigned char> output) {
    if (input_.empty()) {
        buffer_.resize(inputSize);
        std::size_t const got = item_->readAt(inputEnd_, buffer_);
        inputEnd_ += got;
        input_ = std::span(buffer_).first(got);
    }
    bool const isLast = input_.empty();
    container::Decoder::Step const step = decoder_->decode(input_, output);
    input_ = input_.subspan(step.consumed);
    if (step.isEnd) {
        startNextStream();
    } else if (step.produced == 0 && (isLast || step.consumed == 0)) {
        throw DecodingFailure("the compressed bytes end too soon");
    }
    return step.produced;
}

void DecodedBytes::startAgain() {
    decoder_ = makeDecoder(compression_, options_.maximumDecoderMemory);
    input_ = {};
    inputEnd_ = 0;
    next_ = 0;
    isEnd_ = false;
    isGood_ = true;
}

/// What follows a stream is another one, or is passed over.
void DecodedBytes::startNextStream() {
    seeSignature();
    // Between streams of xz there may be zeros.
    while (compression_ == Compression::Xz && !input_.empty() && input_.front() == 0) {
        input_ = input_.subspan(1);
        if (input_.size() < signatureSize) {
            seeSignature();
        }
    }
    if (compressionOf(input_) == compression_) {
        decoder_ = makeDecoder(compression_, options_.maximumDecoderMemory);
    } else {
        isEnd_ = true;
    }
}

void DecodedBytes::seeSignature() {
    if (input_.size() >= signatureSize) {
        return;
    }
    std::vector<unsigned char> more(inputSize);
    std::copy(input_.begin(), input_.end(), more.begin());
    std::size_t const had = input_.size();
    std::size_t const got = item_->readAt(inputEnd_, std::span(more).subspan(had));
    inputEnd_ += got;
    buffer_ = std::move(more);
    input_ = std::span(buffer_).first(had + got);
}

void DecodedBytes::checkBounds(std::uint64_t decoded) const {
    std::uint64_t const consumed = inputEnd_ - input_.size();
    if (decoded > options_.maximumDecoded || isMoreThanRatio(decoded, consumed, options_)) {
        throw DecodingFailure("the archive decodes to more than is allowed",
                              ErrorCode::FileTooLarge);
    }
}

} // namespace foundation::storage::provider::tar::detail
