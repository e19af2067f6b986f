#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/malformed_iri_exception.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <gtest/gtest.h>

#include <string>

using fl::i18n::ustring;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::MalformedIRIException;
using foundation::storage::provider::StorageIRI;

namespace {

/// Everything that a composed location answers has to be what its text says.
void expectAsParsed(StorageIRI const& composed) {
    StorageIRI const parsed(composed.toString());
    SCOPED_TRACE(testing::PrintToString(composed.toString()));
    EXPECT_EQ(composed, parsed);
    EXPECT_EQ(composed.hash(), parsed.hash());
    EXPECT_EQ(composed.getPath(), parsed.getPath());
    EXPECT_EQ(composed.getDecodedPath(), parsed.getDecodedPath());
    EXPECT_EQ(composed.getResolvedPath(), parsed.getResolvedPath());
    EXPECT_EQ(composed.getName(), parsed.getName());
    EXPECT_EQ(composed.getAuthorityView(), parsed.getAuthorityView());
    EXPECT_EQ(composed.hasQuery(), parsed.hasQuery());
    EXPECT_EQ(composed.hasFragment(), parsed.hasFragment());
    EXPECT_EQ(composed.hasInnerIRI(), parsed.hasInnerIRI());
}

} // namespace

TEST(LocationChild, IsTheNameInTheFolder) {
    struct {
        char16_t const* base;
        char16_t const* name;
        char16_t const* text;
    } const cases[] = {
        {u"file:///a", u"b.txt", u"file:///a/b.txt"},
        {u"file:/", u"b", u"file:/b"},
        {u"file:///", u"b", u"file:///b"},
        {u"file:///a/", u"b", u"file:///a/b"},
        {u"file:///a//", u"b", u"file:///a//b"},
        {u"file:///a/..", u"b", u"file:///a/../b"},
        {u"file:///a", u"b/c", u"file:///a/b/c"},
        {u"file:///a", u"b//c/", u"file:///a/b//c/"},
        {u"file:///%61", u"b", u"file:///%61/b"},
        {u"file://", u"b", u"file:///b"},
        {u"s3://Bucket", u"b", u"s3://Bucket/b"},
        {u"s3://u@Bucket:080/x%20y", u"b", u"s3://u@Bucket:080/x%20y/b"},
        {u"http://h/a?q#f", u"b", u"http://h/a/b"},
        {u"http://h?q", u"b", u"http://h/b"},
        {u"zip:file:///a.zip", u"b", u"zip:file:///a.zip!/b"},
        {u"zip:file:///a.zip!/", u"b", u"zip:file:///a.zip!/b"},
        {u"zip:file:///a.zip!/x?y", u"b", u"zip:file:///a.zip!/x?y/b"},
        {u"zip:zip:file:///a!/b", u"c", u"zip:zip:file:///a!/b!/c"},
        {u"zip:http://h/a?q!/x", u"b", u"zip:http://h/a?q!/x/b"},
        // Encoded where it must be, and nothing else.
        {u"file:///a", u"50%", u"file:///a/50%25"},
        {u"file:///a", u"a%41", u"file:///a/a%2541"},
        {u"file:///a", u"what?", u"file:///a/what%3F"},
        {u"file:///a", u"#1", u"file:///a/%231"},
        {u"file:///a", u"a\nb\x7F", u"file:///a/a%0Ab%7F"},
        {u"file:///a", u"\u0085", u"file:///a/%C2%85"},
        {u"file:///a", u"é \xD83D\xDE00!:@[]\\", u"file:///a/é \xD83D\xDE00!:@[]\\"},
        {u"file:///a", u"b!/c", u"file:///a/b!/c"},
        {u"file:///a", u"\xDCFFx", u"file:///a/%FFx"},
        {u"file:///a", u"...", u"file:///a/..."},
        {u"file:///a", u".hidden", u"file:///a/.hidden"},
        {u"file:///a", u"zip:file:", u"file:///a/zip:file:"},
        {u"zip:file:///a.zip!/d", u"x?", u"zip:file:///a.zip!/d/x%3F"},
    };
    for (auto const& c : cases) {
        StorageIRI const base{ustring(c.base)};
        StorageIRI const child(base, c.name);
        EXPECT_EQ(child.toString(), c.text);
        if (ustring(c.name).find(u'/') == ustring::npos) {
            EXPECT_EQ(child.getName(), c.name);
        }
        expectAsParsed(child);
    }
}

TEST(LocationChild, NameOfARelativePathIsItsLastSegment) {
    StorageIRI const base(u"file:///a");

    EXPECT_EQ(StorageIRI(base, u"b/c").getName(), u"c");
    EXPECT_EQ(StorageIRI(base, u"b/c//").getName(), u"c");
    EXPECT_EQ(StorageIRI(base, u"b//c%").getResolvedPath(), u"/a/b/c%");
}

