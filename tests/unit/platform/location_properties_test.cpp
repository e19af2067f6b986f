#include <fl/i18n/conversion.hpp>
#include <foundation/network/iri.hpp>
#include <foundation/storage/provider/malformed_iri_exception.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <string>
#include <vector>

using fl::i18n::ustring;
using foundation::storage::provider::MalformedIRIException;
using foundation::storage::provider::StorageIRI;

namespace {

class Hostile {
  public:
    explicit Hostile(unsigned seed) : random_(seed) {}

    std::size_t below(std::size_t bound) { return random_() % bound; }

    /// A path as it may stand in a text, or something close to it.
    ustring path() {
        static ustring const pieces[] = {
            u"/",   u"/",    u"/",    u"!",      u"!/",     u"!!/",          u"%21",    u"%21/",
            u"a",   u"b",    u".",    u"..",     u"/..",    u"/.",           u"//",     u"é",
            u"%C3", u"%A9",  u"%25",  u"%3f",    u"\xDCC3", u"\xDCA9",       u"\xDCFF", u":",
            u"@",   u"zip:", u"name", u"%C3%A9", u" ",      u"\xD83D\xDE00", u"%E2%82", u"%AC",
            u"[",   u"\n",   u"A",    u"%41",
        };
        ustring out = u"/";
        for (std::size_t left = below(10); left > 0; --left) {
            out += pieces[below(std::size(pieces))];
        }
        return out;
    }

    /// A text that is a location more often than not.
    ustring text() {
        static ustring const schemes[] = {u"file", u"zip", u"s3", u"a+", u"ZIP"};
        static ustring const authorities[] = {u"",     u"//",      u"//h",      u"//H",
                                              u"//h!", u"//u@h:8", u"//u%40@h", u"//[::1]:080",
                                              u"//@",  u"//h:",    u"//%68!!"};
        static ustring const suffixes[] = {u"?",     u"#",       u"?q!/x", u"#f!/",
                                           u"?%2F!", u"?a%62#!", u"??##",  u"?é%FF"};
        static ustring const wrong[] = {u"%",    u"%2F", u"%00",  u"%2e", u"\xD800", u"\xDC7F",
                                        u":p@x", u"%2",  u"#?%4", u":",   u"!"};
        ustring out;
        for (std::size_t levels = below(4); levels > 0; --levels) {
            out += schemes[below(std::size(schemes))] + u":";
        }
        out +=
            schemes[below(std::size(schemes))] + u":" + authorities[below(std::size(authorities))];
        if (below(8) != 0) {
            out += path();
        }
        if (below(4) == 0) {
            out += suffixes[below(std::size(suffixes))];
        }
        for (std::size_t levels = below(4); levels > 0; --levels) {
            out += u"!" + path();
        }
        if (below(10) == 0) {
            out.insert(below(out.size() + 1), wrong[below(std::size(wrong))]);
        }
        return out;
    }

    std::optional<StorageIRI> location() {
        try {
            return StorageIRI(text());
        } catch (MalformedIRIException const&) {
            return std::nullopt;
        }
    }

    /// A name as a storage may give it: any text of whole characters and lone bytes.
    ustring name() {
        std::string bytes;
        static std::string const favourites = "ab.%?#!:@ \n\x7F\xC3\xA9\xE2\x82\xAC\xFF";
        for (std::size_t left = 1 + below(12); left > 0; --left) {
            char c = below(4) == 0 ? static_cast<char>(1 + below(255))
                                   : favourites[below(favourites.size())];
            bytes += c == '/' ? 'x' : c;
        }
        return bytes == "." || bytes == ".." ? u"dots" : fl::i18n::storageNameToUstring(bytes);
    }

  private:
    std::mt19937 random_;
};

/// Says what was tried where a test ends with a failure. A scoped trace would make its text in
/// every one of some hundred thousand rounds.
class Trace {
  public:
    explicit Trace(ustring const& what, ustring const& more = {}) : what_(what), more_(more) {}
    Trace(Trace const&) = delete;
    Trace& operator=(Trace const&) = delete;
    ~Trace() {
        if (testing::Test::HasFatalFailure()) {
            ADD_FAILURE() << "with " << testing::PrintToString(what_) << " and "
                          << testing::PrintToString(more_);
        }
    }

