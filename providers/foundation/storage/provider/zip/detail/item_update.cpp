#include <foundation/storage/provider/zip/detail/item_update.hpp>

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/byte_stream_open_options.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>

#include <utility>
#include <vector>

namespace foundation::storage::provider::zip::detail {

namespace {

constexpr std::size_t bufferSize = std::size_t{256} * 1024;

std::unique_ptr<ByteStream> openReplacement(StorageItem const& item) {
    auto* const replacing = dynamic_cast<extensions::IReplacingStreams*>(item.getProvider().get());
    return replacing == nullptr
               ? nullptr
               : replacing->openReplacement(item.getLocation(), ReplacementPolicy::ReplaceExisting);
}

} // namespace

void checkMayBeWritten(StorageItem const& item, StorageIRI const& location) {
    bool mayBe = item.getFileAttributes().isWritable();
    try {
        // Many storages know only when they are asked for it.
        if (mayBe && !openReplacement(item)) {
            item.openStream({ByteStreamAccess::WriteOnly, ByteStreamCreation::OpenExisting,
                             /*withoutTruncate=*/1, /*withoutAppend=*/1})
                ->close();
        }
    } catch (Exception const& e) {
        if (e.getErrorCode() != ErrorCode::PermissionDenied &&
            e.getErrorCode() != ErrorCode::ReadOnlyProvider &&
            e.getErrorCode() != ErrorCode::UnsupportedOperation) {
            throw;
        }
        mayBe = false;
    }
    if (!mayBe) {
        throw Exception(ErrorCode::ReadOnlyProvider, location);
    }
}

ItemUpdate::ItemUpdate(StorageItem item, std::shared_ptr<PendingSpace> space)
    : item_(std::move(item)),
      space_(std::move(space)),
      replacement_(openReplacement(item_)) {
    if (!replacement_) {
        content_ = std::make_unique<PendingContent>(space_);
    }
}

void ItemUpdate::write(std::span<unsigned char const> bytes) {
    auto const* const data = reinterpret_cast<char const*>(bytes.data());
    if (replacement_) {
        replacement_->write(data, static_cast<long>(bytes.size()));
    } else {
        content_->fill(data, bytes.size());
    }
}

void ItemUpdate::publish() {
    try {
        if (replacement_) {
            replacement_->close();
        } else {
            writeThrough();
        }
    } catch (ByteStreamFailure const& failure) {
        throw Exception(failure.getErrorCode(), item_.getLocation());
    } catch (PendingFailure const& failure) {
        throw Exception(failure.code(), item_.getLocation());
    }
}

void ItemUpdate::writeThrough() {
    PendingContent old(space_);
    {
        auto const stream = item_.openReadOnlyStream();
        std::vector<char> buffer(bufferSize);
        for (;;) {
            long const got = stream->read(buffer.data(), static_cast<long>(buffer.size()));
            if (got <= 0) {
                break;
            }
            old.fill(buffer.data(), static_cast<std::size_t>(got));
        }
        stream->close();
    }
    try {
        overwrite(*content_);
    } catch (...) {
        overwrite(old);
        isRestored_ = true;
        throw;
    }
}

void ItemUpdate::overwrite(PendingContent const& content) {
    auto const stream =
        item_.openStream({ByteStreamAccess::WriteOnly, ByteStreamCreation::OpenOrCreate,
                          /*withoutTruncate=*/0, /*withoutAppend=*/1});
    std::vector<char> buffer(bufferSize);
    for (std::uint64_t done = 0;;) {
        std::size_t const got = content.read(done, buffer.data(), buffer.size());
        if (got == 0) {
            break;
        }
        stream->write(buffer.data(), static_cast<long>(got));
        done += got;
    }
    stream->close();
}

} // namespace foundation::storage::provider::zip::detail
