#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/malformed_iri_exception.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <gtest/gtest.h>

#include <sstream>
#include <string>

using fl::i18n::ustring;
using foundation::storage::provider::MalformedIRIException;
using foundation::storage::provider::StorageIRI;

TEST(LocationSyntax, PartsAreReadOffTheText) {
    struct {
        char16_t const* text;
        char16_t const* scheme;
        char16_t const* authority;
        char16_t const* path;
        char16_t const* decoded;
        char16_t const* resolved;
        char16_t const* name;
    } const cases[] = {
        {u"file:/a/b.txt", u"file", u"", u"/a/b.txt", u"/a/b.txt", u"/a/b.txt", u"b.txt"},
        {u"file:///a", u"file", u"", u"/a", u"/a", u"/a", u"a"},
        {u"file:////a", u"file", u"", u"//a", u"/a", u"/a", u"a"},
        {u"file:/", u"file", u"", u"/", u"/", u"/", u""},
        {u"file://", u"file", u"", u"", u"", u"", u""},
        {u"a+.-:/x", u"a+.-", u"", u"/x", u"/x", u"/x", u"x"},
        {u"s3://bucket", u"s3", u"bucket", u"", u"", u"", u""},
        {u"s3://bucket/", u"s3", u"bucket", u"/", u"/", u"/", u""},
        {u"s3://bucket/a/b/", u"s3", u"bucket", u"/a/b/", u"/a/b", u"/a/b", u"b"},
        {u"s3://bucket//a//b", u"s3", u"bucket", u"//a//b", u"/a/b", u"/a/b", u"b"},
        {u"http://me@Ho.ST:080/x?q#f", u"http", u"me@ho.st:80", u"/x", u"/x", u"/x", u"x"},
        {u"http://h?q", u"http", u"h", u"", u"", u"", u""},
        {u"http://h#f", u"http", u"h", u"", u"", u"", u""},
        {u"http://@h:/x", u"http", u"h", u"/x", u"/x", u"/x", u"x"},
        {u"http://[::1]:8/x", u"http", u"[::1]:8", u"/x", u"/x", u"/x", u"x"},
        {u"http://h%2Dx/", u"http", u"h-x", u"/", u"/", u"/", u""},
        {u"file:/a%20b", u"file", u"", u"/a%20b", u"/a b", u"/a b", u"a b"},
        {u"file:/a b", u"file", u"", u"/a b", u"/a b", u"/a b", u"a b"},
        {u"file:/%c3%A9", u"file", u"", u"/%c3%A9", u"/é", u"/é", u"é"},
        {u"file:/%25%3F%23", u"file", u"", u"/%25%3F%23", u"/%?#", u"/%?#", u"%?#"},
        {u"file:/%2541", u"file", u"", u"/%2541", u"/%41", u"/%41", u"%41"},
        {u"file:/a/./b", u"file", u"", u"/a/./b", u"/a/./b", u"/a/b", u"b"},
        {u"file:/a/../b", u"file", u"", u"/a/../b", u"/a/../b", u"/b", u"b"},
        {u"file:/a/b/..", u"file", u"", u"/a/b/..", u"/a/b/..", u"/a", u"a"},
        {u"file:/a/b/.", u"file", u"", u"/a/b/.", u"/a/b/.", u"/a/b", u"b"},
        {u"file:/a/b/../", u"file", u"", u"/a/b/../", u"/a/b/..", u"/a", u"a"},
        {u"file:/../..", u"file", u"", u"/../..", u"/../..", u"/", u""},
        {u"file:/../a", u"file", u"", u"/../a", u"/../a", u"/a", u"a"},
        {u"file:/...", u"file", u"", u"/...", u"/...", u"/...", u"..."},
        {u"file:/.a/..b", u"file", u"", u"/.a/..b", u"/.a/..b", u"/.a/..b", u"..b"},
        {u"file:/a!/b", u"file", u"", u"/a!/b", u"/a!/b", u"/a!/b", u"b"},
        {u"file:/a%2Eb", u"file", u"", u"/a%2Eb", u"/a.b", u"/a.b", u"a.b"},
        {u"file:/%FF", u"file", u"", u"/%FF", u"/\xDCFF", u"/\xDCFF", u"\xDCFF"},
        {u"file:/\xDCFF", u"file", u"", u"/\xDCFF", u"/\xDCFF", u"/\xDCFF", u"\xDCFF"},
        {u"file:/\xDCC3\xDCA9", u"file", u"", u"/\xDCC3\xDCA9", u"/é", u"/é", u"é"},
        {u"file:/%C3\xDCA9", u"file", u"", u"/%C3\xDCA9", u"/é", u"/é", u"é"},
        {u"file:/\xD83D\xDE00", u"file", u"", u"/\xD83D\xDE00", u"/\xD83D\xDE00", u"/\xD83D\xDE00",
         u"\xD83D\xDE00"},
    };
    for (auto const& c : cases) {
        StorageIRI const location{ustring(c.text)};
        SCOPED_TRACE(testing::PrintToString(ustring(c.text)));
        EXPECT_EQ(location.toString(), c.text);
        EXPECT_EQ(location.getScheme(), c.scheme);
        EXPECT_EQ(location.getSchemeView(), c.scheme);
        EXPECT_EQ(location.getAuthorityView(), c.authority);
        EXPECT_EQ(location.getPath(), c.path);
        EXPECT_EQ(location.getPathView(), c.path);
        EXPECT_EQ(location.hasPath(), !ustring(c.path).empty());
        EXPECT_EQ(location.getDecodedPath(), c.decoded);
        EXPECT_EQ(location.getResolvedPath(), c.resolved);
        EXPECT_EQ(location.getName(), c.name);
        EXPECT_FALSE(location.hasInnerIRI());
    }
}

