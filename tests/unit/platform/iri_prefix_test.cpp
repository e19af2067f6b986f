#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/iri_prefix.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>

using foundation::storage::provider::hasIRIPrefix;

namespace {

/// The test as it is defined, recursion and all.
bool reference(std::u32string const& text) {
    auto const alpha = [](char32_t c) {
        return (c >= U'a' && c <= U'z') || (c >= U'A' && c <= U'Z');
    };
    auto const schemeChar = [&](char32_t c) {
        return alpha(c) || (c >= U'0' && c <= U'9') || c == U'-' || c == U'.' || c == U'+';
    };
    if (text.size() < 4 || !alpha(text[0]) || !schemeChar(text[1])) {
        return false;
    }
    std::size_t i = 2;
    while (i < text.size() && schemeChar(text[i])) {
        ++i;
    }
    if (i == text.size() || text[i] != U':' || i + 1 == text.size()) {
        return false;
    }
    return text[i + 1] == U'/' || reference(text.substr(i + 1));
}

} // namespace

TEST(IriPrefix, IsAChainOfSchemesWithASlashBehind) {
    struct {
        char16_t const* text;
        bool expected;
    } const cases[] = {
        {u"", false},          {u"ab:", false},          {u"ab:/", true},
        {u"a:/x", false},      {u"1ab:/", false},        {u"-ab:/", false},
        {u"a+.-:/", true},     {u"ab/:/", false},        {u"ab:cd:/", true},
        {u"ab:cd:e", false},   {u"ab:c", false},         {u"ab:c:/", false},
        {u"ab:cd:/x", true},   {u"äb:/x", false},        {u"aé:/x", false},
        {u"abcd", false},      {u"abcd:", false},        {u"C:\\x", false},
        {u"file:///", true},   {u"zip:a.zip!/x", false}, {u"zip:file:///a!/x", true},
        {u"/ab:/", false},     {u"ab::/", false},        {u"ab:\xD83D\xDE00", false},
        {u"a\xDC80:/", false}, {u"a1:/", true},          {u"A9:Z.:/", true},
    };
    for (auto const& c : cases) {
        std::u16string const text = c.text;
        EXPECT_EQ(hasIRIPrefix(std::u16string_view(text)), c.expected)
            << testing::PrintToString(text);
        EXPECT_EQ(hasIRIPrefix(std::u32string_view(fl::i18n::to_u32string(text))), c.expected)
            << testing::PrintToString(text);
    }
}

TEST(IriPrefix, RandomTextsAreJudgedAsTheDefinitionDoes) {
    std::mt19937 random(7);
    std::u32string const alphabet = U"ab1:::/+é!";
    for (int round = 0; round < 500000; ++round) {
        std::u32string wide;
        std::u16string narrow;
        for (std::size_t left = random() % 14; left > 0; --left) {
            char32_t const c = alphabet[random() % alphabet.size()];
            wide += c;
            narrow += static_cast<char16_t>(c);
        }
        ASSERT_EQ(hasIRIPrefix(std::u32string_view(wide)), reference(wide))
            << testing::PrintToString(narrow);
        ASSERT_EQ(hasIRIPrefix(std::u16string_view(narrow)), reference(wide))
            << testing::PrintToString(narrow);
    }
}

TEST(IriPrefix, AChainOfAMillionSchemesNeedsNoStack) {
    std::u32string text;
    for (int i = 0; i < 1000000; ++i) {
        text += U"ab:";
    }
    EXPECT_FALSE(hasIRIPrefix(std::u32string_view(text)));
    text += U'/';
    EXPECT_FALSE(hasIRIPrefix(std::u32string_view(text.substr(0, text.size() - 1))));
    EXPECT_TRUE(hasIRIPrefix(std::u32string_view(text)));
}
