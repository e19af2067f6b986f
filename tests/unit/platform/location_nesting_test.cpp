#include <foundation/storage/provider/malformed_iri_exception.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <gtest/gtest.h>

#include <string>
#include <vector>

using fl::i18n::ustring;
using foundation::storage::provider::MalformedIRIException;
using foundation::storage::provider::StorageIRI;

namespace {

/// A location nested `levels` schemes deep around one of the local disk.
StorageIRI nestedToDepth(int levels) {
    StorageIRI location(u"file:///a");
    for (int i = 0; i < levels; ++i) {
        location = StorageIRI(u"zip", location, u"/x");
    }
    return location;
}

} // namespace

TEST(NestedLocation, SeparatorsBelongToTheInnermostLevelsFirst) {
    struct {
        char16_t const* text;
        char16_t const* inner;
        char16_t const* path;
    } const cases[] = {
        {u"zip:file:///a/b.zip!/c.txt", u"file:///a/b.zip", u"/c.txt"},
        {u"zip:file:/a!/", u"file:/a", u"/"},
        {u"zip:file:/a", u"file:/a", u""},
        {u"zip:file:/a!", u"file:/a!", u""},
        {u"zip:file:/a!b", u"file:/a!b", u""},
        {u"zip:file:/a!!/b", u"file:/a!", u"/b"},
        {u"zip:file:/a!/b!/c", u"file:/a", u"/b!/c"},
        {u"zip:file:/a!/!/", u"file:/a", u"/!/"},
        {u"zip:file:/a!//b", u"file:/a", u"//b"},
        {u"zip:s3://bucket!/b", u"s3://bucket", u"/b"},
        {u"zip:s3://bucket", u"s3://bucket", u""},
        {u"zip:http://h/a?q=!/b", u"http://h/a?q=", u"/b"},
        {u"zip:http://h/a?q#f!/b?c#d", u"http://h/a?q#f", u"/b?c#d"},
        {u"zip:zip:s3://bucket/o.zip!/i.zip!/c.txt", u"zip:s3://bucket/o.zip!/i.zip", u"/c.txt"},
        {u"zip:zip:file:/a!/b", u"zip:file:/a!/b", u""},
        {u"zip:zip:file:/a", u"zip:file:/a", u""},
        {u"zip:zip:file:/a!/!/b", u"zip:file:/a!/", u"/b"},
        {u"zip:zip:file:/a!/b!/c!/d", u"zip:file:/a!/b", u"/c!/d"},
        {u"zip:tar:file:/a!/b!!/c", u"tar:file:/a!/b!", u"/c"},
        {u"zip:file://!/x", u"file://", u"/x"},
    };
    for (auto const& c : cases) {
        StorageIRI const location{ustring(c.text)};
        SCOPED_TRACE(testing::PrintToString(ustring(c.text)));
        ASSERT_TRUE(location.hasInnerIRI());
        EXPECT_EQ(location.getInnerIRI().toString(), c.inner);
        EXPECT_EQ(location.getPath(), c.path);
        EXPECT_EQ(location.toString(), c.text);
        EXPECT_EQ(location.getAuthorityView(), u"");
        EXPECT_FALSE(location.hasQuery());
    }
}

TEST(NestedLocation, TheOutermostSchemeIsTheScheme) {
    StorageIRI const location(u"zip:tar:file:/a!/b!/c");

    EXPECT_EQ(location.getScheme(), u"zip");
    EXPECT_EQ(location.getInnerIRI().getScheme(), u"tar");
    EXPECT_EQ(location.getInnerIRI().getInnerIRI().getScheme(), u"file");
    EXPECT_FALSE(location.getInnerIRI().getInnerIRI().hasInnerIRI());
}

TEST(NestedLocation, QuestionMarkAndHashBehindASeparatorBelongToThePath) {
    StorageIRI const location(u"zip:file:/a!/b?c#d");

    EXPECT_EQ(location.getPath(), u"/b?c#d");
    EXPECT_EQ(location.getName(), u"b?c#d");
    EXPECT_EQ(location, StorageIRI(u"zip:file:/a!/b%3Fc%23d"));
}