TEST(LocationSyntax, QueryAndFragmentAreThereOrNot) {
    struct {
        char16_t const* text;
        bool query;
        bool fragment;
    } const cases[] = {
        {u"http://h/a", false, false},
        {u"http://h/a?", true, false},
        {u"http://h/a#", false, true},
        {u"http://h/a?#", true, true},
        {u"http://h/a#b?c", false, true},
        {u"http://h?/a", true, false},
        {u"zip:http://h/a!/b?c#d", false, false},
    };
    for (auto const& c : cases) {
        StorageIRI const location{ustring(c.text)};
        EXPECT_EQ(location.hasQuery(), c.query) << location;
        EXPECT_EQ(location.hasFragment(), c.fragment) << location;
    }
}

TEST(LocationSyntax, MalformedTextsAreRefusedWithTheReason) {
    struct {
        ustring text;
        char const* reason;
    } const cases[] = {
        {u"", "scheme"},
        {u"/a", "scheme"},
        {u"a", "scheme"},
        {u"a:/b", "scheme"},
        {u"1a:/b", "scheme"},
        {u"äb:/b", "scheme"},
        {u":/b", "scheme"},
        {u"ab", "colon"},
        {u"ab/c:/", "colon"},
        {u"ab_c:/", "colon"},
        {u"ab:", "neither a slash nor a further location"},
        {u"ab:c", "scheme"},
        {u"ab:cd", "colon"},
        {u"ab:cd:", "neither a slash nor a further location"},
        {u"ab:?q", "scheme"},
        {u"ab:1c:/", "scheme"},
        {u"file:/%", "percent"},
        {u"file:/%4", "percent"},
        {u"file:/%4g", "percent"},
        {u"file:/%g4", "percent"},
        {u"file:/%%41", "percent"},
        {u"file:/% 1", "percent"},
        {u"file:/%\xFF14\xFF11", "percent"},
        {u"http://h%/x", "percent"},
        {u"http://h/x?%", "percent"},
        {u"http://h/x#%zz", "percent"},
        {u"zip:file:/a!/%", "percent"},
        {u"zip:file:/%!/a", "percent"},
        {u"file:/a%2Fb", "slash"},
        {u"file:/a%2fb", "slash"},
        {u"http://h%2Fx/", "slash"},
        {u"zip:file:/a!/b%2Fc", "slash"},
        {u"file:/a%00b", "NUL"},
        {u"http://h/x?%00", "NUL"},
        {u"http://h%00/", "NUL"},
        {ustring(u"file:/a\0b", 9), "NUL"},
        {ustring(u"http://h/?\0", 11), "NUL"},
        {u"file:/a/%2E/b", "dot segment"},
        {u"file:/a/%2e%2E", "dot segment"},
        {u"file:/a/.%2e/", "dot segment"},
        {u"file:/%2e.", "dot segment"},
        {u"zip:file:/a!/%2e", "dot segment"},
        {u"file:/\xD800", "half a character"},
        {u"file:/\xD800x", "half a character"},
        {u"file:/\xDC7F", "half a character"},
        {u"file:/\xDD00", "half a character"},
        {u"file:/\xDC00\xD800", "half a character"},
        {u"http://h\xD800/", "half a character"},
        {u"http://h/?\xDFFF", "half a character"},
        {u"zip:file:/a!/\xD83D", "half a character"},
        {u"s3://key:secret@bucket/x", "password"},
        {u"s3://key:@bucket/x", "password"},
        {u"s3://:secret@bucket/x", "password"},
        {u"zip:s3://key:secret@bucket/x!/y", "password"},
        {u"s3://a@b@c/", "at sign"},
        {u"http://h:0/", "port"},
        {u"http://h:65536/", "port"},
        {u"http://h:99999999999999999999/", "port"},
        {u"http://h:8x/", "port"},
        {u"http://h:-1/", "port"},
        {u"http://h:1:2/", "port"},
        {u"http://h:%31/", "port"},
        {u"http://[::1/", "bracket"},
        {u"http://[::1]x/", "neither a port nor a path"},
        {u"http://a[b]/", "bracket"},
        {u"http://a]/", "bracket"},
        {u"http://[[]/", "bracket"},
    };
    for (auto const& c : cases) {
        try {
            StorageIRI const location(c.text);
            ADD_FAILURE() << "accepted " << location;
        } catch (MalformedIRIException const& e) {
            EXPECT_NE(std::string(e.what()).find(c.reason), std::string::npos)
                << testing::PrintToString(c.text) << ": " << e.what();
        }
    }
}

