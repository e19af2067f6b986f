// Headers of what needs more than 32 bits, byte by byte.

#include <foundation/storage/provider/zip/detail/extra_field.hpp>
#include <foundation/storage/provider/zip/detail/little_endian.hpp>
#include <foundation/storage/provider/zip/detail/member_headers.hpp>

#include <gtest/gtest.h>

#include <array>
#include <vector>

namespace foundation::storage::provider::zip::detail {
namespace {

constexpr std::uint64_t is32 = 0xFFFFFFFF;
constexpr std::array<std::uint64_t, 5> numbers{7, is32 - 1, is32, is32 + 1, std::uint64_t{1} << 60};

unsigned char const* at(std::string const& bytes, std::size_t offset) {
    return reinterpret_cast<unsigned char const*>(bytes.data()) + offset;
}

/// What a reader makes of a number that has 32 bits in a header, and perhaps its place in the extra
/// field.
std::uint64_t number(unsigned char const* header, std::string_view& field) {
    if (read32(header) != is32) {
        return read32(header);
    }
    EXPECT_GE(field.size(), 8U);
    std::uint64_t const value = read64(reinterpret_cast<unsigned char const*>(field.data()));
    field.remove_prefix(8);
    return value;
}

MemberHeaders some() {
    MemberHeaders headers;
    headers.name = "name";
    headers.crc = 0x12345678;
    headers.needed = 20;
    headers.madeBy = 3 << 8 | 30;
    headers.comment = "comment";
    headers.localExtra = std::string("\x99\x99\x02\0lo", 6);
    headers.centralExtra = std::string("\x99\x99\x02\0ce", 6);
    return headers;
}

/// Calls with headers of every size, with and without a descriptor.
template<class Check>
void forAllSizes(Check const& check) {
    for (std::uint64_t const size : numbers) {
        for (std::uint64_t const compressedSize : numbers) {
            for (std::uint16_t const flags : {std::uint16_t{0}, descriptorFlag}) {
                SCOPED_TRACE(::testing::Message() << size << ' ' << compressedSize << ' ' << flags);
                MemberHeaders headers = some();
                headers.size = size;
                headers.compressedSize = compressedSize;
                headers.flags = flags;
                check(headers);
            }
        }
    }
}

TEST(ZipCentralHeader, HasInItsExtraFieldWhatDoesNotFit) {
    forAllSizes([](MemberHeaders headers) {
        for (std::uint64_t const offset : numbers) {
            SCOPED_TRACE(offset);
            headers.offset = offset;
            std::string bytes;
            appendCentral(bytes, headers);
            ASSERT_EQ(read32(at(bytes, 0)), centralHeaderSignature);
            std::size_t const extraSize = read16(at(bytes, 30));
            ASSERT_EQ(bytes.size(), centralHeaderSize + 4 + extraSize + 7);
            std::string_view const extra =
                std::string_view(bytes).substr(centralHeaderSize + 4, extraSize);
            std::string_view field = extraField(extra, ExtraId::Zip64);
            bool const isLarge = !field.empty();
            EXPECT_EQ(number(at(bytes, 24), field), headers.size);
            EXPECT_EQ(number(at(bytes, 20), field), headers.compressedSize);
            EXPECT_EQ(number(at(bytes, 42), field), offset);
            EXPECT_TRUE(field.empty());
            EXPECT_EQ(isLarge, std::max({headers.size, headers.compressedSize, offset}) >= is32);
            EXPECT_EQ(read16(at(bytes, 6)), isLarge ? 45 : 20);
            EXPECT_EQ(read16(at(bytes, 4)), 3 << 8 | (isLarge ? 45 : 30));
            EXPECT_EQ(read32(at(bytes, 16)), headers.crc);
            EXPECT_TRUE(extra.ends_with("ce"));
            EXPECT_TRUE(bytes.ends_with("comment"));
        }
    });
}

TEST(ZipLocalHeader, HasBothSizesInItsExtraFieldWhereOneDoesNotFit) {
    forAllSizes([](MemberHeaders const& headers) {
        std::string bytes;
        appendLocal(bytes, headers);
        ASSERT_EQ(read32(at(bytes, 0)), localHeaderSignature);
        std::size_t const extraSize = read16(at(bytes, 28));
        ASSERT_EQ(bytes.size(), localHeaderSize + 4 + extraSize);
        std::string_view const extra = std::string_view(bytes).substr(localHeaderSize + 4);
        std::string_view field = extraField(extra, ExtraId::Zip64);
        bool const isLarge = headers.size >= is32 || headers.compressedSize >= is32;
        bool const isLater = headers.hasDescriptor();
        EXPECT_EQ(field.size(), isLarge ? 16U : 0U);
        EXPECT_EQ(read32(at(bytes, 22)) == is32, isLarge);
        EXPECT_EQ(read32(at(bytes, 18)) == is32, isLarge);
        EXPECT_EQ(number(at(bytes, 22), field), isLater ? 0 : headers.size);
        EXPECT_EQ(number(at(bytes, 18), field), isLater ? 0 : headers.compressedSize);
        EXPECT_EQ(read32(at(bytes, 14)), isLater ? 0 : headers.crc);
        EXPECT_EQ(read16(at(bytes, 4)), isLarge ? 45 : 20);
        EXPECT_TRUE(extra.ends_with("lo"));
    });
}

TEST(ZipDescriptor, HasSizesOf8BytesWhereTheHeaderTellsOfThem) {
    forAllSizes([](MemberHeaders const& headers) {
        std::string bytes;
        appendDescriptor(bytes, headers);
        EXPECT_EQ(read32(at(bytes, 0)), descriptorSignature);
        EXPECT_EQ(read32(at(bytes, 4)), headers.crc);
        if (headers.isLarge()) {
            ASSERT_EQ(bytes.size(), 24U);
            EXPECT_EQ(read64(at(bytes, 8)), headers.compressedSize);
            EXPECT_EQ(read64(at(bytes, 16)), headers.size);
        } else {
            ASSERT_EQ(bytes.size(), 16U);
            EXPECT_EQ(read32(at(bytes, 8)), headers.compressedSize);
            EXPECT_EQ(read32(at(bytes, 12)), headers.size);
        }
    });
}

TEST(ZipHeaders, AreReadAgainWithoutTheFieldOfLargeNumbers) {
    MemberHeaders headers = some();
    headers.size = is32 + 5;
    headers.offset = is32 + 6;
    std::string central;
    appendCentral(central, headers);
    std::string local;
    appendLocal(local, headers);
    MemberHeaders const again =
        readHeaders({at(central, 0), central.size()},
                    std::string_view(local).substr(localHeaderSize + headers.name.size()));
    EXPECT_EQ(again.localExtra, headers.localExtra);
    EXPECT_EQ(again.centralExtra, headers.centralExtra);
    EXPECT_EQ(again.name, headers.name);
    EXPECT_EQ(again.comment, headers.comment);
    EXPECT_EQ(again.crc, headers.crc);
}

TEST(ZipEndOfDirectory, HasTheRecordForLargeArchivesWhereANumberDoesNotFit) {
    for (std::uint64_t const begin : numbers) {
        for (std::uint64_t const size : numbers) {
            for (std::uint64_t const members : {std::uint64_t{7}, std::uint64_t{0xFFFE},
                                                std::uint64_t{0xFFFF}, std::uint64_t{0x10000}}) {
                SCOPED_TRACE(::testing::Message() << begin << ' ' << size << ' ' << members);
                std::string bytes;
                appendEnd(bytes, {members, begin, size, "comment"});
                bool const isLarge = begin >= is32 || size >= is32 || members >= 0xFFFF;
                ASSERT_EQ(bytes.size(), (isLarge ? 76U : 0U) + 22 + 7);
                std::size_t const end = isLarge ? 76 : 0;
                EXPECT_EQ(read32(at(bytes, end)), endSignature);
                EXPECT_EQ(read16(at(bytes, end + 10)), std::min<std::uint64_t>(members, 0xFFFF));
                EXPECT_EQ(read32(at(bytes, end + 12)), std::min(size, is32));
                EXPECT_EQ(read32(at(bytes, end + 16)), std::min(begin, is32));
                EXPECT_EQ(read16(at(bytes, end + 20)), 7);
                if (isLarge) {
                    EXPECT_EQ(read32(at(bytes, 0)), end64Signature);
                    EXPECT_EQ(read64(at(bytes, 4)), 44U);
                    EXPECT_EQ(read64(at(bytes, 24)), members);
                    EXPECT_EQ(read64(at(bytes, 32)), members);
                    EXPECT_EQ(read64(at(bytes, 40)), size);
                    EXPECT_EQ(read64(at(bytes, 48)), begin);
                    EXPECT_EQ(read32(at(bytes, 56)), end64LocatorSignature);
                    EXPECT_EQ(read64(at(bytes, 64)), begin + size);
                }
            }
        }
    }
}

TEST(ZipNames, OfUtf8TakeTheCommentWithThem) {
    MemberHeaders headers = some();
    headers.madeBy = 20; // on DOS, so the comment is of code page 437
    headers.comment = "\x81"
                      "ber";
    headers.setName("plain");
    EXPECT_EQ(headers.comment, "\xC3\xBC"
                               "ber");
    EXPECT_EQ(headers.flags, utf8Flag);
    headers.setName("\xC3\xA4");
    EXPECT_EQ(headers.comment, "\xC3\xBC"
                               "ber"); // and once only
    headers.comment = "plain";
    headers.setName("plain");
    EXPECT_EQ(headers.flags, 0);
}

} // namespace
} // namespace foundation::storage::provider::zip::detail
