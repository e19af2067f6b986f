#include <foundation/storage/provider/container/item_bytes.hpp>

#include <algorithm>
#include <utility>

namespace foundation::storage::provider::container {

namespace {

constexpr std::size_t tailSize = 512;

} // namespace

ItemBytes::ItemBytes(std::unique_ptr<ByteStream> stream)
    : stream_(std::move(stream)),
      pinned_(dynamic_cast<extensions::IPinnedStream*>(stream_.get())),
      resting_(dynamic_cast<extensions::IRestingStream*>(stream_.get())) {}

void ItemBytes::rest() noexcept {
    if (resting_ != nullptr) {
        resting_->rest();
    }
}

std::size_t ItemBytes::readAt(std::uint64_t position, std::span<unsigned char> buffer) {
    isGood_ = false; // until the end
    std::size_t done = 0;
    if (position < position_ && position_ - position <= tail_.size()) {
        auto const back = static_cast<std::size_t>(position_ - position);
        done = std::min(back, buffer.size());
        std::copy_n(tail_.end() - static_cast<std::ptrdiff_t>(back), done, buffer.begin());
    } else if (position != position_) {
        stream_->seek(static_cast<long>(position), std::ios_base::beg);
        position_ = position;
        tail_.clear();
    }
    std::size_t const known = done;
    while (done < buffer.size()) {
        long const got = stream_->read(reinterpret_cast<char*>(buffer.data() + done),
                                       static_cast<long>(buffer.size() - done));
        if (got <= 0) {
            break;
        }
        done += static_cast<std::size_t>(got);
        position_ += static_cast<std::uint64_t>(got);
    }
    if (done > known) {
        std::span<unsigned char const> const read(buffer.first(done));
        std::span<unsigned char const> const last = read.last(std::min(done, tailSize));
        tail_.assign(last.begin(), last.end());
    }
    isGood_ = true;
    return done;
}

std::uint64_t ItemBytes::size() {
    isGood_ = false; // until the end
    tail_.clear();
    position_ = static_cast<std::uint64_t>(stream_->seek(0, std::ios_base::end));
    isGood_ = true;
    return position_;
}

} // namespace foundation::storage::provider::container