  private:
    ustring const& what_;
    ustring const more_;
};

/// The splitting of a nested text, by the rule and with nothing but strings.
struct Split {
    ustring inner;
    ustring path;
};

std::optional<Split> splitByTheRule(ustring const& text) {
    // The chain of schemes ends before the first slash, which stands behind the last colon.
    std::vector<std::size_t> colons;
    std::size_t const slash = text.find(u'/');
    for (std::size_t i = text.find(u':'); i < slash; i = text.find(u':', i + 1)) {
        colons.push_back(i);
    }
    std::size_t const depth = colons.size() - 1;
    if (depth == 0) {
        return std::nullopt;
    }
    std::vector<std::size_t> separators;
    for (std::size_t i = text.find(u"!/"); i != ustring::npos && separators.size() < depth;
         i = text.find(u"!/", i + 1)) {
        separators.push_back(i);
    }
    if (separators.size() < depth) {
        return Split{text.substr(colons[0] + 1), u""};
    }
    return Split{text.substr(colons[0] + 1, separators.back() - colons[0] - 1),
                 text.substr(separators.back() + 1)};
}

void expectSame(StorageIRI const& a, StorageIRI const& b) {
    ASSERT_EQ(a, b);
    ASSERT_EQ(b, a);
    ASSERT_FALSE(a < b) << a << ' ' << b;
    ASSERT_FALSE(b < a) << a << ' ' << b;
    ASSERT_EQ(a.hash(), b.hash()) << a << ' ' << b;
    ASSERT_EQ(a.getDecodedPath(), b.getDecodedPath());
    ASSERT_EQ(a.getResolvedPath(), b.getResolvedPath());
    ASSERT_EQ(a.getName(), b.getName());
    ASSERT_EQ(a.getAuthorityView(), b.getAuthorityView());
    ASSERT_EQ(a.hasPath(), b.hasPath());
}

void expectSegmentsInOrder(StorageIRI const& location) {
    ustring const resolved = location.getResolvedPath() + u"/";
    ASSERT_EQ(resolved.find(u"/./"), ustring::npos);
    ASSERT_EQ(resolved.find(u"/../"), ustring::npos);
    ASSERT_EQ(location.getName().find(u'/'), ustring::npos);
    if (location.getResolvedPath().size() > 1) {
        ASSERT_EQ(resolved.find(u"//"), ustring::npos);
        ASSERT_TRUE(resolved.ends_with(u"/" + location.getName() + u"/"));
    } else {
        ASSERT_EQ(location.getName(), u"");
    }
}

} // namespace

TEST(LocationProperties, AParsedTextComesBackFromAllItsForms) {
    Hostile hostile(1);
    int accepted = 0;
    for (int round = 0; round < 100000; ++round) {
        auto const location = hostile.location();
        if (!location) {
            continue;
        }
        ++accepted;
        Trace const trace(location->toString());
        ASSERT_NO_FATAL_FAILURE(expectSegmentsInOrder(*location));
        ASSERT_NO_FATAL_FAILURE(expectSame(*location, StorageIRI(location->toString())));
        ASSERT_NO_FATAL_FAILURE(expectSame(*location, StorageIRI(location->toIRI())));
        StorageIRI const resolved = location->withResolvedPath();
        ASSERT_NO_FATAL_FAILURE(expectSame(resolved, resolved.withResolvedPath()));
        ASSERT_NO_FATAL_FAILURE(expectSame(resolved, StorageIRI(resolved.toString())));
        ASSERT_EQ(resolved.getDecodedPath(), location->getResolvedPath());
    }
    EXPECT_GT(accepted, 50000);
}

TEST(LocationProperties, NestedTextsAreSplitByTheRule) {
    Hostile hostile(2);
    int nested = 0;
    for (int round = 0; round < 100000; ++round) {
        auto const location = hostile.location();
        if (!location) {
            continue;
        }
        auto const split = splitByTheRule(location->toString());
        Trace const trace(location->toString());
        ASSERT_EQ(location->hasInnerIRI(), split.has_value());
        if (split) {
            ++nested;
            ASSERT_EQ(location->getInnerIRI().toString(), split->inner);
            ASSERT_EQ(location->getPath(), split->path);
            StorageIRI const again(location->getScheme(), location->getInnerIRI(),
                                   location->getPath());
            ASSERT_EQ(again.toString(), location->toString());
            ASSERT_NO_FATAL_FAILURE(expectSame(again, *location));
        }
    }
    EXPECT_GT(nested, 25000);
}

TEST(LocationProperties, ComposingGivesBackWhatItWasGiven) {
    Hostile hostile(3);
    int composed = 0;
    for (int round = 0; round < 200000; ++round) {
        auto const inner = hostile.location();
        ustring const path = hostile.below(8) == 0 ? ustring() : hostile.path();
        if (!inner) {
            continue;
        }
        Trace const trace(inner->toString(), path);
        std::optional<StorageIRI> outer;
        try {
            outer = StorageIRI(u"tar", *inner, path);
        } catch (MalformedIRIException const&) {
            ASSERT_TRUE(inner->hasInnerIRI() && !inner->hasPath() && !path.empty());
            continue;
        }
        ++composed;
        ASSERT_EQ(outer->getScheme(), u"tar");
        ASSERT_NO_FATAL_FAILURE(expectSame(outer->getInnerIRI(), *inner));
        ASSERT_EQ(outer->getPath(), path);
        StorageIRI const parsed(outer->toString());
        ASSERT_NO_FATAL_FAILURE(expectSame(parsed, *outer));
        ASSERT_EQ(parsed.getPath(), path);
        ASSERT_EQ(parsed.getInnerIRI(), *inner);
        ASSERT_EQ(parsed.getInnerIRI().toString(), outer->getInnerIRI().toString());
    }
    EXPECT_GT(composed, 100000);
}

