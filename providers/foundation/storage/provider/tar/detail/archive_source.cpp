#include <foundation/storage/provider/tar/detail/archive_source.hpp>

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/tar/detail/stored_bytes.hpp>

#include <algorithm>
#include <array>
#include <utility>

namespace foundation::storage::provider::tar::detail {

namespace {

/// Each holds the state of a decoder.
constexpr std::size_t mostIdle = 2;

bool isSevenZip(std::span<unsigned char const> begin) noexcept {
    constexpr std::array<unsigned char, 6> signature{'7', 'z', 0xBC, 0xAF, 0x27, 0x1C};
    return begin.size() >= signature.size() &&
           std::equal(signature.begin(), signature.end(), begin.begin());
}

} // namespace

ArchiveBytes::~ArchiveBytes() = default;

ItemState stateOf(StorageItem const& item) {
    AttributeValues const values = item.getFileAttributes().values();
    return {values.size, values.lastModified, values.created};
}

ArchiveSource::ArchiveSource(StorageItem const& item, ItemState const& state,
                             TarOptions const& options)
    : streams_(std::make_shared<container::ItemStreams>(item)),
      state_(state),
      options_(options) {
    std::array<unsigned char, tarHeaderSize> begin{};
    std::span<unsigned char const> const read(begin.data(), streams_->lend()->readAt(0, begin));
    if (isSevenZip(read) && !options.sevenZip) {
        throw Exception(ErrorCode::UnsupportedOperation, item.getLocation());
    }
    compression_ = isTarHeader(read) ? Compression::None : compressionOf(read);
    if (compression_ != Compression::None) {
        cache_ = std::make_shared<BlockCache>(options.cacheSize);
    }
    idle_.reserve(mostIdle); // so that bringing one back takes no memory
}

/// Opened by name, it may be that of another item.
container::ItemStreams::Lent ArchiveSource::lendItem() {
    container::ItemStreams::Lent stream = streams_->lend();
    if (stateOf(item()) != state_) {
        throw Exception(ErrorCode::ResourceInUse, item().getLocation());
    }
    return stream;
}

ArchiveSource::Lent ArchiveSource::lend(std::uint64_t position) {
    if (!cache_) {
        return {new StoredBytes(lendItem()), Return{shared_from_this()}};
    }
    std::unique_ptr<DecodedBytes> nearest;
    {
        std::lock_guard const lock(mutex_);
        auto best = idle_.end();
        for (auto idle = idle_.begin(); idle != idle_.end(); ++idle) {
            if ((*idle)->position() <= position &&
                (best == idle_.end() || (*best)->position() < (*idle)->position())) {
                best = idle;
            }
        }
        if (best == idle_.end() && !idle_.empty()) {
            best = idle_.begin(); // it begins again, where the cache has not what is wanted
        }
        if (best != idle_.end()) {
            nearest = std::move(*best);
            idle_.erase(best);
        }
    }
    if (!nearest) {
        nearest = std::make_unique<DecodedBytes>(lendItem(), compression_, cache_, options_);
    }
    return {nearest.release(), Return{shared_from_this()}};
}

void ArchiveSource::Return::operator()(ArchiveBytes* bytes) const noexcept {
    std::unique_ptr<ArchiveBytes> returned(bytes);
    if (!owner->cache_ || !bytes->isGood()) {
        return;
    }
    returned->rest();
    std::lock_guard const lock(owner->mutex_);
    if (owner->idle_.size() < mostIdle) {
        owner->idle_.emplace_back(static_cast<DecodedBytes*>(returned.release()));
    }
}

} // namespace foundation::storage::provider::tar::detail
