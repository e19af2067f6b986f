#include <foundation/storage/provider/storage_iri.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <unordered_set>
#include <vector>

using fl::i18n::ustring;
using foundation::storage::provider::StorageIRI;

TEST(LocationEquality, SpellingsOfOneLocationAreEqual) {
    struct {
        char16_t const* a;
        char16_t const* b;
    } const cases[] = {
        {u"file:/a%62c", u"file:/abc"},
        {u"file:/a", u"file:///a"},
        {u"file:/a", u"file:////a"},
        {u"file:/a/", u"file:/a"},
        {u"file:/a//b", u"file:/a/b/"},
        {u"file:/", u"file:///"},
        {u"file:/%c3%a9", u"file:/%C3%A9"},
        {u"file:/%c3%a9", u"file:/é"},
        {u"file:/\xDCC3\xDCA9", u"file:/é"},
        {u"file:/%FF", u"file:/\xDCFF"},
        {u"file:/%F0%9F%98%80", u"file:/\xD83D\xDE00"},
        {u"http://HOST/a", u"http://host/a"},
        {u"http://h%4Fst/a", u"http://host/a"},
        {u"http://h:080/", u"http://h:80/"},
        {u"http://h:/", u"http://h/"},
        {u"http://@h/", u"http://h/"},
        {u"http://u%6D@h/", u"http://um@h/"},
        {u"http://[::A]/", u"http://[::a]/"},
        {u"http://h/?a%62c", u"http://h/?abc"},
        {u"http://h/?%21", u"http://h/?!"},
        {u"http://h/?a%2fb", u"http://h/?a%2Fb"},
        {u"http://h/#a%62c", u"http://h/#abc"},
        {u"zip:file:/a%62c!/x", u"zip:file:///abc!/%78"},
        {u"zip:http://H/a!/x", u"zip:http://h/a!/x/"},
        {u"zip:file:/a!/b?", u"zip:file:/a!/b%3F"},
    };
    for (auto const& c : cases) {
        StorageIRI const a{ustring(c.a)};
        StorageIRI const b{ustring(c.b)};
        EXPECT_EQ(a, b);
        EXPECT_EQ(b, a);
        EXPECT_FALSE(a != b);
        EXPECT_FALSE(a < b) << a << ' ' << b;
        EXPECT_FALSE(b < a) << a << ' ' << b;
        EXPECT_EQ(a.hash(), b.hash()) << a << ' ' << b;
        EXPECT_EQ(hash_value(a), std::hash<StorageIRI>{}(b));
        EXPECT_NE(a.toString(), b.toString());
    }
}

TEST(LocationEquality, DifferentLocationsDiffer) {
    struct {
        char16_t const* a;
        char16_t const* b;
    } const cases[] = {
        {u"file:/a", u"file:/b"},
        {u"file:/a", u"file:/A"},
        {u"file:/a", u"FILE:/a"},
        {u"file:/a", u"mem:/a"},
        {u"file:/a", u"file://h/a"},
        {u"file:///a", u"file://localhost/a"},
        {u"file:/a/./b", u"file:/a/b"},
        {u"file:/a/../b", u"file:/b"},
        {u"file:/.", u"file:/"},
        {u"file:/%FF", u"file:/ÿ"},
        {u"file:/%2541", u"file:/A"},
        {u"s3://h", u"s3://h/"},
        {u"zip:file:/a.zip", u"zip:file:/a.zip!/"},
        {u"zip:file:/a", u"file:/a"},
        {u"zip:file:/a!/b", u"zip:file:/a!/c"},
        {u"zip:file:/a!/b", u"zip:file:/b!/b"},
        {u"zip:file:/a!/b", u"tar:file:/a!/b"},
        {u"zip:tar:file:/a!/b!/c", u"zip:zip:file:/a!/b!/c"},
        {u"zip:zip:file:/a!/b", u"zip:zip:file:/a!/b!/"},
        {u"http://h/", u"http://i/"},
        {u"http://u@h/", u"http://h/"},
        {u"http://u@h/", u"http://U@h/"},
        {u"http://h:80/", u"http://h:81/"},
        {u"http://h:80/", u"http://h/"},
        {u"http://a%40b/", u"http://a@b/"},
        {u"http://h%3A80/", u"http://h:80/"},
        {u"http://h/?a", u"http://h/"},
        {u"http://h/?", u"http://h/"},
        {u"http://h/?a", u"http://h/?b"},
        {u"http://h/?a", u"http://h/#a"},
        {u"http://h/#a", u"http://h/#b"},
        {u"http://h/#", u"http://h/"},
        {u"http://h/?f=a%26b", u"http://h/?f=a&b"},
        {u"http://h/?f=a%2Fb", u"http://h/?f=a/b"},
        {u"http://h/?a%2562", u"http://h/?a%62"},
        {u"http://h/?a%23b", u"http://h/?a#b"},
    };
    for (auto const& c : cases) {
        StorageIRI const a{ustring(c.a)};
        StorageIRI const b{ustring(c.b)};
        EXPECT_NE(a, b);
        EXPECT_NE(b, a);
        EXPECT_NE(a < b, b < a) << a << ' ' << b;
        EXPECT_NE(a.hash(), b.hash()) << a << ' ' << b;
    }
}

