#include <fl/i18n/conversion.hpp>

#include <gtest/gtest.h>

#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

using namespace fl::i18n;

namespace {

/// One code point in UTF-8, by the definition.
std::string utf8Of(char32_t c) {
    auto const byte = [](char32_t bits) {
        return static_cast<char>(static_cast<unsigned char>(bits));
    };
    if (c < 0x80) {
        return {byte(c)};
    }
    if (c < 0x800) {
        return {byte(0xC0 | c >> 6), byte(0x80 | (c & 0x3F))};
    }
    if (c < 0x10000) {
        return {byte(0xE0 | c >> 12), byte(0x80 | (c >> 6 & 0x3F)), byte(0x80 | (c & 0x3F))};
    }
    return {byte(0xF0 | c >> 18), byte(0x80 | (c >> 12 & 0x3F)), byte(0x80 | (c >> 6 & 0x3F)),
            byte(0x80 | (c & 0x3F))};
}

ustring utf16Of(char32_t c) {
    if (c < 0x10000) {
        return {static_cast<char16_t>(c)};
    }
    return {static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10)),
            static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF))};
}

bool isSurrogate(char32_t c) {
    return c >= 0xD800 && c <= 0xDFFF;
}

/// Decodes by trying every code point's own bytes: slow, and plainly right. Nothing where the bytes
/// are malformed.
std::optional<ustring> referenceDecode(std::string_view bytes) {
    ustring out;
    for (std::size_t i = 0; i < bytes.size();) {
        auto const lead = static_cast<unsigned char>(bytes[i]);
        std::size_t const length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        if (i + length > bytes.size()) {
            return std::nullopt;
        }
        char32_t c = length == 1 ? lead : lead & (0x7FU >> length);
        for (std::size_t k = 1; k < length; ++k) {
            c = c << 6 | (static_cast<unsigned char>(bytes[i + k]) & 0x3F);
        }
        // Only what encodes back to the same bytes was well-formed.
        if (c > 0x10FFFF || isSurrogate(c) || utf8Of(c) != bytes.substr(i, length)) {
            return std::nullopt;
        }
        out += utf16Of(c);
        i += length;
    }
    return out;
}

std::optional<ustring> decoded(std::string const& bytes) {
    try {
        return to_ustring(bytes);
    } catch (std::range_error const&) {
        return std::nullopt;
    }
}

} // namespace

TEST(Conversion, EveryCodePointGoesThroughUtf8AndBack) {
    for (char32_t c = 0; c <= 0x10FFFF; ++c) {
        if (isSurrogate(c)) {
            continue;
        }
        std::string const narrow = utf8Of(c);
        ustring const wide = utf16Of(c);
        ASSERT_EQ(to_ustring(narrow), wide) << std::hex << static_cast<unsigned>(c);
        ASSERT_EQ(to_string(wide), narrow) << std::hex << static_cast<unsigned>(c);
        ASSERT_EQ(to_u32string(wide), std::u32string(1, c));
    }
}

TEST(Conversion, EverySequenceOfUpToThreeBytesIsJudgedAsTheReferenceDoes) {
    for (unsigned first = 0; first < 256; ++first) {
        std::string bytes(1, static_cast<char>(first));
        ASSERT_EQ(decoded(bytes), referenceDecode(bytes)) << first;
        for (unsigned second = 0; second < 256; ++second) {
            bytes.resize(1);
            bytes += static_cast<char>(second);
            ASSERT_EQ(decoded(bytes), referenceDecode(bytes)) << first << ' ' << second;
        }
    }
    // With an ASCII lead or a lone continuation the third byte decides nothing that two did not.
    for (unsigned first = 0xC0; first < 256; ++first) {
        for (unsigned second = 0x70; second < 0xD0; ++second) {
            for (unsigned third = 0x70; third < 0xD0; ++third) {
                std::string const bytes{static_cast<char>(first), static_cast<char>(second),
                                        static_cast<char>(third)};
                ASSERT_EQ(decoded(bytes), referenceDecode(bytes))
                    << first << ' ' << second << ' ' << third;
            }
        }
    }
}

TEST(Conversion, FourByteSequencesAreJudgedAsTheReferenceDoes) {
    unsigned const bytesAtLimits[] = {0x00, 0x41, 0x7F, 0x80, 0x8F, 0x90, 0xBF, 0xC0, 0xFF};
    for (unsigned first = 0xEF; first < 256; ++first) {
        for (unsigned const second : bytesAtLimits) {
            for (unsigned const third : bytesAtLimits) {
                for (unsigned const fourth : bytesAtLimits) {
                    std::string const bytes{static_cast<char>(first), static_cast<char>(second),
                                            static_cast<char>(third), static_cast<char>(fourth)};
                    ASSERT_EQ(decoded(bytes), referenceDecode(bytes))
                        << first << ' ' << second << ' ' << third << ' ' << fourth;
                }
            }
        }
    }
}

