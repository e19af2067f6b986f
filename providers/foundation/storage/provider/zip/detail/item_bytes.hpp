#pragma once

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <cstdint>
#include <memory>
#include <span>

namespace foundation::storage::provider::zip::detail {

/// The bytes of the item that an archive is, read at any position through a stream of its own. For
/// one thread at a time. Failures are those of the item's provider and stream.
class ItemBytes {
  public:
    explicit ItemBytes(StorageItem const& item) : stream_(item.openReadOnlyStream()) {}

    /// Reads up to as many bytes as there is room for; fewer only at the end of the item.
    std::size_t readAt(std::uint64_t position, std::span<unsigned char> buffer);
    /// Asks for the end of the item.
    std::uint64_t size();

  private:
    std::unique_ptr<ByteStream> stream_;
    std::uint64_t position_ = 0;
};

} // namespace foundation::storage::provider::zip::detail
