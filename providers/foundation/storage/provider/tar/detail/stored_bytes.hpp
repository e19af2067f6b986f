#pragma once

#include <foundation/storage/provider/container/item_streams.hpp>
#include <foundation/storage/provider/tar/detail/archive_bytes.hpp>

#include <vector>

namespace foundation::storage::provider::tar::detail {

/// Of an archive that is not compressed.
class StoredBytes final : public ArchiveBytes {
  public:
    explicit StoredBytes(container::ItemStreams::Lent item);

    /// What is read at once grows as long as one call goes on where the last one ended: the headers
    /// of large members stand far apart.
    std::span<unsigned char const> see(std::uint64_t position) override;
    std::size_t readAt(std::uint64_t position, std::span<unsigned char> buffer) override;
    std::uint64_t reach(std::uint64_t position) override;
    std::optional<std::uint64_t> size() const override { return size_; }
    void rest() noexcept override { item_->rest(); }
    bool isGood() const noexcept override { return item_->isGood(); }

  private:
    container::ItemStreams::Lent item_;
    std::uint64_t const size_;
    std::vector<unsigned char> window_;
    std::uint64_t begin_ = 0;  ///< of the window
    std::size_t inWindow_ = 0; ///< bytes
    std::size_t atOnce_ = 0;
};

} // namespace foundation::storage::provider::tar::detail
