#include <foundation/storage/provider/tar/detail/stored_bytes.hpp>

#include <algorithm>
#include <utility>

namespace foundation::storage::provider::tar::detail {

namespace {

constexpr std::size_t leastAtOnce = std::size_t{4} * 1024;
constexpr std::size_t mostAtOnce = std::size_t{128} * 1024;

} // namespace

StoredBytes::StoredBytes(container::ItemStreams::Lent item)
    : item_(std::move(item)),
      size_(item_->size()) {}

std::span<unsigned char const> StoredBytes::see(std::uint64_t position) {
    if (position >= size_) {
        return {};
    }
    std::uint64_t const end = begin_ + inWindow_;
    if (position < begin_ || position >= end) {
        bool const goesOn = position == end && atOnce_ != 0;
        atOnce_ = goesOn ? std::min(atOnce_ * 2, mostAtOnce) : leastAtOnce;
        window_.resize(std::max(window_.size(), atOnce_));
        inWindow_ = 0;
        begin_ = position;
        inWindow_ = item_->readAt(position, std::span(window_).first(atOnce_));
    }
    return std::span(window_).first(inWindow_).subspan(static_cast<std::size_t>(position - begin_));
}

std::size_t StoredBytes::readAt(std::uint64_t position, std::span<unsigned char> buffer) {
    return position >= size_ ? 0 : item_->readAt(position, buffer);
}

std::uint64_t StoredBytes::reach(std::uint64_t position) {
    return std::min(position, size_);
}

} // namespace foundation::storage::provider::tar::detail
