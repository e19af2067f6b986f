#pragma once

#include <foundation/storage/provider/spool/space.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <utility>

namespace foundation::storage::provider::spool {

/// The bytes of a file that its storage does not have yet. What was never written is zero, and
/// takes no room where it is whole blocks. For one thread at a time. Throws Failure and
/// std::bad_alloc.
class Content {
  public:
    explicit Content(std::shared_ptr<Space> space) : space_(std::move(space)) {}

    /// The bytes read; 0 at and behind the end.
    std::size_t read(std::uint64_t position, char* buffer, std::size_t count) const;
    /// What came before a failure stays written. REQUIRES: position + count does not overflow.
    void write(std::uint64_t position, char const* data, std::size_t count);
    void clear() noexcept;
    std::uint64_t size() const noexcept { return size_; }
    /// Writes the bytes of another one at the same places. REQUIRES: this one is empty.
    void takeFrom(Content const& other);

  private:
    std::shared_ptr<Space> const space_;
    std::map<std::uint64_t, Block> blocks_; ///< by index
    std::uint64_t size_ = 0;
};

} // namespace foundation::storage::provider::spool
