#include <foundation/network/iri.hpp>
#include <foundation/storage/provider/malformed_iri_exception.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <utility>

using foundation::network::IRI;
using foundation::network::IRIArgs;
using foundation::storage::provider::MalformedIRIException;
using foundation::storage::provider::StorageIRI;

namespace {

IRIArgs argsOf(std::wstring const& scheme, std::wstring const& path) {
    IRIArgs args;
    args.scheme = scheme;
    args.hasScheme = true;
    args.path = path;
    args.hasPath = true;
    return args;
}

} // namespace

TEST(Iri, KeepsItsParts) {
    IRIArgs args = argsOf(L"s3", L"/p");
    args.host = L"bucket";
    args.hasHost = true;

    IRI const iri(args);
    IRI const copy = iri;
    IRIArgs const back(copy);

    EXPECT_EQ(back.scheme, L"s3");
    EXPECT_TRUE(back.hasScheme);
    EXPECT_EQ(back.host, L"bucket");
    EXPECT_TRUE(back.hasHost);
    EXPECT_EQ(back.path, L"/p");
    EXPECT_FALSE(back.hasQuery);
}

TEST(Iri, ChangingTheArgumentsAfterwardsChangesNothing) {
    IRIArgs args = argsOf(L"file", L"/a");
    IRI const iri(args);
    args.path = L"/b";

    EXPECT_EQ(iri.args().path, L"/a");
}

TEST(Iri, IsAValue) {
    IRI first(argsOf(L"s3", L"/p"));
    IRI const second(argsOf(L"mem", L"/q"));
    IRI const copy(first);
    first = second;
    EXPECT_EQ(copy.args().path, L"/p");
    EXPECT_EQ(first.args().scheme, L"mem");
    IRI moved(std::move(first));
    EXPECT_EQ(moved.args().path, L"/q");
    moved = IRI(copy);
    EXPECT_EQ(moved.args().scheme, L"s3");
}

TEST(LocationFromParts, WritesEveryPartInItsPlace) {
    IRIArgs args = argsOf(L"http", L"/p");
    args.userInformation = L"me";
    args.hasUserInformation = true;
    args.host = L"example.org";
    args.hasHost = true;
    args.port = 8080;
    args.hasPort = true;
    args.query = L"q=1";
    args.hasQuery = true;
    args.fragment = L"f";
    args.hasFragment = true;

    EXPECT_EQ(StorageIRI(IRI(args)).toString(), u"http://me@example.org:8080/p?q=1#f");
}

TEST(LocationFromParts, SchemeAndRootMakeTheKeyOfAScheme) {
    StorageIRI const key{IRI(argsOf(L"file", L"/"))};

    EXPECT_EQ(key.toString(), u"file:/");
    EXPECT_EQ(key, StorageIRI(u"file:///"));
    EXPECT_EQ(key.getPath(), u"/");
}

TEST(LocationFromParts, APartWithoutItsFlagIsNotThere) {
    IRIArgs args = argsOf(L"file", L"/a");
    args.query = L"q";
    args.port = 1;
    args.host = L"h";

    EXPECT_EQ(StorageIRI(IRI(args)).toString(), u"file:/a");
    args.hasPath = false;
    EXPECT_FALSE(StorageIRI(IRI(args)).hasPath());
    EXPECT_EQ(StorageIRI(IRI(args)).toString(), u"file://");
}

TEST(LocationFromParts, ANestedLocationIsASchemeAndAPath) {
    StorageIRI const nested(u"zip:http://h/a?q!/b?c#d");
    IRIArgs const args(nested.toIRI());

    EXPECT_EQ(args.scheme, L"zip");
    EXPECT_EQ(args.path, L"http://h/a?q!/b?c#d");
    EXPECT_FALSE(args.hasHost);
    EXPECT_FALSE(args.hasQuery);
    EXPECT_EQ(StorageIRI(IRI(args)), nested);
}

