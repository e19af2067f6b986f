#include <foundation/storage/provider/wildcard.hpp>

#include <fl/i18n/conversion.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace {

using foundation::storage::provider::matchesWildcard;
using Text = std::u16string;
using View = std::u16string_view;

static_assert(noexcept(matchesWildcard(View(), View())));

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int randomPairs = 200'000;
constexpr std::size_t nameLength = 4;
#else
constexpr int randomPairs = 2'000'000;
constexpr std::size_t nameLength = 5;
#endif

/// The rules as one would tell them, one after the other, in exponential time. `name` ends in a
/// unit 0 that `left` does not count.
bool matchesByTheRules(View pattern, char16_t const* name, std::size_t left) {
    if (pattern.empty()) {
        return left == 0;
    }
    for (std::size_t at = 0; at < pattern.size(); ++at) {
        if (pattern[at] == u'*') {
            View const rest = pattern.substr(at + 1);
            if (rest.empty()) {
                return true;
            }
            for (; left > 0; ++name, --left) {
                if (matchesByTheRules(rest, name, left)) {
                    return true;
                }
            }
            return false;
        }
        if (pattern[at] == u'?') {
            if (left == 0) {
                return false;
            }
        } else if (pattern[at] != *name) {
            return false;
        }
        if (left > 0) {
            ++name;
            --left;
        }
    }
    return left == 0;
}

bool agree(Text const& pattern, Text const& name) {
    return matchesWildcard(pattern, name) == matchesByTheRules(pattern, name.c_str(), name.size());
}

std::string shown(Text const& text) {
    std::string out;
    for (char16_t const unit : text) {
        out += unit >= 0x20 && unit < 0x7F ? std::string(1, static_cast<char>(unit))
                                           : '<' + std::to_string(unit) + '>';
    }
    return '"' + out + '"';
}

/// All texts over an alphabet up to a length.
std::vector<Text> allTexts(View alphabet, std::size_t length) {
    std::vector<Text> texts{Text()};
    for (std::size_t first = 0, n = 0; n < length; ++n) {
        std::size_t const last = texts.size();
        for (; first < last; ++first) {
            for (char16_t const unit : alphabet) {
                texts.push_back(texts[first] + unit);
            }
        }
    }
    return texts;
}

void expectAgreement(std::vector<Text> const& patterns, std::vector<Text> const& names) {
    std::size_t matched = 0;
    for (Text const& pattern : patterns) {
        for (Text const& name : names) {
            ASSERT_TRUE(agree(pattern, name)) << shown(pattern) << " on " << shown(name);
            matched += matchesWildcard(pattern, name) ? 1 : 0;
        }
    }
    EXPECT_GT(matched, names.size()) << "more than the pattern * alone";
}

TEST(Wildcard, HoldsTheResultsThatItPromises) {
    struct Row {
        View pattern;
        View name;
        bool matches;
    };
    Row const rows[] = {{u"*", u"", true},
                        {u"**", u"", false},
                        {u"a*", u"a", true},
                        {u"a**", u"a", false},
                        {u"a**", u"ab", true},
                        {u"*a**", u"a", false},
                        {u"*.txt", u".txt", true},
                        {u"*.*", u"a", false},
                        {u"*.*", u"a.", true},
                        {u"a?", u"a", false},
                        {u"?*", u"a", true},
                        {u"*?", u"", false},
                        {u"a*b", u"ab", true},
                        {u"AB", u"ab", false},
                        // What follows from the same rules.
                        {u"", u"", true},
                        {u"", u"a", false},
                        {u"?", u"", false},
                        {u"?", u"a", true},
                        {u"?", u"ab", false},
                        {u"*?", u"a", true},
                        {u"***", u"ab", true},
                        {u"***", u"a", true},
                        {u"**", u"a", true},
                        {u"a*b*c", u"axbxc", true},
                        {u"a*b*c", u"acb", false},
                        {u"*ab", u"aab", true},
                        {u"a/b", u"a/b", true},
                        {u"*/b", u"a/b", true},
                        {u".*", u".x", true},
                        {u"[a]", u"a", false},
                        {u"[a]", u"[a]", true},
                        {u"\\*", u"*", false},
                        {u"\\*", u"\\x", true},
                        {u"*", u"*", true},
                        {u"\u00E9", u"e\u0301", false}};
    for (Row const& row : rows) {
        EXPECT_EQ(matchesWildcard(row.pattern, row.name), row.matches)
            << shown(Text(row.pattern)) << " on " << shown(Text(row.name));
        EXPECT_TRUE(agree(Text(row.pattern), Text(row.name)));
    }
}

TEST(Wildcard, QuestionMarkTakesOneUnitOfSixteenBits) {
    View const pair = u"\U0001F600";
    EXPECT_FALSE(matchesWildcard(u"?", pair));
    EXPECT_TRUE(matchesWildcard(u"??", pair));
    EXPECT_TRUE(matchesWildcard(u"?\xDE00", pair));
    EXPECT_TRUE(matchesWildcard(pair, pair));
}

