#include "bucket_fixture.hpp"

#include <foundation/storage/provider/s3/detail/encoding.hpp>
#include <foundation/storage/provider/s3/detail/endpoint.hpp>

namespace foundation::storage::provider::s3::detail {
namespace {

std::string urlOf(std::string const& bucket, std::string const& endpoint,
                  AddressingStyle style = AddressingStyle::Automatic,
                  std::string const& key = "a b") {
    S3Options options;
    options.endpoint = endpoint;
    options.addressing = style;
    return Endpoint(bucket, options).of(key, "x=1").text();
}

TEST(Endpoint, PutsTheBucketIntoTheHostWhereThatCanBe) {
    EXPECT_EQ(urlOf("bucket", ""), "https://bucket.s3.us-east-1.amazonaws.com/a%20b?x=1");
    EXPECT_EQ(urlOf("bucket", "https://s3.example.org"), "https://bucket.s3.example.org/a%20b?x=1");
    EXPECT_EQ(urlOf("a.b.c", "http://s3.example.org:8080"),
              "http://a.b.c.s3.example.org:8080/a%20b?x=1");
}

TEST(Endpoint, PutsItIntoThePathOtherwise) {
    struct Row {
        std::string bucket;
        std::string endpoint;
        std::string url;
    };
    for (Row const& row : {
             // no certificate covers it
             Row{"a.b", "https://s3.example.org", "https://s3.example.org/a.b"},
             Row{"Bucket", "https://s3.example.org", "https://s3.example.org/Bucket"},
             Row{"under_score", "https://s3.example.org", "https://s3.example.org/under_score"},
             Row{"-a-", "http://s3.example.org", "http://s3.example.org/-a-"},
             Row{"a..b", "http://s3.example.org", "http://s3.example.org/a..b"},
             Row{"ab", "http://s3.example.org", "http://s3.example.org/ab"},
             Row{"t:b", "http://s3.example.org", "http://s3.example.org/t%3Ab"},
             Row{"bucket", "http://127.0.0.1:7480", "http://127.0.0.1:7480/bucket"},
             Row{"bucket", "http://[::1]:7480", "http://[::1]:7480/bucket"},
             Row{"bucket", "http://[::1]", "http://[::1]/bucket"},
             Row{"bucket", "http://localhost:9000", "http://localhost:9000/bucket"},
         }) {
        EXPECT_EQ(urlOf(row.bucket, row.endpoint), row.url + "/a%20b?x=1");
    }
}

TEST(Endpoint, FollowsTheStyleThatIsAskedFor) {
    EXPECT_EQ(urlOf("bucket", "", AddressingStyle::Path),
              "https://s3.us-east-1.amazonaws.com/bucket/a%20b?x=1");
    EXPECT_EQ(urlOf("a.b", "https://localhost", AddressingStyle::VirtualHost),
              "https://a.b.localhost/a%20b?x=1");
    EXPECT_THROW(urlOf("Bucket", "https://s3.example.org", AddressingStyle::VirtualHost),
                 web::Failure);
}

TEST(Endpoint, KeepsThePathOfTheStoreAndLeavesOutAPortThatIsNoOther) {
    EXPECT_EQ(urlOf("bucket", "https://example.org:443/storage/v1/s3/", AddressingStyle::Path),
              "https://example.org/storage/v1/s3/bucket/a%20b?x=1");
    EXPECT_EQ(urlOf("bucket", "http://example.org:80", AddressingStyle::VirtualHost),
              "http://bucket.example.org/a%20b?x=1");
}

TEST(Endpoint, LeavesKeysAsTheyAre) {
    for (auto const& [key, path] : std::vector<std::pair<std::string, std::string>>{
             {"", ""},
             {"/a", "//a"},
             {"//b", "///b"},
             {"../a/./", "/../a/./"},
             {"?#%\x01\xff~", "/%3F%23%25%01%FF~"},
             {"+", "/%2B"},
         }) {
        EXPECT_EQ(urlOf("b", "http://h", AddressingStyle::Path, key), "http://h/b" + path + "?x=1");
    }
    EXPECT_EQ(urlOf("bucket", "http://h.example", AddressingStyle::VirtualHost, ""),
              "http://bucket.h.example/?x=1");
}

TEST(Endpoint, RefusesWhatIsNoAddress) {
    for (std::string const endpoint : {"ftp://h", "h:9000", "http://", "http://h/?q", "nonsense"}) {
        EXPECT_THROW(urlOf("bucket", endpoint), web::Failure) << endpoint;
    }
    for (std::string const bucket : {"", ".", "..", "a/b"}) {
        EXPECT_THROW(urlOf(bucket, "http://h"), web::Failure) << bucket;
    }
}

TEST(Encoding, IsUndoneByDecoding) {
    std::string all(256, '\0');
    for (std::size_t i = 0; i < all.size(); ++i) {
        all[i] = static_cast<char>(i);
    }
    EXPECT_EQ(decoded(encoded(all, Slash::Encoded)), all);
    EXPECT_EQ(decoded(encoded(all, Slash::Kept)), all);
    EXPECT_EQ(decoded("a+%2b%2B"), "a ++");
    for (char const* const malformed : {"%", "%4", "%4g", "a%"}) {
        EXPECT_EQ(decoded(malformed), std::nullopt);
    }
}

TEST(SecureStore, IsBelievedWithItsCertificateOnlyAndSentManyBytesUnhashed) {
    http::test::LyingServer const server(http::test::LyingServer::Tls::Yes);
    S3Options options;
    options.web.proxy = "";
    options.web.attempts = 1;
    options.endpoint = "https://" + server.secureAuthority();
    options.region = "eu-test-1";
    options.credentials = {"CANARYACCESS", "CANARYSECRET/+=", ""};
    Bucket const unknown("good", options);
    EXPECT_THROW(unknown.exists(unknown.deadline()), web::Failure);
    EXPECT_EQ(server.requests().size(), 0U);
    options.web.certificateFile = server.certificate();
    Bucket const bucket("good", options);
    std::string const content = http::test::content(2'000'000);
    bucket.put("a", content, {}, bucket.deadline());
    std::string read(content.size(), '?');
    bucket.read("a", 0, read, {}, bucket.deadline());
    EXPECT_TRUE(read == content);
    EXPECT_EQ(server.countOf("UNSIGNED-PAYLOAD"), 1U);
    EXPECT_EQ(server.requests().size(), 2U);
}

} // namespace
} // namespace foundation::storage::provider::s3::detail