TEST(Conversion, MalformedUtf8IsRefused) {
    struct {
        char const* what;
        std::string bytes;
    } const cases[] = {
        {"overlong slash", "\xC0\xAF"},
        {"overlong NUL in three bytes", "\xE0\x80\x80"},
        {"overlong in four bytes", "\xF0\x8F\xBF\xBF"},
        {"surrogate", "\xED\xA0\x80"},
        {"last surrogate", "\xED\xBF\xBF"},
        {"above the last code point", "\xF4\x90\x80\x80"},
        {"five bytes", "\xF8\x88\x80\x80\x80"},
        {"cut short", "abc\xE2\x82"},
        {"continuation alone", "\x80"},
        {"cut short by ASCII", "\xE2\x82"
                               "a"},
    };
    for (auto const& c : cases) {
        EXPECT_THROW(to_ustring(c.bytes), std::range_error) << c.what;
        EXPECT_THROW(to_ustring(std::string(100, 'x') + c.bytes), std::range_error) << c.what;
        EXPECT_THROW(to_ustring(c.bytes + std::string(100, 'x')), std::range_error) << c.what;
    }
}

TEST(Conversion, EveryLengthAndPositionOfTextOutsideAsciiIsRight) {
    // Crosses every boundary of the steps of 8 and 16 and of the buffer for short text.
    for (char32_t const c : {U'é', U'\u20AC', U'\U0001F600'}) {
        for (std::size_t length = 0; length < 300; ++length) {
            for (std::size_t const at :
                 {std::size_t{0}, length / 3, length / 2, length - (length > 0), length}) {
                std::string narrow(length, 'n');
                ustring wide(length, u'n');
                narrow.insert(at, utf8Of(c));
                wide.insert(at, utf16Of(c));
                ASSERT_EQ(to_ustring(narrow), wide) << length << ' ' << at;
                ASSERT_EQ(to_string(wide), narrow) << length << ' ' << at;
            }
        }
    }
}

TEST(Conversion, PlainAsciiOfEveryLengthIsKept) {
    for (std::size_t length = 0; length < 600; ++length) {
        std::string narrow;
        ustring wide;
        for (std::size_t i = 0; i < length; ++i) {
            narrow += static_cast<char>(i % 128);
            wide += static_cast<char16_t>(i % 128);
        }
        ASSERT_EQ(to_ustring(narrow), wide);
        ASSERT_EQ(to_string(wide), narrow);
        ASSERT_EQ(storageNameToUstring(narrow), wide);
        ASSERT_EQ(ustringToStorageName(wide), narrow);
        ASSERT_EQ(toDisplayString(wide), narrow);
    }
}

TEST(Conversion, EveryLoneSurrogateIsRefusedInUtf16) {
    for (char32_t c = 0xD800; c <= 0xDFFF; ++c) {
        ustring const lone(1, static_cast<char16_t>(c));
        EXPECT_THROW(to_string(lone), std::range_error);
        EXPECT_THROW(to_string(lone + u"x"), std::range_error);
        EXPECT_THROW(to_string(u"x" + lone), std::range_error);
    }
    EXPECT_THROW(to_string(u"\xDC00\xD800"), std::range_error);
    EXPECT_THROW(to_string(u"\xD800\xD800\xDC00"), std::range_error);
}

TEST(Conversion, LoneSurrogatesPassIntoUtf32) {
    EXPECT_EQ(to_u32string(u"a\xD800z"), (std::u32string{U'a', char32_t{0xD800}, U'z'}));
    EXPECT_EQ(to_u32string(u"\xDC80"), std::u32string(1, char32_t{0xDC80}));
    EXPECT_EQ(to_u32string(u"\xD83D"), std::u32string(1, char32_t{0xD83D}));
    EXPECT_EQ(to_u32string(u"\xD83D\xDE00"), std::u32string(1, char32_t{0x1F600}));
    EXPECT_EQ(to_u32string(u"\xDE00\xD83D"), (std::u32string{char32_t{0xDE00}, char32_t{0xD83D}}));
}

TEST(Conversion, DisplayTextNeverFails) {
    EXPECT_EQ(toDisplayString(u"a\xDCFFz"), "a\xFFz");
    EXPECT_EQ(toDisplayString(u"a\xD800z"), "a\xEF\xBF\xBDz");
    EXPECT_EQ(toDisplayString(u"\xDC7F\xDD00"), "\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(toDisplayString(ustring(1000, char16_t{0xDBFF})).size(), 3000U);
}

TEST(Conversion, StreamsGetDisplayText) {
    std::ostringstream out;
    fl::i18n::operator<<(out, ustring(u"é\xDC80\xD800"));
    EXPECT_EQ(out.str(), "\xC3\xA9\x80\xEF\xBF\xBD");
}

TEST(Conversion, TheCodecKnowsUtf8InAnyCaseAndNothingElse) {
    for (char const* name : {"UTF-8", "utf-8", "Utf-8"}) {
        EXPECT_EQ(codecvt_ustring_to_string(name)(u"aé"), "a\xC3\xA9") << name;
    }
    for (char const* name : {"", "UTF8", "UTF-16", "latin1", "UTF-8 "}) {
        EXPECT_THROW(codecvt_ustring_to_string{name}, std::invalid_argument) << name;
    }
    codecvt_ustring_to_string const codec("UTF-8");
    EXPECT_EQ(codec(u""), "");
    EXPECT_THROW(codec(u"\xDC80"), std::range_error);
}
