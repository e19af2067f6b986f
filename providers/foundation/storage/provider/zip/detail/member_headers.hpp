#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace foundation::storage::provider::zip::detail {

constexpr std::uint32_t localHeaderSignature = 0x04034B50;
constexpr std::uint32_t descriptorSignature = 0x08074B50;
constexpr std::uint32_t centralHeaderSignature = 0x02014B50;
constexpr std::uint32_t endSignature = 0x06054B50;
constexpr std::uint32_t end64Signature = 0x06064B50;
constexpr std::uint32_t end64LocatorSignature = 0x07064B50;
constexpr std::size_t localHeaderSize = 30;
constexpr std::size_t centralHeaderSize = 46;

/// Bits of the flags (APPNOTE 4.4.4).
constexpr std::uint16_t encryptedFlag = 1;
constexpr std::uint16_t descriptorFlag = 1 << 3;
constexpr std::uint16_t utf8Flag = 1 << 11;

/// Whether the attributes of a member are a mode of Unix, by what made it (APPNOTE 4.4.2).
bool isOfUnix(std::uint16_t madeBy) noexcept;

/// All that the two headers of a member tell (APPNOTE 4.3.7 and 4.3.12), but for the extra field of
/// large numbers, which is made when it is needed.
struct MemberHeaders {
    std::uint16_t madeBy = 0;
    std::uint16_t needed = 0;
    std::uint16_t flags = 0;
    std::uint16_t method = 0;
    std::uint32_t dosTime = 0;
    std::uint32_t crc = 0;
    std::uint64_t compressedSize = 0;
    std::uint64_t size = 0;
    std::string name;
    std::string localExtra;
    std::string centralExtra;
    std::string comment;
    std::uint16_t internalAttributes = 0;
    std::uint32_t externalAttributes = 0;
    std::uint64_t offset = 0;

    /// A descriptor behind the content, with the sizes in 8 bytes where one needs them.
    bool hasDescriptor() const noexcept { return (flags & descriptorFlag) != 0; }
    bool isLarge() const noexcept;

    /// Takes the name in UTF-8, or in whatever bytes it has. What the headers say of its spelling
    /// goes for the comment too, which is converted for it.
    void setName(std::string path);
    /// Replaces whatever tells of a time.
    void setTime(std::int64_t seconds);
    /// As on Unix, with the type bits of the mode.
    void setMode(std::uint32_t mode);
};

/// Reads a central header, and the extra field of the local one. REQUIRES: both are whole.
MemberHeaders readHeaders(std::span<unsigned char const> central, std::string_view localExtra);

void appendLocal(std::string& bytes, MemberHeaders const& headers);
void appendDescriptor(std::string& bytes, MemberHeaders const& headers);
void appendCentral(std::string& bytes, MemberHeaders const& headers);

/// What ends an archive (APPNOTE 4.3.14 to 4.3.16).
struct DirectoryEnd {
    std::uint64_t members = 0;
    std::uint64_t begin = 0;
    std::uint64_t size = 0;
    std::string comment;
};

void appendEnd(std::string& bytes, DirectoryEnd const& end);

} // namespace foundation::storage::provider::zip::detail
