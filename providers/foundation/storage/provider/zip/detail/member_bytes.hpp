#pragma once

#include <foundation/storage/provider/container/item_streams.hpp>
#include <foundation/storage/provider/zip/detail/member.hpp>

#include <cstdint>
#include <span>
#include <vector>

namespace foundation::storage::provider::zip::detail {

/// The stored bytes of a member, behind its local header (APPNOTE 4.3.7). For one thread at a time.
class MemberBytes {
  public:
    /// Reads the header, and what follows it, so that a small member takes one read.
    MemberBytes(container::ItemStreams& streams, Member const& member);

    /// Whether the header is the one that the directory tells of.
    bool isAsTold() const noexcept { return isAsTold_; }
    /// What has been read already, from the member's first byte on.
    std::span<unsigned char const> inHand() const noexcept;
    /// Reads all of it, `position` counted from the member's first byte. Throws
    /// ByteStreamReadFailure where the item ends before.
    void readExactly(std::uint64_t position, std::span<unsigned char> buffer);
    /// As of the item's bytes.
    void rest() noexcept { item_->rest(); }

  private:
    container::ItemStreams::Lent item_;
    std::uint64_t begin_ = 0; ///< of the member's bytes, in the item
    std::vector<unsigned char> head_;
    std::size_t headerSize_ = 0;
    bool isAsTold_ = false;
};

} // namespace foundation::storage::provider::zip::detail
