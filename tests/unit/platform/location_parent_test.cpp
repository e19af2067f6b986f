#include <foundation/storage/provider/storage_iri.hpp>

#include <gtest/gtest.h>

using fl::i18n::ustring;
using foundation::storage::provider::StorageIRI;

TEST(LocationParent, IsOneLevelUp) {
    struct {
        char16_t const* text;
        bool hasParent;
        char16_t const* parent;
    } const cases[] = {
        {u"file:///a/b", true, u"file:///a"},
        {u"file:///a", true, u"file:///"},
        {u"file:/a", true, u"file:/"},
        {u"file:///a/b/", true, u"file:///a"},
        {u"file:///a//b//", true, u"file:///a"},
        {u"file:////b", true, u"file:///"},
        {u"s3://b/x%20y/z", true, u"s3://b/x%20y"},
        {u"http://U@H:080/a/b?q#f", true, u"http://U@H:080/a"},
        {u"zip:file:/a!/b/c", true, u"zip:file:/a!/b"},
        {u"zip:file:/a!/b", true, u"zip:file:/a!/"},
        {u"zip:file:/a!/b!/c", true, u"zip:file:/a!/b!"},
        // The form without a path stands above a root, which has no parent.
        {u"file:/", false, u"file://"},
        {u"file:///", false, u"file://"},
        {u"file:////", false, u"file://"},
        {u"s3://b/", false, u"s3://b"},
        {u"s3://b/?q", false, u"s3://b"},
        {u"zip:file:/a!/", false, u"zip:file:/a"},
        {u"zip:zip:file:/a!/b!/", false, u"zip:zip:file:/a!/b"},
        {u"s3://b", false, u"s3://b"},
        {u"s3://b?q#f", false, u"s3://b"},
        {u"zip:file:/a", false, u"zip:file:/a"},
        // A final dot goes, and behind two dots the parent is two more dots up.
        {u"file:/a/b/.", true, u"file:/a"},
        {u"file:/a/./.", true, u"file:/"},
        {u"file:/a/b/./", true, u"file:/a"},
        {u"file:/a/b/..", true, u"file:/a/b/../.."},
        {u"file:/a/b/../", true, u"file:/a/b/../.."},
        {u"file:/a/b/../.", true, u"file:/a/b/../.."},
        {u"file:/a/../b", true, u"file:/a/.."},
        {u"file:/a/..", false, u"file://"},
        {u"file:/.", false, u"file://"},
        {u"file:/..", false, u"file://"},
    };
    for (auto const& c : cases) {
        StorageIRI const location{ustring(c.text)};
        StorageIRI const parent = location.getParent();
        SCOPED_TRACE(testing::PrintToString(ustring(c.text)));
        EXPECT_EQ(location.hasParent(), c.hasParent);
        EXPECT_EQ(parent.toString(), c.parent);
        StorageIRI const parsed(parent.toString());
        EXPECT_EQ(parent, parsed);
        EXPECT_EQ(parent.hash(), parsed.hash());
        EXPECT_EQ(parent.getResolvedPath(), parsed.getResolvedPath());
        EXPECT_EQ(parent.getAuthorityView(), location.getAuthorityView());
        EXPECT_EQ(parent.hasPath(), c.hasParent);
        EXPECT_EQ(parent.isAncestorOf(location), c.hasParent);
    }
}

TEST(LocationParent, TheWayUpEndsAtTheRoot) {
    StorageIRI at(u"file:/x/../a//./b/c/../d/..//e/.");
    int steps = 0;
    while (at.hasParent()) {
        at = at.getParent();
        ++steps;
    }

    EXPECT_EQ(steps, 3) << "a, b, e";
    EXPECT_EQ(at.getResolvedPath(), u"/");
}
