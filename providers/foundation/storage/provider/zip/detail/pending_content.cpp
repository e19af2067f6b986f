#include <foundation/storage/provider/zip/detail/pending_content.hpp>

#include <ctime>
#include <utility>

namespace foundation::storage::provider::zip::detail {

std::int64_t secondsNow() noexcept {
    return std::time(nullptr);
}

PendingContent::PendingContent(std::shared_ptr<PendingSpace> space)
    : space_(std::move(space)),
      bytes_(space_),
      lastModified_(secondsNow()) {}

PendingContent::PendingContent(PendingContent const& other, std::shared_ptr<PendingSpace> space)
    : space_(std::move(space)),
      bytes_(space_) {
    std::lock_guard const lock(other.mutex_);
    bytes_.takeFrom(other.bytes_);
    lastModified_ = other.lastModified_;
}

std::size_t PendingContent::read(std::uint64_t position, char* buffer, std::size_t count) const {
    std::lock_guard const lock(mutex_);
    return bytes_.read(position, buffer, count);
}

void PendingContent::changedLocked() {
    lastModified_ = secondsNow();
    ++version_;
    if (isInTree_) {
        space_->countChange();
    }
}

void PendingContent::write(std::uint64_t position, char const* data, std::size_t count) {
    std::lock_guard const lock(mutex_);
    changedLocked(); // perhaps a part of it will have been written
    bytes_.write(position, data, count);
}

std::uint64_t PendingContent::append(char const* data, std::size_t count) {
    std::lock_guard const lock(mutex_);
    changedLocked();
    bytes_.write(bytes_.size(), data, count);
    return bytes_.size();
}

void PendingContent::truncate() {
    std::lock_guard const lock(mutex_);
    if (bytes_.size() != 0) { // else it keeps its time
        changedLocked();
        bytes_.clear();
    }
}

void PendingContent::fill(char const* data, std::size_t count) {
    std::lock_guard const lock(mutex_);
    bytes_.write(bytes_.size(), data, count);
}

std::uint64_t PendingContent::size() const {
    std::lock_guard const lock(mutex_);
    return bytes_.size();
}

std::int64_t PendingContent::lastModified() const {
    std::lock_guard const lock(mutex_);
    return lastModified_;
}

void PendingContent::setLastModified(std::int64_t time) {
    std::lock_guard const lock(mutex_);
    changedLocked();
    lastModified_ = time;
}

void PendingContent::beAsInArchive(std::int64_t lastModified) {
    std::lock_guard const lock(mutex_);
    lastModified_ = lastModified;
    versionInArchive_ = version_.load();
}

} // namespace foundation::storage::provider::zip::detail
