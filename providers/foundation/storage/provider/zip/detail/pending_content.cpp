#include <foundation/storage/provider/zip/detail/pending_content.hpp>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <utility>
#include <vector>

namespace foundation::storage::provider::zip::detail {

namespace {

constexpr std::size_t blockSize = PendingBlock::fullSize;

} // namespace

std::int64_t secondsNow() noexcept {
    return std::time(nullptr);
}

PendingContent::PendingContent(std::shared_ptr<PendingSpace> space)
    : space_(std::move(space)),
      lastModified_(secondsNow()) {}

PendingContent::PendingContent(PendingContent const& other, std::shared_ptr<PendingSpace> space)
    : space_(std::move(space)) {
    std::vector<char> buffer(blockSize);
    std::lock_guard const lock(other.mutex_);
    for (auto const& [index, block] : other.blocks_) {
        block.read(0, buffer.data(), blockSize);
        std::uint64_t const start = index * blockSize;
        writeLocked(
            start, buffer.data(),
            static_cast<std::size_t>(std::min<std::uint64_t>(blockSize, other.size_ - start)));
    }
    size_ = other.size_;
    lastModified_ = other.lastModified_;
}

std::size_t PendingContent::read(std::uint64_t position, char* buffer, std::size_t count) const {
    std::lock_guard const lock(mutex_);
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

void PendingContent::writeLocked(std::uint64_t position, char const* data, std::size_t count) {
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

void PendingContent::changedLocked() {
    lastModified_ = secondsNow();
    ++version_;
    if (isInTree_) {
        space_->countChange();
    }
}

void PendingContent::write(std::uint64_t position, char const* data, std::size_t count) {
    std::lock_guard const lock(mutex_);
    changedLocked(); // perhaps a part of it will have been written
    writeLocked(position, data, count);
}

std::uint64_t PendingContent::append(char const* data, std::size_t count) {
    std::lock_guard const lock(mutex_);
    changedLocked();
    writeLocked(size_, data, count);
    return size_;
}

void PendingContent::truncate() {
    std::lock_guard const lock(mutex_);
    if (size_ != 0) { // else it keeps its time
        changedLocked();
        blocks_.clear();
        size_ = 0;
    }
}

void PendingContent::fill(char const* data, std::size_t count) {
    std::lock_guard const lock(mutex_);
    writeLocked(size_, data, count);
}

std::uint64_t PendingContent::size() const {
    std::lock_guard const lock(mutex_);
    return size_;
}

std::int64_t PendingContent::lastModified() const {
    std::lock_guard const lock(mutex_);
    return lastModified_;
}

void PendingContent::setLastModified(std::int64_t time) {
    std::lock_guard const lock(mutex_);
    changedLocked();
    lastModified_ = time;
}

void PendingContent::beAsInArchive(std::int64_t lastModified) {
    std::lock_guard const lock(mutex_);
    lastModified_ = lastModified;
    versionInArchive_ = version_.load();
}

} // namespace foundation::storage::provider::zip::detail
