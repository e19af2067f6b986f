#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/local_path.hpp>
#include <foundation/storage/provider/malformed_iri_exception.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <gtest/gtest.h>

#include <string>

using fl::filesystem::path;
using fl::i18n::ustring;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::fromLocalPath;
using foundation::storage::provider::fromStorageIRI;
using foundation::storage::provider::MalformedIRIException;
using foundation::storage::provider::StorageIRI;
using foundation::storage::provider::toLocalPath;
using foundation::storage::provider::toStorageIRI;

TEST(PlainText, IsAPathOfTheLocalDisk) {
    struct {
        char16_t const* text;
        char const* base;
        char16_t const* location;
    } const cases[] = {
        {u"/a/b", "/base", u"file:///a/b"},
        {u"a", "/base", u"file:///base/a"},
        {u"a/b/", "/base/", u"file:///base/a/b"},
        {u"a", "/", u"file:///a"},
        {u".", "/base", u"file:///base"},
        {u"./a/./b", "/base", u"file:///base/a/b"},
        {u"..", "/base", u"file:///base/.."},
        {u"../a", "/base", u"file:///base/../a"},
        {u"a/../b", "/base", u"file:///base/a/../b"},
        {u"/a/../b/.", "/base", u"file:///a/../b/."},
        {u"50% off?#1", "/base", u"file:///base/50%25 off%3F%231"},
        {u"%41", "/base", u"file:///base/%2541"},
        {u"a:b", "/base", u"file:///base/a:b"},
        {u"C:/x", "/base", u"file:///base/C:/x"},
        {u"zip:a.zip!/x", "/base", u"file:///base/zip:a.zip!/x"},
        {u"é\xDCFF", "/b\xFF", u"file:///b%FF/é%FF"},
        {u"//a", "/base", u"file:////a"},
    };
    for (auto const& c : cases) {
        StorageIRI const location = toStorageIRI(c.text, c.base);
        EXPECT_EQ(location.toString(), c.location);
        EXPECT_EQ(location, StorageIRI{ustring(c.location)});
    }
}

TEST(PlainText, IsRelativeToTheWorkingDirectoryWhereThereIsNoOtherBase) {
    path const here = fl::filesystem::current_path();

    EXPECT_EQ(toStorageIRI(u"x", {}), StorageIRI(fromLocalPath(here.native()), u"x"));
    EXPECT_EQ(toStorageIRI(u"x", "sub"), StorageIRI(fromLocalPath(here.native()), u"sub/x"));
}

TEST(PlainText, ThatNamesNothingIsMalformed) {
    EXPECT_THROW(toStorageIRI(u"", "/base"), MalformedIRIException);
    EXPECT_THROW(toStorageIRI(ustring(u"a\0b", 3), "/base"), MalformedIRIException);
    EXPECT_THROW(toStorageIRI(u"a\xD800", "/base"), MalformedIRIException);
}

TEST(PlainText, WithAPrefixIsALocationWhateverTheBase) {
    EXPECT_EQ(toStorageIRI(u"s3://b/x", "/base").toString(), u"s3://b/x");
    EXPECT_EQ(toStorageIRI(u"zip:file:/a!/b", "/base").toString(), u"zip:file:/a!/b");
    EXPECT_THROW(toStorageIRI(u"s3://b/%", "/base"), MalformedIRIException);
    EXPECT_FALSE(toStorageIRI(u"s3://b", "/base").hasPath());
}

TEST(FromLocation, GivesAPlainPathForTheLocalDiskAndTheTextForTheRest) {
    struct {
        char16_t const* location;
        char16_t const* text;
    } const cases[] = {
        {u"file:///a%20b/c", u"/a b/c"},
        {u"file:/a/../b", u"/a/../b"},
        {u"file:/%FF%25", u"/\xDCFF%"},
        {u"file:/a/./b", u"/a/./b"},
        {u"file:/", u"/"},
        {u"file://", u"file://"},
        {u"file://host/a", u"file://host/a"},
        {u"file:/a?q", u"file:/a?q"},
        {u"file:/a#f", u"file:/a#f"},
        {u"s3://b/a%20b", u"s3://b/a%20b"},
        {u"zip:file:/a!/b%20", u"zip:file:/a!/b%20"},
    };
    for (auto const& c : cases) {
        StorageIRI const location{ustring(c.location)};
        EXPECT_EQ(fromStorageIRI(location), c.text);
        EXPECT_EQ(toStorageIRI(fromStorageIRI(location), "/base"), location);
    }
}

TEST(LocalPath, IsWhatTheKernelTakes) {
    struct {
        char16_t const* location;
        char const* path;
    } const cases[] = {
        {u"file:///a/b", "/a/b"},
        {u"file:/a/../b/.", "/a/../b/."},
        {u"file:/a//b/", "/a/b"},
        {u"file:/", "/"},
        {u"file:/%C3%A9%FF", "/\xC3\xA9\xFF"},
        {u"file:/é\xDCFF", "/\xC3\xA9\xFF"},
        {u"file:/%25%3F%23%0A", "/%?#\n"},
        {u"file://LOCALHOST/a", "/a"},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(toLocalPath(StorageIRI{ustring(c.location)}), c.path);
    }
}

TEST(LocalPath, IsRefusedWhereThereIsNone) {
    for (char16_t const* text :
         {u"file://", u"file://host/a", u"file://me@localhost/a", u"file://localhost:1/a",
          u"file:/a?q", u"file:/a#f", u"mem:/a", u"FILE:/a", u"zip:file:/a!/b"}) {
        StorageIRI const location{ustring(text)};
        try {
            toLocalPath(location);
            ADD_FAILURE() << "accepted " << location;
        } catch (foundation::storage::provider::Exception const& e) {
            EXPECT_EQ(e.getErrorCode(), ErrorCode::InvalidLocation);
            EXPECT_EQ(e.getStorageIRI().toString(), text);
        }
    }
}

TEST(LocalPath, EveryPathBecomesALocationAndComesBack) {
    for (char const* text : {"/", "/a", "/a b/%/?#!", "/\xFF/\xC3\xA9/\xC3", "/a/../b", "/...",
                             "/zip:file:", "/a\nb", "/\xED\xA0\x80"}) {
        EXPECT_EQ(toLocalPath(fromLocalPath(text)), text);
        EXPECT_EQ(fromLocalPath(text), StorageIRI(fromLocalPath(text).toString()));
    }
    EXPECT_EQ(fromLocalPath("/a%\xFF").toString(), u"file:///a%25%FF");
}

TEST(LocalPath, NeedsAnAbsolutePathWithoutANul) {
    EXPECT_THROW(fromLocalPath(""), MalformedIRIException);
    EXPECT_THROW(fromLocalPath("a"), MalformedIRIException);
    EXPECT_THROW(fromLocalPath(std::string_view("/a\0b", 4)), MalformedIRIException);
}
