#include <foundation/storage/provider/memory/detail/block.hpp>

#include <algorithm>
#include <cstring>
#include <new>

namespace foundation::storage::provider::memory::detail {

void intrusive_ptr_add_ref(Block* block) noexcept {
    block->references_.fetch_add(1, std::memory_order_relaxed);
}

void intrusive_ptr_release(Block* block) noexcept {
    if (block->references_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        block->~Block();
        ::operator delete(block);
    }
}

BlockPtr Block::make(Space& space, std::size_t capacity) {
    // One allocation: the bytes follow the head.
    return BlockPtr(new (::operator new(sizeof(Block) + capacity)) Block(space, capacity));
}

void Block::read(std::size_t offset, char* buffer, std::size_t count) const noexcept {
    std::size_t const there = offset < filled_ ? std::min<std::size_t>(count, filled_ - offset) : 0;
    if (there != 0) {
        std::memcpy(buffer, bytes() + offset, there);
    }
    std::memset(buffer + there, 0, count - there);
}

bool Block::write(std::size_t offset, char const* data, std::size_t count) noexcept {
    std::size_t const end = offset + count;
    if (end > filled_) {
        if (!space_.bytes.take(end - filled_)) {
            return false;
        }
        if (offset > filled_) {
            std::memset(bytes() + filled_, 0, offset - filled_);
        }
        filled_ = static_cast<std::uint32_t>(end);
    }
    std::memcpy(bytes() + offset, data, count);
    return true;
}

bool Block::copyFrom(Block const& other) noexcept {
    if (!space_.bytes.take(other.filled_)) {
        return false;
    }
    std::memcpy(bytes(), other.bytes(), other.filled_);
    filled_ = other.filled_;
    return true;
}

void Block::takeFrom(Block& other) noexcept {
    std::memcpy(bytes(), other.bytes(), other.filled_);
    filled_ = other.filled_;
    other.filled_ = 0;
}

} // namespace foundation::storage::provider::memory::detail
