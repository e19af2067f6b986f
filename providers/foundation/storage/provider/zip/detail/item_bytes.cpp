#include <foundation/storage/provider/zip/detail/item_bytes.hpp>

namespace foundation::storage::provider::zip::detail {

std::size_t ItemBytes::readAt(std::uint64_t position, std::span<unsigned char> buffer) {
    if (position != position_) {
        stream_->seek(static_cast<long>(position), std::ios_base::beg);
        position_ = position;
    }
    std::size_t done = 0;
    while (done < buffer.size()) {
        long const got = stream_->read(reinterpret_cast<char*>(buffer.data() + done),
                                       static_cast<long>(buffer.size() - done));
        if (got <= 0) {
            break;
        }
        done += static_cast<std::size_t>(got);
        position_ += static_cast<std::uint64_t>(got);
    }
    return done;
}

std::uint64_t ItemBytes::size() {
    position_ = static_cast<std::uint64_t>(stream_->seek(0, std::ios_base::end));
    return position_;
}

} // namespace foundation::storage::provider::zip::detail