TEST(NestedLocation, ComposingWritesTheSeparator) {
    struct {
        char16_t const* scheme;
        char16_t const* inner;
        char16_t const* path;
        char16_t const* text;
    } const cases[] = {
        {u"zip", u"file:///a.zip", u"/c.txt", u"zip:file:///a.zip!/c.txt"},
        {u"zip", u"file:///a.zip", u"", u"zip:file:///a.zip"},
        {u"zip", u"file:///a.zip", u"/", u"zip:file:///a.zip!/"},
        {u"zip", u"file:///a.zip", u"//x", u"zip:file:///a.zip!//x"},
        {u"zip", u"file:///a.zip", u"/x!/y", u"zip:file:///a.zip!/x!/y"},
        {u"zip", u"file:///a.zip", u"/x?y#z", u"zip:file:///a.zip!/x?y#z"},
        {u"zip", u"file:///a.zip", u"/x%20y", u"zip:file:///a.zip!/x%20y"},
        {u"zip", u"zip:file:/a!/b", u"/c", u"zip:zip:file:/a!/b!/c"},
        {u"zip", u"s3://b", u"/c", u"zip:s3://b!/c"},
        // What the inner text has of separators that are none is encoded.
        {u"zip", u"file:/a!/b", u"/c", u"zip:file:/a%21/b!/c"},
        {u"zip", u"file:/a!/b", u"", u"zip:file:/a%21/b"},
        {u"zip", u"s3://b!/x", u"/c", u"zip:s3://b%21/x!/c"},
        {u"zip", u"http://h/a?!/b#!/c!/", u"/d", u"zip:http://h/a?%21/b#%21/c%21/!/d"},
        {u"zip", u"zip:file:/a!/b!/c", u"/d", u"zip:zip:file:/a!/b%21/c!/d"},
        {u"zip", u"zip:file:/a!/b!/c", u"", u"zip:zip:file:/a!/b%21/c"},
        {u"zip", u"file:/a!!/b", u"/c", u"zip:file:/a!%21/b!/c"},
        {u"zip", u"file:/a!", u"/c", u"zip:file:/a!!/c"},
    };
    for (auto const& c : cases) {
        StorageIRI const inner{ustring(c.inner)};
        StorageIRI const location(c.scheme, inner, c.path);
        SCOPED_TRACE(testing::PrintToString(ustring(c.text)));
        EXPECT_EQ(location.toString(), c.text);
        EXPECT_EQ(location.getScheme(), c.scheme);
        EXPECT_EQ(location.getInnerIRI(), inner);
        EXPECT_EQ(location.getInnerIRI().hash(), inner.hash());
        EXPECT_EQ(location.getPath(), c.path);
        StorageIRI const parsed(location.toString());
        EXPECT_EQ(parsed, location);
        EXPECT_EQ(parsed.hash(), location.hash());
        EXPECT_EQ(parsed.getInnerIRI().toString(), location.getInnerIRI().toString());
        EXPECT_EQ(parsed.getPath(), c.path);
    }
}

TEST(NestedLocation, ComposingRefusesWhatCannotBeWritten) {
    StorageIRI const flat(u"file:/a");
    StorageIRI const pathless(u"zip:file:/a");

    EXPECT_THROW(StorageIRI(u"", flat, u"/x"), MalformedIRIException);
    EXPECT_THROW(StorageIRI(u"z", flat, u"/x"), MalformedIRIException);
    EXPECT_THROW(StorageIRI(u"1zip", flat, u"/x"), MalformedIRIException);
    EXPECT_THROW(StorageIRI(u"zip:", flat, u"/x"), MalformedIRIException);
    EXPECT_THROW(StorageIRI(u"zi p", flat, u"/x"), MalformedIRIException);
    EXPECT_THROW(StorageIRI(u"zip", flat, u"x"), MalformedIRIException);
    EXPECT_THROW(StorageIRI(u"zip", flat, u"!/x"), MalformedIRIException);
    EXPECT_THROW(StorageIRI(u"zip", flat, u"/%"), MalformedIRIException);
    EXPECT_THROW(StorageIRI(u"zip", flat, u"/%2F"), MalformedIRIException);
    EXPECT_THROW(StorageIRI(u"zip", flat, u"/\xD800"), MalformedIRIException);
    EXPECT_THROW(StorageIRI(u"zip", flat, ustring(u"/\0", 2)), MalformedIRIException);
    EXPECT_THROW(StorageIRI(u"zip", pathless, u"/x"), MalformedIRIException);
    EXPECT_NO_THROW(StorageIRI(u"zip", pathless, u""));
}

TEST(NestedLocation, ThirtyTwoLevelsAreAllowedAndNoMore) {
    StorageIRI const deepest = nestedToDepth(32);
    StorageIRI const parsed(deepest.toString());

    EXPECT_EQ(parsed, deepest);
    EXPECT_THROW(StorageIRI(u"zip", deepest, u"/x"), MalformedIRIException);
    EXPECT_THROW(StorageIRI(u"zip:" + deepest.toString()), MalformedIRIException);
    EXPECT_EQ(StorageIRI(deepest, u"y").getName(), u"y");

    int levels = 0;
    for (StorageIRI at = parsed; at.hasInnerIRI(); at = at.getInnerIRI()) {
        ++levels;
    }
    EXPECT_EQ(levels, 32);
}

TEST(NestedLocation, AHostileChainOfSchemesIsRefusedAtOnce) {
    ustring text;
    for (int i = 0; i < 1000000; ++i) {
        text += u"zip:";
    }
    EXPECT_THROW(StorageIRI(text + u"file:/a"), MalformedIRIException);
}

TEST(NestedLocation, TheInnerTextIsSharedWhereNothingHadToBeEncoded) {
    StorageIRI const inner(u"file:///folder/archive.zip");
    StorageIRI const outer(u"zip", inner, u"/x");

    EXPECT_EQ(&outer.getInnerIRI().toString(), &inner.toString());
}
