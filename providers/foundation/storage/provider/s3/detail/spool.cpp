#include <foundation/storage/provider/s3/detail/spool.hpp>

#include <foundation/storage/provider/web/failure.hpp>

#include <algorithm>
#include <cstring>

namespace foundation::storage::provider::s3::detail {

namespace {

constexpr std::size_t blockSize = spool::Block::fullSize;

} // namespace

void Spool::write(std::uint64_t position, std::span<char const> bytes) try {
    while (!bytes.empty()) {
        std::size_t const offset = position % blockSize;
        std::size_t const piece = std::min(bytes.size(), blockSize - offset);
        auto const block = blocks_.try_emplace(blocks_.end(), position / blockSize, *space_);
        block->second.write(offset, bytes.data(), piece);
        position += piece;
        size_ = std::max(size_, position);
        bytes = bytes.subspan(piece);
    }
} catch (spool::Failure const& failure) {
    throw web::Failure(failure.code(), failure.what());
}

std::size_t Spool::read(std::uint64_t position, std::span<char> buffer) const try {
    if (position >= size_) {
        return 0;
    }
    auto const count =
        static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), size_ - position));
    for (std::size_t done = 0; done < count;) {
        std::size_t const offset = (position + done) % blockSize;
        std::size_t const piece = std::min(count - done, blockSize - offset);
        auto const block = blocks_.find((position + done) / blockSize);
        if (block != blocks_.end()) {
            block->second.read(offset, buffer.data() + done, piece);
        } else {
            std::memset(buffer.data() + done, 0, piece);
        }
        done += piece;
    }
    return count;
} catch (spool::Failure const& failure) {
    throw web::Failure(failure.code(), failure.what());
}

} // namespace foundation::storage::provider::s3::detail