TEST(LocationSyntax, ARefusalNeverRepeatsTheText) {
    for (char16_t const* text :
         {u"s3://key:hunter2@bucket/x", u"s3://key:hunter2@bucket/%", u"hunter2", u"hunter2:x",
          u"s3://b:hunter2/", u"s3://[hunter2/", u"file:/hunter2%"}) {
        try {
            StorageIRI const location{ustring(text)};
            ADD_FAILURE() << "accepted " << location;
        } catch (MalformedIRIException const& e) {
            EXPECT_EQ(std::string(e.what()).find("hunter2"), std::string::npos) << e.what();
            EXPECT_EQ(fl::i18n::to_string(e.ToUstringImpl()).find("hunter2"), std::string::npos);
        }
    }
}

TEST(LocationSyntax, AQueryKeepsItsEncodedSlash) {
    StorageIRI const location(u"http://h/a?key=x%2Fy");

    EXPECT_EQ(location.toString(), u"http://h/a?key=x%2Fy");
}

TEST(LocationSyntax, StreamsGetTheTextAsStoragesSpellIt) {
    std::ostringstream out;
    out << StorageIRI(u"file:/é\xDCFF");
    EXPECT_EQ(out.str(), "file:/\xC3\xA9\xFF");
}

TEST(LocationSyntax, ReferencesStayValidWhileAnyHandleLives) {
    auto first = std::make_unique<StorageIRI>(u"zip:file:/folder/archive.zip!/inside/name.txt");
    StorageIRI const second = *first;
    ustring const& text = first->toString();
    ustring const& path = first->getPath();
    ustring const& name = first->getName();
    ustring const& resolved = first->getResolvedPath();
    std::u16string_view const scheme = first->getSchemeView();
    first.reset();

    EXPECT_EQ(&text, &second.toString());
    EXPECT_EQ(text, u"zip:file:/folder/archive.zip!/inside/name.txt");
    EXPECT_EQ(path, u"/inside/name.txt");
    EXPECT_EQ(resolved, u"/inside/name.txt");
    EXPECT_EQ(name, u"name.txt");
    EXPECT_EQ(scheme, u"zip");
}

TEST(LocationSyntax, AVeryLongTextIsRead) {
    ustring text = u"file:";
    for (int i = 0; i < 100000; ++i) {
        text += u"/segment";
    }
    StorageIRI const location(text);

    EXPECT_EQ(location.getName(), u"segment");
    EXPECT_EQ(location.getPath().size(), 800000U);
    EXPECT_EQ(StorageIRI(text + u"/%41").getName(), u"A");
}
