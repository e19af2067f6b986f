#pragma once

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/extensions/i_pinned_stream.hpp>

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace foundation::storage::provider::container {

/// The bytes of the item that an archive is, read at any position through a stream of its own. For
/// one thread at a time. Failures are those of the item's provider and stream.
///
/// The last few bytes are kept: who reads a member reads somewhat more, and going back for the next
/// one would cost much where the item is decoded.
class ItemBytes {
  public:
    /// Takes over a stream at its start.
    explicit ItemBytes(std::unique_ptr<ByteStream> stream);
    /// What the stream is besides; null where it is not pinned.
    extensions::IPinnedStream* pinned() const noexcept { return pinned_; }

    /// As of the stream, where that knows how.
    void rest() noexcept;

    /// Reads up to as many bytes as there is room for; fewer only at the end of the item.
    std::size_t readAt(std::uint64_t position, std::span<unsigned char> buffer);
    /// Asks for the end of the item.
    std::uint64_t size();
    /// Whether no call has failed.
    bool isGood() const noexcept { return isGood_; }

  private:
    std::unique_ptr<ByteStream> stream_;
    extensions::IPinnedStream* const pinned_;
    extensions::IRestingStream* const resting_;
    std::uint64_t position_ = 0;
    std::vector<unsigned char> tail_; ///< what was read last, before the position
    bool isGood_ = true;
};

} // namespace foundation::storage::provider::container