TEST(LocationChild, AnAbsoluteNameReplacesThePath) {
    struct {
        char16_t const* base;
        char16_t const* name;
        char16_t const* text;
    } const cases[] = {
        {u"file:///a/b", u"/c", u"file:///c"},
        {u"file:/a", u"/", u"file:/"},
        {u"file:/a", u"//c", u"file:////c"},
        {u"file:///a", u"//c", u"file:////c"},
        {u"file:/a", u"/c/../d/.", u"file:/c/../d/."},
        {u"s3://b/x", u"/50%", u"s3://b/50%25"},
        {u"s3://b", u"/x", u"s3://b/x"},
        {u"http://U@H:80/x?q#f", u"/y?", u"http://U@H:80/y%3F"},
        {u"zip:file:/a!/b", u"/c!/d", u"zip:file:/a!/c!/d"},
        {u"zip:file:/a", u"/c", u"zip:file:/a!/c"},
        {u"zip:file:/a!/b", u"//c", u"zip:file:/a!//c"},
        {u"file:/a", u"/\xDCC3\xDCA9\xDCFF", u"file:/é%FF"},
    };
    for (auto const& c : cases) {
        StorageIRI const location(StorageIRI{ustring(c.base)}, c.name);
        EXPECT_EQ(location.toString(), c.text);
        expectAsParsed(location);
    }
}

TEST(LocationChild, TheResolvedPathAsNameGivesTheResolvedLocation) {
    for (char16_t const* text : {u"file:/a/../b/./c%25", u"s3://b/x//y/", u"zip:file:/a!/b/../c?",
                                 u"file:/../..", u"file:/%FF/.."}) {
        StorageIRI const location{ustring(text)};
        StorageIRI const resolved(location, location.getResolvedPath());
        EXPECT_EQ(resolved.getResolvedPath(), location.getResolvedPath()) << location;
        EXPECT_EQ(resolved.getDecodedPath(), location.getResolvedPath()) << location;
        EXPECT_EQ(resolved, location.withResolvedPath()) << location;
        expectAsParsed(resolved);
    }
}

TEST(LocationChild, AnEmptyNameGivesTheBaseWithoutQueryAndFragment) {
    StorageIRI const plain(u"file:///a/b");
    EXPECT_EQ(&StorageIRI(plain, u"").toString(), &plain.toString());

    EXPECT_EQ(StorageIRI(StorageIRI(u"http://h/a?q#f"), u"").toString(), u"http://h/a");
    EXPECT_EQ(StorageIRI(StorageIRI(u"http://h?q"), u"").toString(), u"http://h");
    expectAsParsed(StorageIRI(StorageIRI(u"http://U@H:01/%61/..?q#f"), u""));
}

TEST(LocationChild, ANameThatClimbsIsRefusedNamingTheBase) {
    StorageIRI const base(u"file:///a");
    for (char16_t const* name :
         {u".", u"..", u"../b", u"./b", u"b/..", u"b/../c", u"b/./c", u"b/.", u"b//.."}) {
        try {
            StorageIRI const child(base, name);
            ADD_FAILURE() << "accepted " << child;
        } catch (foundation::storage::provider::Exception const& e) {
            EXPECT_EQ(e.getErrorCode(), ErrorCode::InvalidLocation);
            EXPECT_EQ(e.getStorageIRI().toString(), base.toString());
        }
    }
}

TEST(LocationChild, NamesThatNoTextHoldsAreMalformed) {
    StorageIRI const base(u"file:///a");

    EXPECT_THROW(StorageIRI(base, ustring(u"a\0b", 3)), MalformedIRIException);
    EXPECT_THROW(StorageIRI(base, ustring(u"/a\0b", 4)), MalformedIRIException);
    EXPECT_THROW(StorageIRI(base, u"\xD800"), MalformedIRIException);
    EXPECT_THROW(StorageIRI(base, u"x\xDC7Fy"), MalformedIRIException);
    EXPECT_THROW(StorageIRI(base, u"/\xDD00"), MalformedIRIException);
    EXPECT_THROW(StorageIRI(StorageIRI(u"zip:zip:file:/a"), u"x"), MalformedIRIException);
    EXPECT_THROW(StorageIRI(StorageIRI(u"zip:zip:file:/a"), u"/x"), MalformedIRIException);
}

TEST(LocationChild, UnitsThatFormACharacterAreTheSameNameAsTheCharacter) {
    StorageIRI const base(u"file:///a");
    StorageIRI const fromUnits(base, u"\xDCC3\xDCA9");

    EXPECT_EQ(fromUnits.getName(), u"é");
    EXPECT_EQ(fromUnits, StorageIRI(base, u"é"));
    EXPECT_EQ(fromUnits.hash(), StorageIRI(base, u"é").hash());
}

TEST(LocationChild, AChildOfAnOddlySpelledFolderIsAsParsed) {
    for (char16_t const* text :
         {u"file:/a/../b", u"file:/a/./", u"file:/%2541/..", u"file:/x%20y//", u"file:/..",
          u"S3://U%40@BUCKET:0080/a%FF/", u"http://h/?q%2F", u"http://h/..#x",
          u"zip:file:/a%21!/b%21/..", u"zip:s3://B!/", u"zip:S3://B"}) {
        StorageIRI const base{ustring(text)};
        for (char16_t const* name : {u"plain", u"with space", u"%", u"é\xDCFF", u"x/y//z/",
                                     u"a name longer than any small buffer", u"!", u"!/x"}) {
            StorageIRI const child(base, name);
            expectAsParsed(child);
            expectAsParsed(StorageIRI(child, u"below"));
            EXPECT_TRUE(!base.hasPath() || base.isAncestorOf(child)) << child;
        }
    }
}
