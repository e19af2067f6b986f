#pragma once

#include <foundation/storage/provider/spool/space.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <span>

namespace foundation::storage::provider::s3::detail {

/// Bytes that are written here and there before they go to the store. What was never written is
/// zero. For one thread at a time. Throws web::Failure.
class Spool {
  public:
    explicit Spool(std::shared_ptr<spool::Space> space) : space_(std::move(space)) {}
    Spool(Spool const&) = delete;
    Spool& operator=(Spool const&) = delete;

    std::uint64_t size() const noexcept { return size_; }
    /// REQUIRES: the end can be counted.
    void write(std::uint64_t position, std::span<char const> bytes);
    /// The bytes read; fewer only at the end.
    std::size_t read(std::uint64_t position, std::span<char> buffer) const;

  private:
    std::shared_ptr<spool::Space> const space_;
    std::map<std::uint64_t, spool::Block> blocks_; ///< by index; what is missing is zero
    std::uint64_t size_ = 0;
};

} // namespace foundation::storage::provider::s3::detail
