#include <foundation/storage/provider/spool/content.hpp>

#include <algorithm>
#include <cstring>
#include <vector>

namespace foundation::storage::provider::spool {

namespace {

constexpr std::size_t blockSize = Block::fullSize;

} // namespace

std::size_t Content::read(std::uint64_t position, char* buffer, std::size_t count) const {
    if (position >= size_) {
        return 0;
    }
    count = static_cast<std::size_t>(std::min<std::uint64_t>(count, size_ - position));
    auto block = blocks_.lower_bound(position / blockSize);
    for (std::size_t done = 0; done < count;) {
        std::uint64_t const index = (position + done) / blockSize;
        std::size_t const offset = (position + done) % blockSize;
        std::size_t const piece = std::min(count - done, blockSize - offset);
        if (block != blocks_.end() && block->first == index) {
            block->second.read(offset, buffer + done, piece);
            ++block;
        } else {
            std::memset(buffer + done, 0, piece);
        }
        done += piece;
    }
    return count;
}

void Content::write(std::uint64_t position, char const* data, std::size_t count) {
    for (std::size_t done = 0; done < count;) {
        std::uint64_t const index = (position + done) / blockSize;
        std::size_t const offset = (position + done) % blockSize;
        std::size_t const piece = std::min(count - done, blockSize - offset);
        auto const block = blocks_.try_emplace(blocks_.end(), index, *space_);
        block->second.write(offset, data + done, piece);
        done += piece;
        size_ = std::max(size_, position + done);
    }
}

void Content::clear() noexcept {
    blocks_.clear();
    size_ = 0;
}

void Content::takeFrom(Content const& other) {
    std::vector<char> buffer(blockSize);
    for (auto const& [index, block] : other.blocks_) {
        block.read(0, buffer.data(), blockSize);
        std::uint64_t const start = index * blockSize;
        write(start, buffer.data(),
              static_cast<std::size_t>(std::min<std::uint64_t>(blockSize, other.size_ - start)));
    }
    size_ = other.size_;
}

} // namespace foundation::storage::provider::spool
