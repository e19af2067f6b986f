#pragma once

#include <foundation/storage/provider/container/item_streams.hpp>
#include <foundation/storage/provider/tar/detail/archive_bytes.hpp>
#include <foundation/storage/provider/tar/detail/block_cache.hpp>
#include <foundation/storage/provider/tar/detail/compression.hpp>
#include <foundation/storage/provider/tar/tar_options.hpp>

#include <memory>
#include <vector>

namespace foundation::storage::provider::tar::detail {

/// Of a compressed archive, decoded block by block from the first byte on. What the cache has is
/// taken from there; going back to what it has not begins again.
class DecodedBytes final : public ArchiveBytes {
  public:
    DecodedBytes(container::ItemStreams::Lent item, Compression compression,
                 std::shared_ptr<BlockCache> cache, TarOptions const& options);

    std::span<unsigned char const> see(std::uint64_t position) override;
    std::size_t readAt(std::uint64_t position, std::span<unsigned char> buffer) override;
    std::uint64_t reach(std::uint64_t position) override;
    void rest() noexcept override { item_->rest(); }
    bool isGood() const noexcept override { return isGood_; }
    /// How far decoding has come.
    std::uint64_t position() const noexcept { return next_ * BlockCache::blockSize; }

  private:
    BlockCache::Block block(std::uint64_t number);
    BlockCache::Block decodeNext();
    std::size_t decode(std::span<unsigned char> output);
    void startAgain();
    void startNextStream();
    void seeSignature();
    void checkBounds(std::uint64_t decoded) const;

    container::ItemStreams::Lent item_;
    Compression const compression_;
    std::shared_ptr<BlockCache> const cache_;
    TarOptions const options_;
    std::unique_ptr<container::Decoder> decoder_;
    std::vector<unsigned char> buffer_;
    std::span<unsigned char const> input_; ///< of the buffer, not decoded yet
    std::uint64_t inputEnd_ = 0;           ///< where it ends in the item
    std::uint64_t next_ = 0;               ///< the block that is decoded next
    bool isEnd_ = false;
    bool isGood_ = true;
    BlockCache::Block seen_; ///< what see() has shown
};

} // namespace foundation::storage::provider::tar::detail
