#include <foundation/storage/provider/zip/detail/member_bytes.hpp>

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/zip/detail/little_endian.hpp>
#include <foundation/storage/provider/zip/detail/member_headers.hpp>

#include <algorithm>
#include <cstring>

namespace foundation::storage::provider::zip::detail {

namespace {

/// For the name and the extra fields of most headers.
constexpr std::size_t usualNames = 256;
constexpr std::size_t mostAtOnce = std::size_t{64} * 1024;

} // namespace

MemberBytes::MemberBytes(container::ItemStreams& streams, Member const& member)
    : item_(streams.lend()) {
    head_.resize(
        localHeaderSize + usualNames +
        static_cast<std::size_t>(std::min<std::uint64_t>(member.compressedSize, mostAtOnce)));
    head_.resize(item_->readAt(member.headerOffset, head_));
    if (head_.size() < localHeaderSize || read32(head_.data()) != localHeaderSignature) {
        return;
    }
    std::size_t const nameSize = read16(head_.data() + 26);
    headerSize_ = localHeaderSize + nameSize + read16(head_.data() + 28);
    begin_ = member.headerOffset + headerSize_;
    if (head_.size() < localHeaderSize + nameSize) {
        std::size_t const had = head_.size();
        head_.resize(localHeaderSize + nameSize);
        if (item_->readAt(member.headerOffset + had, std::span(head_).subspan(had)) !=
            head_.size() - had) {
            return;
        }
    }
    constexpr std::uint16_t encrypted = 1;
    isAsTold_ = read16(head_.data() + 8) == member.method &&
                ((read16(head_.data() + 6) & encrypted) != 0) == member.isEncrypted &&
                hashOfName(head_.data() + localHeaderSize, nameSize) == member.nameHash;
}

std::span<unsigned char const> MemberBytes::inHand() const noexcept {
    return std::span(head_).subspan(std::min(headerSize_, head_.size()));
}

void MemberBytes::readExactly(std::uint64_t position, std::span<unsigned char> buffer) {
    std::span<unsigned char const> const known = inHand();
    if (position < known.size() && !buffer.empty()) {
        std::size_t const part =
            std::min(buffer.size(), known.size() - static_cast<std::size_t>(position));
        std::memcpy(buffer.data(), known.data() + position, part);
        buffer = buffer.subspan(part);
        position += part;
    }
    if (!buffer.empty() && item_->readAt(begin_ + position, buffer) != buffer.size()) {
        throw ByteStreamReadFailure("read: the archive ends before the member does",
                                    ErrorCode::IOError);
    }
}

} // namespace foundation::storage::provider::zip::detail
