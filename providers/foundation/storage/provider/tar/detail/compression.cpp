#include <foundation/storage/provider/tar/detail/compression.hpp>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string_view>

namespace foundation::storage::provider::tar::detail {

namespace {

/// The header of lzma's file format has no signature: the usual properties, a size of the
/// dictionary that is a power of two or one and a half of it, and a size of the content that is
/// unknown or moderate.
bool isLzma(std::span<unsigned char const> begin) noexcept {
    constexpr std::size_t headerSize = 13;
    if (begin.size() <= headerSize || begin[0] != 0x5D || begin[headerSize] != 0) {
        return false;
    }
    std::uint32_t dictionary = 0;
    for (std::size_t i = 4; i > 0; --i) {
        dictionary = dictionary << 8 | begin[i];
    }
    std::uint32_t const above = dictionary & (dictionary - 1);
    bool const isUsual = dictionary >= 4096 && (above == 0 || above == dictionary / 3 * 2);
    auto const size = begin.subspan(5, 8);
    bool const isUnknown =
        std::all_of(size.begin(), size.end(), [](unsigned char byte) { return byte == 0xFF; });
    return isUsual && (isUnknown || (size[6] == 0 && size[7] == 0));
}

} // namespace

bool isTarHeader(std::span<unsigned char const> begin) noexcept {
    constexpr std::size_t sumBegin = 148;
    constexpr std::size_t sumSize = 8;
    if (begin.size() < tarHeaderSize) {
        return false;
    }
    std::uint32_t sum = ' ' * sumSize; // it counts as blanks itself
    for (std::size_t i = 0; i < tarHeaderSize; ++i) {
        sum += i < sumBegin || i >= sumBegin + sumSize ? begin[i] : 0U;
    }
    std::uint32_t told = 0;
    auto const field = begin.subspan(sumBegin, sumSize);
    auto const* digit = std::find_if(field.data(), field.data() + sumSize,
                                     [](unsigned char byte) { return byte != ' '; });
    for (; digit != field.data() + sumSize && *digit >= '0' && *digit <= '7'; ++digit) {
        told = told << 3 | (*digit - std::uint32_t{'0'});
    }
    return told == sum;
}

Compression compressionOf(std::span<unsigned char const> begin) noexcept {
    using std::string_view_literals::operator""sv;
    std::string_view const text(reinterpret_cast<char const*>(begin.data()), begin.size());
    if (text.starts_with("\x1F\x8B\x08"sv)) {
        return Compression::Gzip;
    }
    if (text.size() > 3 && text.starts_with("BZh"sv) && text[3] >= '1' && text[3] <= '9') {
        return Compression::Bzip2;
    }
    if (text.starts_with("\xFD"
                         "7zXZ\0"sv)) {
        return Compression::Xz;
    }
    if (text.starts_with("LZIP"sv)) {
        return Compression::Lzip;
    }
    bool const isSkippable =
        text.size() >= 4 && (begin[0] & 0xF0U) == 0x50 && text.substr(1, 3) == "\x2A\x4D\x18"sv;
    if (text.starts_with("\x28\xB5\x2F\xFD"sv) || isSkippable) {
        return Compression::Zstandard;
    }
    return isLzma(begin) ? Compression::Lzma : Compression::None;
}

char const* nameOf(Compression compression) noexcept {
    constexpr std::array names = {"none", "gzip", "bzip2", "xz", "lzma", "lzip", "zstd"};
    return names[static_cast<std::size_t>(compression)];
}

std::unique_ptr<container::Decoder> makeDecoder(Compression compression,
                                                std::uint64_t maximumMemory) {
    switch (compression) {
    case Compression::Gzip:
        return container::makeInflateDecoder(container::Wrapping::Gzip);
    case Compression::Bzip2:
        return container::makeBzip2Decoder();
    case Compression::Xz:
        return container::makeXzDecoder(maximumMemory);
    case Compression::Lzma:
    case Compression::Lzip:
        return container::makeLzmaDecoder(maximumMemory);
    case Compression::Zstandard:
        return container::makeZstandardDecoder(maximumMemory);
    case Compression::None:
        break;
    }
    throw std::invalid_argument("no compression, no decoder");
}

} // namespace foundation::storage::provider::tar::detail
