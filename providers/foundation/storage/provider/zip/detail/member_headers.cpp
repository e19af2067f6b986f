#include <foundation/storage/provider/zip/detail/member_headers.hpp>

#include <foundation/storage/provider/zip/detail/dos_time.hpp>
#include <foundation/storage/provider/zip/detail/extra_field.hpp>
#include <foundation/storage/provider/zip/detail/little_endian.hpp>
#include <foundation/storage/provider/zip/detail/member_name.hpp>

#include <fl/i18n/conversion.hpp>

#include <algorithm>
#include <initializer_list>
#include <stdexcept>
#include <utility>

namespace foundation::storage::provider::zip::detail {

namespace {

constexpr std::uint32_t is32 = 0xFFFFFFFF;
constexpr std::uint16_t is16 = 0xFFFF;
constexpr std::uint16_t usualVersion = 20; ///< deflated members, and folders
constexpr std::uint16_t largeVersion = 45;
constexpr std::uint16_t madeOnUnix = 3 << 8 | 30;

bool isLargeNumber(std::uint64_t number) noexcept {
    return number >= is32;
}

std::uint32_t shown(std::uint64_t number) noexcept {
    return isLargeNumber(number) ? is32 : static_cast<std::uint32_t>(number);
}

/// An extra field without some of its parts, and without what is no part.
std::string withoutFields(std::string_view extra, std::initializer_list<ExtraId> ids) {
    std::string rest;
    while (extra.size() >= 4) {
        auto const* const at = reinterpret_cast<unsigned char const*>(extra.data());
        std::size_t const size = std::size_t{4} + read16(at + 2);
        if (size > extra.size()) {
            break;
        }
        if (std::find(ids.begin(), ids.end(), static_cast<ExtraId>(read16(at))) == ids.end()) {
            rest += extra.substr(0, size);
        }
        extra.remove_prefix(size);
    }
    return rest;
}

bool isAscii(std::string_view text) noexcept {
    return std::all_of(text.begin(), text.end(),
                       [](char byte) { return (static_cast<unsigned char>(byte) & 0x80) == 0; });
}

bool isUtf8(std::string const& name) {
    try {
        fl::i18n::to_ustring(name);
        return true;
    } catch (std::range_error const&) {
        return false;
    }
}

/// The extra field with the numbers that need one put before it.
std::string withLarge(std::string const& numbers, std::string const& extra) {
    if (numbers.empty()) {
        return extra;
    }
    std::string field;
    put16(field, static_cast<std::uint16_t>(ExtraId::Zip64));
    put16(field, numbers.size());
    field += numbers;
    return field.size() + extra.size() > is16 ? field : field + extra;
}

/// What both headers have in common.
struct Common {
    std::uint32_t crc;
    std::uint32_t compressedSize;
    std::uint32_t size;
    std::size_t extraSize;
    bool isLarge;
};

void appendCommon(std::string& bytes, MemberHeaders const& headers, Common const& common) {
    put16(bytes, common.isLarge ? std::max(headers.needed, largeVersion) : headers.needed);
    put16(bytes, headers.flags);
    put16(bytes, headers.method);
    put32(bytes, headers.dosTime);
    put32(bytes, common.crc);
    put32(bytes, common.compressedSize);
    put32(bytes, common.size);
    put16(bytes, headers.name.size());
    put16(bytes, common.extraSize);
}

} // namespace

bool isOfUnix(std::uint16_t madeBy) noexcept {
    constexpr unsigned unixSystem = 3;
    constexpr unsigned osX = 19;
    return madeBy >> 8 == unixSystem || madeBy >> 8 == osX;
}

bool MemberHeaders::isLarge() const noexcept {
    return isLargeNumber(size) || isLargeNumber(compressedSize);
}

void MemberHeaders::setName(std::string path) {
    name = std::move(path);
    bool const wasKept = (flags & utf8Flag) != 0 || isOfUnix(madeBy);
    if (std::string text = wasKept ? comment : fromCodePage437(comment); text.size() <= is16) {
        comment = std::move(text);
    }
    flags &= static_cast<std::uint16_t>(~utf8Flag);
    if (isUtf8(name) && (!isAscii(name) || (!isAscii(comment) && isUtf8(comment)))) {
        flags |= utf8Flag;
    }
    localExtra = withoutFields(localExtra, {ExtraId::UnicodePath});
    centralExtra = withoutFields(centralExtra, {ExtraId::UnicodePath});
}

void MemberHeaders::setTime(std::int64_t seconds) {
    dosTime = dosTimeOfSeconds(seconds);
    constexpr unsigned char hasModified = 1;
    std::string field;
    put16(field, static_cast<std::uint16_t>(ExtraId::ExtendedTime));
    put16(field, 5);
    field += static_cast<char>(hasModified);
    put32(field, static_cast<std::uint64_t>(seconds));
    for (std::string* const extra : {&localExtra, &centralExtra}) {
        *extra = field + withoutFields(*extra, {ExtraId::ExtendedTime, ExtraId::Ntfs,
                                                ExtraId::PkwareUnix, ExtraId::OldUnix});
    }
}

void MemberHeaders::setMode(std::uint32_t mode) {
    constexpr std::uint32_t typeBits = 0170000;
    constexpr std::uint32_t folderType = 0040000;
    constexpr std::uint32_t dosFolder = 0x10;
    constexpr std::uint32_t dosReadOnly = 0x01;
    constexpr std::uint32_t ownerMayWrite = 0200;
    madeBy = std::max<std::uint16_t>(madeOnUnix, (madeBy & 0xFF) | 3 << 8);
    needed = std::max(needed, usualVersion);
    externalAttributes = mode << 16 | ((mode & typeBits) == folderType ? dosFolder : 0) |
                         ((mode & ownerMayWrite) == 0 ? dosReadOnly : 0);
}

MemberHeaders readHeaders(std::span<unsigned char const> central, std::string_view localExtra) {
    auto const text = [&](std::size_t at, std::size_t size) {
        return std::string(reinterpret_cast<char const*>(central.data()) + at, size);
    };
    unsigned char const* const header = central.data();
    std::size_t const nameSize = read16(header + 28);
    std::size_t const extraSize = read16(header + 30);
    MemberHeaders headers;
    headers.madeBy = read16(header + 4);
    headers.needed = read16(header + 6);
    headers.flags = read16(header + 8);
    headers.method = read16(header + 10);
    headers.dosTime = read32(header + 12);
    headers.crc = read32(header + 16);
    headers.name = text(centralHeaderSize, nameSize);
    headers.centralExtra =
        withoutFields(text(centralHeaderSize + nameSize, extraSize), {ExtraId::Zip64});
    headers.localExtra = withoutFields(localExtra, {ExtraId::Zip64});
    headers.comment = text(centralHeaderSize + nameSize + extraSize, read16(header + 32));
    headers.internalAttributes = read16(header + 36);
    headers.externalAttributes = read32(header + 38);
    return headers;
}

void appendLocal(std::string& bytes, MemberHeaders const& headers) {
    bool const isLater = headers.hasDescriptor();
    std::string numbers;
    if (headers.isLarge()) { // either both of them are in the extra field, or none
        put64(numbers, isLater ? 0 : headers.size);
        put64(numbers, isLater ? 0 : headers.compressedSize);
    }
    std::string const extra = withLarge(numbers, headers.localExtra);
    Common common{isLater ? 0 : headers.crc, is32, is32, extra.size(), headers.isLarge()};
    if (!headers.isLarge()) {
        common.compressedSize = isLater ? 0 : static_cast<std::uint32_t>(headers.compressedSize);
        common.size = isLater ? 0 : static_cast<std::uint32_t>(headers.size);
    }
    put32(bytes, localHeaderSignature);
    appendCommon(bytes, headers, common);
    bytes += headers.name;
    bytes += extra;
}

void appendDescriptor(std::string& bytes, MemberHeaders const& headers) {
    put32(bytes, descriptorSignature);
    put32(bytes, headers.crc);
    if (headers.isLarge()) {
        put64(bytes, headers.compressedSize);
        put64(bytes, headers.size);
    } else {
        put32(bytes, headers.compressedSize);
        put32(bytes, headers.size);
    }
}

void appendCentral(std::string& bytes, MemberHeaders const& headers) {
    std::string large;
    for (std::uint64_t const number : {headers.size, headers.compressedSize, headers.offset}) {
        if (isLargeNumber(number)) {
            put64(large, number);
        }
    }
    std::string const extra = withLarge(large, headers.centralExtra);
    put32(bytes, centralHeaderSignature);
    put16(bytes, large.empty() ? headers.madeBy
                               : (headers.madeBy & 0xFF00) |
                                     std::max<unsigned>(headers.madeBy & 0xFF, largeVersion));
    appendCommon(bytes, headers,
                 {headers.crc, shown(headers.compressedSize), shown(headers.size), extra.size(),
                  !large.empty()});
    put16(bytes, headers.comment.size());
    put16(bytes, 0); // the volume
    put16(bytes, headers.internalAttributes);
    put32(bytes, headers.externalAttributes);
    put32(bytes, shown(headers.offset));
    bytes += headers.name;
    bytes += extra;
    bytes += headers.comment;
}

void appendEnd(std::string& bytes, DirectoryEnd const& end) {
    if (end.members >= is16 || isLargeNumber(end.begin) || isLargeNumber(end.size)) {
        put32(bytes, end64Signature);
        put64(bytes, 44); // of what follows
        put16(bytes, (madeOnUnix & 0xFF00) | largeVersion);
        put16(bytes, largeVersion);
        put32(bytes, 0);
        put32(bytes, 0);
        put64(bytes, end.members);
        put64(bytes, end.members);
        put64(bytes, end.size);
        put64(bytes, end.begin);
        put32(bytes, end64LocatorSignature);
        put32(bytes, 0);
        put64(bytes, end.begin + end.size);
        put32(bytes, 1);
    }
    std::uint64_t const members = std::min<std::uint64_t>(end.members, is16);
    put32(bytes, endSignature);
    put32(bytes, 0);
    put16(bytes, members);
    put16(bytes, members);
    put32(bytes, shown(end.size));
    put32(bytes, shown(end.begin));
    put16(bytes, end.comment.size());
    bytes += end.comment;
}

} // namespace foundation::storage::provider::zip::detail