TEST(Wildcard, ZeroUnitInThePatternAlsoMatchesTheEndOfTheName) {
    EXPECT_TRUE(matchesWildcard(View(u"a\0", 2), u"a"));
    EXPECT_TRUE(matchesWildcard(View(u"\0\0", 2), u""));
    EXPECT_TRUE(matchesWildcard(View(u"a\0*", 3), u"a"));
    EXPECT_FALSE(matchesWildcard(View(u"a\0?", 3), u"a"));
    EXPECT_FALSE(matchesWildcard(View(u"a\0b", 3), u"a"));
    EXPECT_FALSE(matchesWildcard(View(u"*\0", 2), u""));
    EXPECT_TRUE(matchesWildcard(View(u"*a\0", 3), u"ba"));
    EXPECT_TRUE(matchesWildcard(View(u"a\0", 2), View(u"a\0", 2)));
    EXPECT_FALSE(matchesWildcard(u"a", View(u"a\0", 2)));
}

TEST(Wildcard, NameThatEndsInTheMiddleOfAnotherTextIsNotReadPastItsEnd) {
    View const behind = u"abc";
    EXPECT_FALSE(matchesWildcard(u"abc", behind.substr(0, 2)));
    EXPECT_TRUE(matchesWildcard(u"ab", behind.substr(0, 2)));
    EXPECT_FALSE(matchesWildcard(u"*c", behind.substr(0, 2)));
}

TEST(Wildcard, AgreesWithTheRulesOnEveryShortPair) {
    expectAgreement(allTexts(View(u"ab*?\0", 5), 5), allTexts(View(u"ab\0", 3), nameLength));
}

TEST(Wildcard, AgreesWithTheRulesOnNamesThatHoldItsOwnSigns) {
    expectAgreement(allTexts(u"a*?", 6), allTexts(u"a*?", nameLength - 1));
}

TEST(Wildcard, AgreesWithTheRulesOnSurrogates) {
    expectAgreement(allTexts(u"\xD83D\xDE00?*", nameLength),
                    allTexts(u"\xD83D\xDE00\xDCFF", nameLength));
}

TEST(Wildcard, AgreesWithTheRulesOnLongerPairs) {
    std::mt19937 random(20240611); // NOLINT(cert-msc51-cpp): the same pairs every time
    auto const below = [&](std::size_t bound) { return random() % bound; };
    auto const text = [&](View alphabet, std::size_t length) {
        Text made(below(length + 1), u'a');
        for (char16_t& unit : made) {
            unit = alphabet[below(alphabet.size())];
        }
        return made;
    };
    View const zeros(u"aab*?\0", 6);
    std::size_t matched = 0;
    for (int i = 0; i < randomPairs; ++i) {
        // Names of the pattern's own pieces match more often than chance would have it.
        Text const pattern = text(i % 3 == 0 ? zeros : View(u"aaab*?"), 12);
        Text const name = text(i % 3 == 0 ? View(u"aab\0", 4) : View(u"aaab"), 16);
        ASSERT_TRUE(agree(pattern, name)) << shown(pattern) << " on " << shown(name);
        matched += matchesWildcard(pattern, name) ? 1 : 0;
    }
    EXPECT_GT(matched, static_cast<std::size_t>(randomPairs) / 100);
}

// Backtracking over every star would take longer than the universe has.
TEST(Wildcard, ManyStarsAgainstALongNameFinish) {
    Text pattern;
    for (int i = 0; i < 50; ++i) {
        pattern += u"*a";
    }
    Text const name(100'000, u'a');
    EXPECT_TRUE(matchesWildcard(pattern, name));
    EXPECT_TRUE(matchesWildcard(pattern + u"*", name));
    EXPECT_FALSE(matchesWildcard(pattern + u"*b", name));
    EXPECT_FALSE(matchesWildcard(pattern + u"b*", name));
}

TEST(Wildcard, LongRemainderBehindAStarFinishes) {
    Text const name(100'000, u'a');
    EXPECT_TRUE(matchesWildcard(u"*" + Text(1'000, u'?'), name));
    EXPECT_FALSE(matchesWildcard(u"*" + Text(1'000, u'?') + u'b', name));
    EXPECT_FALSE(matchesWildcard(u"*" + Text(1'000, u'a') + u'b', name));
    EXPECT_FALSE(matchesWildcard(Text(1'000, u'*') + u'b', name));
    EXPECT_TRUE(matchesWildcard(Text(100'000, u'*'), name));
    EXPECT_TRUE(matchesWildcard(Text(100'000, u'*'), u"a")) << "the last unit serves them all";
    EXPECT_FALSE(matchesWildcard(Text(100'000, u'*'), u""));
}

} // namespace
