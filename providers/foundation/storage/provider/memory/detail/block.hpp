#pragma once

#include <foundation/storage/provider/memory/detail/space.hpp>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace foundation::storage::provider::memory::detail {

class Block;
void intrusive_ptr_add_ref(Block* block) noexcept;
void intrusive_ptr_release(Block* block) noexcept;
using BlockPtr = boost::intrusive_ptr<Block>;

/// A piece of content: `filled` bytes that were written, zeros behind them. The bytes are counted
/// in the store's space while the block lives. Copies of a file share blocks; a shared block is
/// never written. std::shared_ptr would not do: its use_count() does not order a former sharer's
/// reads before the writes of the one who is left.
class Block {
  public:
    static constexpr std::size_t fullSize = 64 * 1024;

    /// REQUIRES: `space` outlives the block.
    static BlockPtr make(Space& space, std::size_t capacity);
    Block(Block const&) = delete;
    Block& operator=(Block const&) = delete;

    bool isShared() const noexcept { return references_.load(std::memory_order_acquire) > 1; }
    std::size_t capacity() const noexcept { return capacity_; }
    std::size_t filled() const noexcept { return filled_; }

    /// Copies [offset, offset + count) out, zeros where nothing was written.
    void read(std::size_t offset, char* buffer, std::size_t count) const noexcept;
    /// Writes within the capacity, and takes the space; false, and nothing done, where there is
    /// none left. REQUIRES: not shared.
    bool write(std::size_t offset, char const* data, std::size_t count) noexcept;
    /// Fills this fresh block with the content of `other`, taking the space again.
    bool copyFrom(Block const& other) noexcept;
    /// Fills this fresh block with the content of `other`, and the space goes over with it.
    /// REQUIRES: `other` is not shared.
    void takeFrom(Block& other) noexcept;

  private:
    friend void intrusive_ptr_add_ref(Block* block) noexcept;
    friend void intrusive_ptr_release(Block* block) noexcept;

    Block(Space& space, std::size_t capacity) noexcept
        : space_(space),
          capacity_(static_cast<std::uint32_t>(capacity)) {}
    ~Block() { space_.bytes.giveBack(filled_); }
    char* bytes() noexcept { return reinterpret_cast<char*>(this + 1); }
    char const* bytes() const noexcept { return reinterpret_cast<char const*>(this + 1); }

    Space& space_;
    std::atomic<std::uint32_t> references_{0};
    std::uint32_t const capacity_;
    std::uint32_t filled_ = 0;
};

} // namespace foundation::storage::provider::memory::detail
