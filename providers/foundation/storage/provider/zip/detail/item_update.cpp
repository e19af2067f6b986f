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

/// The item itself where it is a link.
StorageItem targetOf(StorageItem const& item) {
    return {item.getProvider(), item.getCanonicalLocation()};
}

void writeAll(StorageItem const& item, PendingContent const& content) {
    auto const stream =
        StorageItem(item).openStream({ByteStreamAccess::WriteOnly, ByteStreamCreation::OpenOrCreate,
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

} // namespace

void overwrite(StorageItem const& item, PendingContent const& content) {
    try {
        writeAll(item, content);
    } catch (ByteStreamFailure const& failure) {
        throw Exception(failure.getErrorCode(), item.getLocation());
    } catch (PendingFailure const& failure) {
        throw Exception(failure.code(), item.getLocation());
    }
}

void checkMayBeWritten(StorageItem const& item, StorageIRI const& location) {
    bool mayBe = item.getFileAttributes().isWritable();
    try {
        // Many storages know only when they are asked for it.
        if (mayBe && !openReplacement(targetOf(item))) {
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

ItemUpdate::ItemUpdate(StorageItem const& item, std::shared_ptr<PendingSpace> space)
    : location_(item.getLocation()),
      item_(targetOf(item)),
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
        throw Exception(failure.getErrorCode(), location_);
    } catch (PendingFailure const& failure) {
        throw Exception(failure.code(), location_);
    }
}

void ItemUpdate::writeThrough() {
    auto old = std::make_shared<PendingContent>(space_);
    {
        auto const stream = item_.openReadOnlyStream();
        std::vector<char> buffer(bufferSize);
        for (;;) {
            long const got = stream->read(buffer.data(), static_cast<long>(buffer.size()));
            if (got <= 0) {
                break;
            }
            old->fill(buffer.data(), static_cast<std::size_t>(got));
        }
        stream->close();
    }
    try {
        writeAll(item_, *content_);
    } catch (...) {
        lost_ = std::move(old);
        bringBack();
        throw;
    }
}

/// What could not be written again is kept for another time.
void ItemUpdate::bringBack() noexcept {
    try {
        writeAll(item_, *lost_);
        lost_.reset();
        isRestored_ = true;
    } catch (std::exception const&) { // NOLINT(bugprone-empty-catch): the first failure is told
    }
}

} // namespace foundation::storage::provider::zip::detail
