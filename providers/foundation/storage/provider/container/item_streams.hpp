#pragma once

#include <foundation/storage/provider/container/item_bytes.hpp>
#include <foundation/storage/provider/extensions/i_end_first_streams.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <memory>
#include <mutex>
#include <vector>

namespace foundation::storage::provider::container {

/// Streams on the item that an archive is, lent to one reader each. Safe on any thread.
///
/// Two kinds are worth keeping. Where the item lies in another container, a stream may decode, and
/// would have to begin at the first byte again for every member. One of a storage some way off is
/// pinned to one version of the item (extensions::IPinnedStream): so are all the others then, and
/// opening one of them asks the storage nothing. Of both, up to two are kept for the next reader.
class ItemStreams : public std::enable_shared_from_this<ItemStreams> {
  public:
    /// What the first reader looks at first.
    enum class First { Start, End };

    /// Brings a stream back when its reader is done.
    struct Return {
        std::shared_ptr<ItemStreams> owner;
        void operator()(ItemBytes* bytes) const noexcept;
    };
    using Lent = std::unique_ptr<ItemBytes, Return>;

    explicit ItemStreams(StorageItem item, First first = First::Start);
    StorageItem const& item() const noexcept { return item_; }
    /// Throws what opening the item throws.
    Lent lend();
    /// Whether a pinned stream has found that the item is of another version by now, which may look
    /// the same from outside.
    bool isOutdated() const;

  private:
    std::unique_ptr<ItemBytes> open() const;
    std::unique_ptr<ItemBytes> pin(std::unique_ptr<ItemBytes> opened);

    StorageItem const item_;
    extensions::IEndFirstStreams const* const
        endFirst_; ///< of the provider; null for who begins at the start
    bool const isNested_;
    mutable std::mutex mutex_;
    // guarded by the mutex:
    std::vector<std::unique_ptr<ItemBytes>> idle_;
    std::unique_ptr<ItemBytes const> opener_; ///< of pinned streams; null where there are none
    bool isOutdated_ = false;
};

} // namespace foundation::storage::provider::container
