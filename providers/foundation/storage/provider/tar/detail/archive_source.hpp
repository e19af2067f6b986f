#pragma once

#include <foundation/storage/provider/container/item_streams.hpp>
#include <foundation/storage/provider/tar/detail/decoded_bytes.hpp>
#include <foundation/storage/provider/timestamp.hpp>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace foundation::storage::provider::tar::detail {

/// What an item looks like from outside.
struct ItemState {
    std::optional<std::uint64_t> size;
    Timestamp lastModified;
    std::optional<Timestamp> created; ///< another one, where another item has taken the place

    bool operator==(ItemState const&) const = default;
};

ItemState stateOf(StorageItem const& item);

/// The bytes of one archive, lent to one reader each. Up to two that decode are kept for the next
/// reader, who then need not begin at the first byte. Safe on any thread.
class ArchiveSource : public std::enable_shared_from_this<ArchiveSource> {
  public:
    /// Brings them back when their reader is done, unless they have failed.
    struct Return {
        std::shared_ptr<ArchiveSource> owner;
        void operator()(ArchiveBytes* bytes) const noexcept;
    };
    using Lent = std::unique_ptr<ArchiveBytes, Return>;

    /// Looks at the first bytes of the item.
    ArchiveSource(StorageItem const& item, ItemState const& state, TarOptions const& options);

    StorageItem const& item() const noexcept { return streams_->item(); }
    /// As of the streams on the item.
    bool isOutdated() const { return streams_->isOutdated(); }
    /// Of the item; 0 where that does not tell.
    std::uint64_t size() const noexcept { return state_.size.value_or(0); }
    Compression compression() const noexcept { return compression_; }
    TarOptions const& options() const noexcept { return options_; }
    /// Such as stand before `position`, the nearest that there are. Throws provider::Exception with
    /// code ResourceInUse where the item has changed.
    Lent lend(std::uint64_t position);

  private:
    container::ItemStreams::Lent lendItem();

    std::shared_ptr<container::ItemStreams> const streams_;
    ItemState const state_;
    TarOptions const options_;
    Compression compression_ = Compression::None;
    std::shared_ptr<BlockCache> cache_; ///< where the archive is compressed
    std::mutex mutex_;
    std::vector<std::unique_ptr<DecodedBytes>> idle_; ///< guarded by the mutex
};

} // namespace foundation::storage::provider::tar::detail