TEST(LocationOrder, SortsBySchemeAuthorityInnerLocationAndPath) {
    std::vector<StorageIRI> const sorted = {
        StorageIRI(u"file://"),       StorageIRI(u"file:/"),       StorageIRI(u"file:/a"),
        StorageIRI(u"file:/a/b"),     StorageIRI(u"file:/b"),      StorageIRI(u"http://a/x"),
        StorageIRI(u"http://a/x?"),   StorageIRI(u"http://a/x?a"), StorageIRI(u"http://a/x?b#a"),
        StorageIRI(u"http://B/"),     StorageIRI(u"zip:file:/a"),  StorageIRI(u"zip:file:/a!/"),
        StorageIRI(u"zip:file:/b!/"), StorageIRI(u"zip://x/"),
    };
    std::vector<StorageIRI> again(sorted.rbegin(), sorted.rend());
    std::sort(again.begin(), again.end());

    EXPECT_EQ(again, sorted);
    for (std::size_t i = 1; i < sorted.size(); ++i) {
        EXPECT_LT(sorted[i - 1], sorted[i]);
    }
}

TEST(LocationOrder, FirstDifferentUnitDecidesWhereverItStands) {
    ustring const path = u"file:/abcdefghijkl";
    for (std::size_t i = path.find(u'a'); i < path.size(); ++i) {
        ustring above = path;
        above[i] = u'\u0901'; // smaller than every letter by its low byte alone
        ustring const shorter = path.substr(0, i);

        EXPECT_LT(StorageIRI(path), StorageIRI(above)) << "unit " << i;
        EXPECT_FALSE(StorageIRI(above) < StorageIRI(path)) << "unit " << i;
        EXPECT_LT(StorageIRI(shorter), StorageIRI(path)) << "length " << i;
        EXPECT_FALSE(StorageIRI(path) < StorageIRI(shorter)) << "length " << i;
    }
    EXPECT_LT(StorageIRI(u"file:/zbcda"), StorageIRI(u"file:/zbcdz"));
    EXPECT_LT(StorageIRI(u"file:/azzzz"), StorageIRI(u"file:/baaaa"));
}

TEST(LocationOrder, MapsAndSetsFindOtherSpellings) {
    std::map<StorageIRI, int> ordered{{StorageIRI(u"file:/a%62c"), 1}};
    std::unordered_set<StorageIRI> hashed{StorageIRI(u"file:/a%62c")};

    EXPECT_EQ(ordered.count(StorageIRI(u"file:///abc/")), 1U);
    EXPECT_EQ(hashed.count(StorageIRI(u"file:///abc/")), 1U);
    EXPECT_EQ(hashed.count(StorageIRI(u"file:///abd")), 0U);
}

