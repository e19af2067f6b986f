#pragma once

#include <foundation/storage/provider/container/item_bytes.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <memory>
#include <mutex>
#include <vector>

namespace foundation::storage::provider::container {

/// Streams on the item that an archive is, lent to one reader each. Where the item lies in another
/// container, up to two of them are kept for the next reader: one that decodes would have to begin
/// at its first byte again for every member. Safe on any thread.
class ItemStreams : public std::enable_shared_from_this<ItemStreams> {
  public:
    /// Brings a stream back when its reader is done, unless it has failed.
    struct Return {
        std::shared_ptr<ItemStreams> owner;
        void operator()(ItemBytes* bytes) const noexcept;
    };
    using Lent = std::unique_ptr<ItemBytes, Return>;

    explicit ItemStreams(StorageItem item);
    StorageItem const& item() const noexcept { return item_; }
    /// Throws what opening the item throws.
    Lent lend();

  private:
    StorageItem const item_;
    bool const isKeeping_;
    std::mutex mutex_;
    std::vector<std::unique_ptr<ItemBytes>> idle_; ///< guarded by the mutex
};

} // namespace foundation::storage::provider::container
