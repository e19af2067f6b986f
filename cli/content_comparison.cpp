#include "content_comparison.hpp"

#include <foundation/storage/vfs/streams/io_device.hpp>

#include <cstring>

namespace cli {

namespace vfs = foundation::storage::vfs;

namespace {

constexpr std::size_t bufferSize = 256 * 1024;

// A storage may deliver less than was asked for; both sides must be filled alike to be compared.
std::size_t fill(vfs::IODevice const& device, std::vector<char>& buffer) {
    std::size_t filled = 0;
    while (filled < buffer.size()) {
        long const count =
            device.read(buffer.data() + filled, static_cast<long>(buffer.size() - filled));
        if (count <= 0) {
            break;
        }
        filled += static_cast<std::size_t>(count);
    }
    return filled;
}

} // namespace

ContentComparison::ContentComparison() : first_(bufferSize), second_(bufferSize) {}

bool ContentComparison::isSame(vfs::File const& first, vfs::File const& second,
                               std::function<void(std::uint64_t)> const& compared) {
    side_ = 0;
    vfs::IODevice const left(first);
    side_ = 1;
    vfs::IODevice const right(second);
    std::size_t count = 0;
    do {
        side_ = 0;
        count = fill(left, first_);
        side_ = 1;
        if (fill(right, second_) != count ||
            std::memcmp(first_.data(), second_.data(), count) != 0) {
            return false;
        }
        compared(count);
    } while (count == bufferSize);
    return true;
}

} // namespace cli
