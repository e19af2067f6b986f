// Any bytes as an answer of an object store: they are refused, or what is taken from them fits the
// question, and holds no secret that was sent back. The first byte says which document they are.

#include "require.hpp"

#include <foundation/storage/provider/s3/detail/key_pages.hpp>
#include <foundation/storage/provider/s3/detail/s3_xml.hpp>
#include <foundation/storage/provider/s3/detail/store_failure.hpp>

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

namespace s3 = foundation::storage::provider::s3;
namespace web = foundation::storage::provider::web;
using namespace s3::detail;

namespace {

/// It is sent back in a field of a request.
void requireTag(std::string const& tag) {
    require(std::all_of(tag.begin(), tag.end(), [](char c) { return c > ' ' && c <= '~'; }));
    require(tag.empty() || tag.ends_with('"'));
}

void readListing(std::string document, ListQuery const& query) {
    ListPage const page = listPageIn(std::move(document), query);
    require(page.objects.size() + page.prefixes.size() <= query.mostKeys);
    require(page.continuation.empty() || page.continuation != query.continuation);
    for (ListedObject const& object : page.objects) {
        require(object.key.starts_with(query.prefix));
        require(query.startAfter.empty() || object.key > query.startAfter);
        std::string_view const below = std::string_view(object.key).substr(query.prefix.size());
        require(!query.isDelimited || below.find('/') == std::string_view::npos);
        requireTag(object.eTag);
    }
    for (std::string const& prefix : page.prefixes) {
        require(query.isDelimited && prefix.starts_with(query.prefix) && prefix.ends_with('/'));
        std::string_view const below = std::string_view(prefix).substr(query.prefix.size());
        require(below.find('/') + 1 == below.size());
    }
    ListingCourse course;
    std::string_view last;
    for (ListedObject const& object : page.objects) {
        require(course.take(object.key) == (object.key > last));
        last = object.key;
    }
    course.endPage(page.continuation);
    require(course.isAtEnd() == page.continuation.empty());
}

void readError(std::string_view document) {
    s3::Credentials const credentials{"CANARYACCESS", "CANARYSECRETKEY", "CANARYTOKEN"};
    for (int const status : {200, 400, 503}) {
        auto const failure = failureOf(status, {}, document, credentials);
        require(failure || status == 200);
        if (failure) {
            std::string_view const text = failure->what();
            for (std::string const& secret :
                 {credentials.accessKey, credentials.secretKey, credentials.sessionToken}) {
                require(text.find(secret) == std::string_view::npos);
            }
            require(text.size() < 400);
        }
    }
}

void read(char kind, std::string document) {
    switch (kind) {
    case 'l':
        readListing(std::move(document), {.prefix = "a/", .startAfter = "a/b", .mostKeys = 5});
        break;
    case 'd':
        readListing(std::move(document),
                    {.prefix = "a/", .isDelimited = true, .continuation = "token", .mostKeys = 5});
        break;
    case 'e':
        readError(document);
        break;
    case 'r':
        refusedRemovalsIn(std::move(document));
        break;
    case 'u':
        uploadsIn(std::move(document));
        break;
    case 'b':
        require(!uploadIn(std::move(document)).empty());
        break;
    default:
        std::string const tag = tagIn(std::move(document), "CopyObjectResult");
        require(!tag.empty());
        requireTag(tag);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    try {
        read(static_cast<char>(bytes[0]),
             std::string(reinterpret_cast<char const*>(bytes) + 1, size - 1));
    } catch (web::Failure const&) {
    }
    return 0;
}