TEST(LocationFromParts, RoundTripKeepsEveryShape) {
    for (char16_t const* text :
         {u"file:/a", u"file:///a", u"file:////a", u"file://", u"s3://b", u"s3://b/", u"s3://b?q",
          u"s3://b/?", u"s3://b/#", u"s3://u@B:80/a%20b", u"s3://@b:/x", u"http://[::1]:80/x",
          u"http://h/a?x%2Fy#z%23", u"zip:file:///a", u"zip:file:///a!/",
          u"zip:zip:s3://b/o!/i!/x?y", u"file:///é\xD83D\xDE00\xDC80%FF"}) {
        StorageIRI const location{fl::i18n::ustring(text)};
        StorageIRI const back(location.toIRI());
        EXPECT_EQ(back, location) << location;
        EXPECT_EQ(back.hash(), location.hash()) << location;
        EXPECT_EQ(back.getPath(), location.getPath()) << location;
    }
}

TEST(LocationFromParts, RefusesPartsThatWouldReadAsOthers) {
    auto const with = [](std::function<void(IRIArgs&)> const& change) {
        IRIArgs args = argsOf(L"http", L"/p");
        args.host = L"h";
        args.hasHost = true;
        change(args);
        return IRI(args);
    };
    struct {
        char const* what;
        std::function<void(IRIArgs&)> change;
    } const cases[] = {
        {"no scheme", [](IRIArgs& a) { a.hasScheme = false; }},
        {"empty scheme", [](IRIArgs& a) { a.scheme.clear(); }},
        {"one-letter scheme", [](IRIArgs& a) { a.scheme = L"c"; }},
        {"scheme with a colon", [](IRIArgs& a) { a.scheme = L"zip:file"; }},
        {"host with a slash", [](IRIArgs& a) { a.host = L"h/x"; }},
        {"host with a port", [](IRIArgs& a) { a.host = L"h:80"; }},
        {"host with a user", [](IRIArgs& a) { a.host = L"u@h"; }},
        {"host with a query", [](IRIArgs& a) { a.host = L"h?q"; }},
        {"host with an open bracket", [](IRIArgs& a) { a.host = L"[::1"; }},
        {"user with a host",
         [](IRIArgs& a) {
             a.userInformation = L"u@x";
             a.hasUserInformation = true;
         }},
        {"user with a password",
         [](IRIArgs& a) {
             a.userInformation = L"u:p";
             a.hasUserInformation = true;
         }},
        {"user with a slash",
         [](IRIArgs& a) {
             a.userInformation = L"u/p";
             a.hasUserInformation = true;
         }},
        {"port nought", [](IRIArgs& a) { a.hasPort = true; }},
        {"path with a query", [](IRIArgs& a) { a.path = L"/a?b"; }},
        {"path with a fragment", [](IRIArgs& a) { a.path = L"/a#b"; }},
        {"relative path beside a host", [](IRIArgs& a) { a.path = L"file:/a"; }},
        {"relative path",
         [](IRIArgs& a) {
             a.hasHost = false;
             a.path = L"a";
         }},
        {"query with a fragment",
         [](IRIArgs& a) {
             a.query = L"a#b";
             a.hasQuery = true;
         }},
        {"bad percent sign", [](IRIArgs& a) { a.path = L"/%4"; }},
        {"half a character", [](IRIArgs& a) { a.path = L"/\xD800"; }},
        {"halves of a character",
         [](IRIArgs& a) {
             a.path = std::wstring{L'/', wchar_t{0xD83D}, wchar_t{0xDC80}};
         }},
        {"beyond Unicode",
         [](IRIArgs& a) {
             a.path = std::wstring{L'/', wchar_t{0x110000}};
         }},
    };
    for (auto const& c : cases) {
        EXPECT_THROW(StorageIRI{with(c.change)}, MalformedIRIException) << c.what;
    }
}
