#pragma once

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/provider/zip/detail/pending_content.hpp>

#include <memory>
#include <span>

namespace foundation::storage::provider::zip::detail {

/// New bytes for an item. Until publish() it has the old ones; then the new ones in one step where
/// its storage replaces files as a whole. Elsewhere they are written through, with the old ones
/// kept until that is done, and brought back where it fails. Links to the item stay links. For one
/// thread.
class ItemUpdate {
  public:
    /// Throws provider::Exception where the item may not be written; so do the others.
    ItemUpdate(StorageItem const& item, std::shared_ptr<PendingSpace> space);
    void write(std::span<unsigned char const> bytes);
    void publish();
    /// Whether the old bytes were written again, when publish() had failed.
    bool isRestored() const noexcept { return isRestored_; }
    /// The old bytes, where publish() has failed and they could not be written again either.
    std::shared_ptr<PendingContent> const& lost() const noexcept { return lost_; }

  private:
    void writeThrough();
    void bringBack() noexcept;

    StorageIRI const location_;
    StorageItem const item_; ///< no link to it: what leads to it is to stay
    std::shared_ptr<PendingSpace> const space_;
    std::unique_ptr<ByteStream> replacement_; ///< null where the item is written through
    std::unique_ptr<PendingContent> content_;
    std::shared_ptr<PendingContent> lost_;
    bool isRestored_ = false;
};

/// Writes into an item where it is. Throws provider::Exception naming the item.
void overwrite(StorageItem const& item, PendingContent const& content);

/// Throws provider::Exception naming `location`, with code ReadOnlyProvider where an item may not
/// be written. Changes nothing.
void checkMayBeWritten(StorageItem const& item, StorageIRI const& location);

} // namespace foundation::storage::provider::zip::detail
