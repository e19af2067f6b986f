#pragma once

#include <foundation/storage/provider/local/detail/file_descriptor.hpp>

#include <array>
#include <cstdint>
#include <utility>

namespace foundation::storage::provider::local::detail {

/// The descriptors of the innermost folders that a walk still needs, a bounded number however deep
/// it goes: a further one closes the outermost. For one thread at a time.
class DescriptorWindow {
  public:
    bool empty() const noexcept { return count_ == 0; }
    std::uint32_t size() const noexcept { return count_; }
    /// The descriptor of the folder at `depth` where it is the innermost one held, else -1.
    int at(std::uint32_t depth) const noexcept {
        return count_ != 0 && inner().depth == depth ? inner().descriptor.get() : -1;
    }

    bool full() const noexcept { return count_ == capacity; }
    /// REQUIRES: !empty().
    int outermost() const noexcept { return slots_[first_].descriptor.get(); }
    std::uint32_t outermostDepth() const noexcept { return slots_[first_].depth; }
    void dropOutermost() noexcept {
        slots_[first_].descriptor.close();
        first_ = (first_ + 1) % capacity;
        --count_;
    }

    /// REQUIRES: `depth` is greater than that of all held.
    void push(std::uint32_t depth, FileDescriptor descriptor) noexcept {
        if (full()) {
            dropOutermost();
        }
        ++count_;
        inner() = {depth, std::move(descriptor)};
    }

    /// Takes the innermost one out where it is that of `depth`, else an empty one.
    FileDescriptor take(std::uint32_t depth) noexcept {
        if (count_ == 0 || inner().depth != depth) {
            return FileDescriptor();
        }
        FileDescriptor result = std::move(inner().descriptor);
        --count_;
        return result;
    }

    /// Makes room where the process has no descriptors left. False where there is none to make.
    bool keepInnermost() noexcept {
        bool const some = count_ > 1;
        while (count_ > 1) {
            dropOutermost();
        }
        return some;
    }

  private:
    static constexpr std::uint32_t capacity = 16;
    struct Slot {
        std::uint32_t depth = 0;
        FileDescriptor descriptor;
    };

    Slot& inner() noexcept { return slots_[(first_ + count_ - 1) % capacity]; }
    Slot const& inner() const noexcept { return slots_[(first_ + count_ - 1) % capacity]; }

    std::array<Slot, capacity> slots_;
    std::uint32_t first_ = 0;
    std::uint32_t count_ = 0;
};

} // namespace foundation::storage::provider::local::detail