TEST(LocationProperties, AChildHasItsNameAndItsFolder) {
    Hostile hostile(4);
    int children = 0;
    for (int round = 0; round < 100000; ++round) {
        auto const base = hostile.location();
        ustring const name = hostile.name();
        if (!base || (base->hasInnerIRI() && !base->hasPath() &&
                      base->getInnerIRI().hasInnerIRI() && !base->getInnerIRI().hasPath())) {
            continue;
        }
        ++children;
        Trace const trace(base->toString(), name);
        StorageIRI const child(*base, name);
        ASSERT_EQ(child.getName(), name);
        ASSERT_FALSE(child.hasQuery());
        ASSERT_NO_FATAL_FAILURE(expectSame(child, StorageIRI(child.toString())));
        ASSERT_NO_FATAL_FAILURE(expectSame(StorageIRI(*base, child.getDecodedPath()), child));
        ASSERT_TRUE(child.hasParent());
        if (base->hasPath()) {
            StorageIRI const folder(*base, u"");
            ASSERT_NO_FATAL_FAILURE(expectSame(child.getParent(), folder));
            ASSERT_TRUE(base->isAncestorOf(child));
            ASSERT_EQ(child.makePathRelativeTo(*base), name);
        }
        ASSERT_NO_FATAL_FAILURE(expectSame(StorageIRI(child.getParent(), child.getName()), child));
    }
    EXPECT_GT(children, 50000);
}

TEST(LocationProperties, TheWayUpPassesEveryAncestorAndEnds) {
    Hostile hostile(5);
    for (int round = 0; round < 50000; ++round) {
        auto const location = hostile.location();
        if (!location) {
            continue;
        }
        Trace const trace(location->toString());
        StorageIRI at = *location;
        ASSERT_FALSE(at.isAncestorOf(at));
        while (at.hasParent()) {
            StorageIRI const parent = at.getParent();
            ustring const& resolved = at.getResolvedPath();
            ustring const& above = parent.getResolvedPath();
            ASSERT_EQ(above,
                      resolved.rfind(u'/') == 0 ? u"/" : resolved.substr(0, resolved.rfind(u'/')));
            ASSERT_TRUE(parent.isAncestorOf(*location));
            ASSERT_TRUE(parent.isAncestorOf(at));
            ASSERT_FALSE(at.isAncestorOf(parent));
            ASSERT_EQ(at.makePathRelativeTo(parent), at.getName());
            ASSERT_NO_FATAL_FAILURE(expectSame(parent, StorageIRI(parent.toString())));
            at = parent;
        }
        StorageIRI const top = at.getParent();
        ASSERT_FALSE(top.hasPath());
        ASSERT_NO_FATAL_FAILURE(expectSame(top, StorageIRI(top.toString())));
        ASSERT_FALSE(top.isAncestorOf(*location));
    }
}

TEST(LocationProperties, TheOrderIsStrictAndWeak) {
    Hostile hostile(6);
    std::vector<StorageIRI> locations;
    while (locations.size() < 300) {
        if (auto const location = hostile.location()) {
            locations.push_back(*location);
        }
    }
    for (auto const& a : locations) {
        for (auto const& b : locations) {
            ASSERT_EQ((a < b) + (b < a) + (a == b), 1) << a << ' ' << b;
        }
    }
    for (int round = 0; round < 300000; ++round) {
        auto const& a = locations[hostile.below(locations.size())];
        auto const& b = locations[hostile.below(locations.size())];
        auto const& c = locations[hostile.below(locations.size())];
        ASSERT_TRUE(!(a < b && b < c) || a < c) << a << ' ' << b << ' ' << c;
    }
}

TEST(LocationProperties, EncodingEveryCharacterChangesNothingButTheText) {
    Hostile hostile(7);
    constexpr char digits[] = "0123456789abcdef";
    for (int round = 0; round < 50000; ++round) {
        ustring const name = hostile.name();
        ustring encoded;
        for (char const c : fl::i18n::ustringToStorageName(name)) {
            auto const byte = static_cast<unsigned char>(c);
            encoded += u'%';
            encoded += static_cast<char16_t>(digits[byte >> 4]);
            encoded += static_cast<char16_t>(digits[byte & 0xF]);
        }
        StorageIRI const plain(StorageIRI(u"file:///folder"), name);
        ASSERT_NO_FATAL_FAILURE(expectSame(plain, StorageIRI(u"file:///%66older/" + encoded)));
    }
}