TEST(LocationAncestry, IsStrictAndByWholeSegments) {
    struct {
        char16_t const* a;
        char16_t const* b;
        bool ancestor;
        char16_t const* relative;
    } const cases[] = {
        {u"file:/a", u"file:/a/b", true, u"b"},
        {u"file:/a", u"file:/a/b/c", true, u"b/c"},
        {u"file:/", u"file:/a", true, u"a"},
        {u"file:/", u"file:///a/b", true, u"a/b"},
        {u"file:/a/", u"file:/a//b/", true, u"b"},
        {u"file:/a%62", u"file:/ab/%63%25", true, u"c%"},
        {u"file:/a", u"file:/a/%FF", true, u"\xDCFF"},
        {u"file:/x/../a", u"file:/a/y/../b", true, u"b"},
        {u"http://H/a", u"http://h/a/b", true, u"b"},
        {u"http://h/a?q", u"http://h/a/b#f", true, u"b"},
        {u"zip:file:/z!/a", u"zip:file:///z!/a/b", true, u"b"},
        {u"zip:file:/z!/", u"zip:file:/z!/b!/c", true, u"b!/c"},
        {u"file:/a", u"file:/a", false, u""},
        {u"file:/a", u"file:///a/", false, u""},
        {u"file:/a", u"file:/x/../a", false, u""},
        {u"http://h/a?q", u"http://h/a", false, u""},
        {u"file:/", u"file:///", false, u""},
        {u"file:/a", u"file:/ab", false, u"/ab"},
        {u"file:/a/b", u"file:/a", false, u"/a"},
        {u"file:/a", u"file:/a/../b", false, u"/b"},
        {u"file:/a", u"mem:/a/b", false, u"/a/b"},
        {u"file:/a", u"file://h/a/b", false, u"/a/b"},
        {u"http://u@h/a", u"http://h/a/b", false, u"/a/b"},
        {u"zip:file:/z!/a", u"zip:file:/y!/a/b", false, u"/a/b"},
        {u"file:/z", u"zip:file:/z!/a", false, u"/a"},
        {u"file:/", u"file://", false, u""},
        // A form without a path names no folder.
        {u"s3://b", u"s3://b/a", false, u"/a"},
        {u"s3://b", u"s3://b", false, u""},
    };
    for (auto const& c : cases) {
        StorageIRI const a{ustring(c.a)};
        StorageIRI const b{ustring(c.b)};
        EXPECT_EQ(a.isAncestorOf(b), c.ancestor) << a << ' ' << b;
        EXPECT_EQ(b.makePathRelativeTo(a), c.relative) << a << ' ' << b;
        EXPECT_FALSE(c.ancestor && b.isAncestorOf(a)) << a << ' ' << b;
    }
}

TEST(ResolvedLocation, KeepsQueryAndFragmentAndDropsTheDots) {
    struct {
        char16_t const* text;
        char16_t const* resolved;
    } const cases[] = {
        {u"http://H/a/../b?q#f", u"http://H/b?q#f"},
        {u"http://H/a/../%25?#", u"http://H/%25?#"},
        {u"s3://b//x/", u"s3://b/x"},
        {u"zip:file:/a/../b!/c/../d?", u"zip:file:/a/../b!/d%3F"},
        {u"mem:/..", u"mem:/"},
        {u"mem:////a", u"mem:///a"},
        {u"mem://", u"mem://"},
        {u"mem:/a", u"mem:/a"},
    };
    for (auto const& c : cases) {
        StorageIRI const resolved = StorageIRI{ustring(c.text)}.withResolvedPath();
        EXPECT_EQ(resolved.toString(), c.resolved);
        EXPECT_EQ(resolved, StorageIRI{ustring(c.resolved)});
        EXPECT_EQ(resolved.hash(), StorageIRI{ustring(c.resolved)}.hash());
    }
    StorageIRI const plain(u"mem:/a");
    EXPECT_EQ(&plain.withResolvedPath().toString(), &plain.toString());
}
