// Against a real store, where the environment names one: VFS_TEST_S3_ENDPOINT,
// VFS_TEST_S3_ACCESS_KEY, VFS_TEST_S3_SECRET_KEY and VFS_TEST_S3_BUCKET, a bucket that is there.
// Everything stands under a prefix of its own, and is removed behind each test.

#include "remote/server.hpp"

#include <foundation/storage/provider/s3/detail/bucket.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace foundation::storage::provider::s3::detail {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::string variable(char const* name) {
    char const* const value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nobody sets it
    return value ? value : "";
}

std::string bytes(std::size_t size, unsigned seed = 1) {
    std::minstd_rand random(seed);
    std::string result(size, '\0');
    std::generate(result.begin(), result.end(), [&] { return static_cast<char>(random() >> 8); });
    return result;
}

S3Options gatewayOptions() {
    S3Options options;
    options.web.proxy = "";
    options.endpoint = variable("VFS_TEST_S3_ENDPOINT");
    options.region = "default";
    options.addressing = AddressingStyle::Path;
    options.credentials.accessKey = variable("VFS_TEST_S3_ACCESS_KEY");
    options.credentials.secretKey = variable("VFS_TEST_S3_SECRET_KEY");
    return options;
}

class BucketAtGateway : public ::testing::Test {
  protected:
    void SetUp() override {
        VFS_NEEDS_SERVER("VFS_TEST_S3_ENDPOINT");
        bucket_ = std::make_unique<Bucket>(variable("VFS_TEST_S3_BUCKET"), gatewayOptions());
        prefix_ = "bucket-test-" + std::to_string(std::random_device{}()) + '/';
    }
    void TearDown() override {
        if (!bucket_) {
            return;
        }
        EXPECT_THAT(bucket_->listUploads(prefix_, deadline()), IsEmpty());
        std::vector<std::string> const keys = listed();
        for (std::size_t i = 0; i < keys.size(); i += 1000) {
            bucket_->remove(
                std::span(keys).subspan(i, std::min<std::size_t>(1000, keys.size() - i)),
                deadline());
        }
        EXPECT_THAT(listed(), IsEmpty());
    }

    Bucket::Deadline deadline() const { return bucket_->deadline(); }
    std::string at(std::string const& name) const { return prefix_ + name; }
    /// All pages, without the prefix of the test where `isShort`.
    std::vector<std::string> listed(unsigned pageSize = 1000) const {
        ListQuery query;
        query.prefix = prefix_;
        query.mostKeys = pageSize;
        std::vector<std::string> keys;
        do {
            ListPage const page = bucket_->list(query, deadline());
            for (ListedObject const& object : page.objects) {
                keys.push_back(object.key);
            }
            query.continuation = page.continuation;
        } while (!query.continuation.empty());
        return keys;
    }
    std::string put(std::string const& name, std::string const& content) const {
        return bucket_->put(at(name), content, {}, deadline());
    }
    std::string get(std::string const& name) const {
        std::string content(std::size_t{1} << 24, '\0');
        ObjectHead const head = bucket_->read(at(name), 0, content, {}, deadline());
        content.resize(std::min<std::size_t>(content.size(), head.size));
        return content;
    }
    template<class Call>
    static int codeOf(Call const& call) {
        try {
            call();
        } catch (web::Failure const& failure) {
            return static_cast<int>(failure.code());
        }
        return -1;
    }

    std::unique_ptr<Bucket> bucket_;
    std::string prefix_;
};

TEST_F(BucketAtGateway, TellsWhetherABucketIsThere) {
    EXPECT_TRUE(bucket_->exists(deadline()));
    EXPECT_FALSE(Bucket("no-such-bucket-here", gatewayOptions()).exists(deadline()));
}

TEST_F(BucketAtGateway, KeepsWhatIsPut) {
    std::string const content = bytes(3'000'000);
    std::string const tag = put("a", content);
    auto const head = bucket_->head(at("a"), deadline());
    ASSERT_TRUE(head);
    EXPECT_EQ(head->size, content.size());
    EXPECT_EQ(head->eTag, tag);
    EXPECT_GT(head->lastModified, 1'600'000'000'000'000'000);
    EXPECT_EQ(get("a"), content);
    EXPECT_FALSE(bucket_->head(at("b"), deadline()));
}

TEST_F(BucketAtGateway, ReadsRanges) {
    std::string const content = bytes(100'000);
    std::string const tag = put("a", content);
    for (auto const& [offset, size] :
         std::vector<std::pair<std::size_t, std::size_t>>{{0, 1},
                                                          {5, 10},
                                                          {99'990, 10},
                                                          {99'990, 100},
                                                          {99'999, 1},
                                                          {100'000, 5},
                                                          {200'000, 5}}) {
        std::string buffer(size, '?');
        ObjectHead const head = bucket_->read(at("a"), offset, buffer, tag, deadline());
        EXPECT_EQ(head.size, content.size());
        EXPECT_EQ(head.eTag, tag);
        std::string const expected =
            offset < content.size() ? content.substr(offset, size) : std::string();
        EXPECT_EQ(buffer.substr(0, expected.size()), expected) << offset;
        EXPECT_EQ(buffer.substr(expected.size()), std::string(size - expected.size(), '?'));
    }
}

TEST_F(BucketAtGateway, ReadsAnEmptyObject) {
    put("empty", "");
    EXPECT_EQ(get("empty"), "");
}

TEST_F(BucketAtGateway, ReadsNoOtherVersionThanTheOneNamed) {
    std::string const tag = put("a", "one");
    put("a", "two");
    std::string buffer(3, '?');
    EXPECT_EQ(codeOf([&] { bucket_->read(at("a"), 0, buffer, tag, deadline()); }), 9);
    EXPECT_EQ(codeOf([&] { bucket_->read(at("a"), 7, buffer, tag, deadline()); }), 9);
    EXPECT_EQ(codeOf([&] { bucket_->read(at("x"), 0, buffer, tag, deadline()); }), 4);
    EXPECT_EQ(buffer, "???");
}

TEST_F(BucketAtGateway, TakesAnyName) {
    std::vector<std::string> names{" blank ",
                                   "a+b",
                                   "100%",
                                   "a%2Fb",
                                   "q?x=y&z",
                                   "h#f",
                                   "\xc3\xa4\xf0\x9f\x98\x80",
                                   "star*'()",
                                   "a~b",
                                   "[x]{y}|\\^",
                                   "\"<>&",
                                   "semi;=:@",
                                   "$,!",
                                   "tab\tnew\nline\rback",
                                   "..",
                                   "./x",
                                   "../y",
                                   "z/../z",
                                   "double//slash",
                                   "trailing/",
                                   "/leading",
                                   "\x01\x1f\x7f"};
    for (std::string const& name : names) {
        put(name, name);
        EXPECT_EQ(get(name), name);
    }
    std::vector<std::string> expected;
    for (std::string const& name : names) {
        expected.push_back(at(name));
    }
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(listed(), expected);
    EXPECT_EQ(listed(3), expected);
    EXPECT_THAT(bucket_->remove(expected, deadline()), IsEmpty());
    EXPECT_THAT(listed(), IsEmpty());
}

TEST_F(BucketAtGateway, ListsALevelAndStartsWhereItIsTold) {
    for (char const* const name : {"a", "b/c", "b/d", "e/f/g", "h"}) {
        put(name, "x");
    }
    ListQuery query;
    query.prefix = prefix_;
    query.isDelimited = true;
    ListPage page = bucket_->list(query, deadline());
    ASSERT_EQ(page.objects.size(), 2U);
    EXPECT_EQ(page.objects[0].key, at("a"));
    EXPECT_EQ(page.objects[0].size, 1U);
    EXPECT_EQ(page.objects[0].eTag, bucket_->head(at("a"), deadline())->eTag);
    EXPECT_NEAR(static_cast<double>(page.objects[0].lastModified),
                static_cast<double>(bucket_->head(at("a"), deadline())->lastModified), 1e9);
    EXPECT_THAT(page.prefixes, ElementsAre(at("b/"), at("e/")));
    query.isDelimited = false;
    query.startAfter = at("b/c");
    page = bucket_->list(query, deadline());
    ASSERT_EQ(page.objects.size(), 3U);
    EXPECT_EQ(page.objects[0].key, at("b/d"));
}

TEST_F(BucketAtGateway, PutsOnlyWhereNothingIsWhenAsked) {
    EXPECT_NE(bucket_->put(at("a"), std::string("one"), {.onlyIfMissing = true}, deadline()), "");
    EXPECT_EQ(codeOf([&] {
                  bucket_->put(at("a"), std::string("two"), {.onlyIfMissing = true}, deadline());
              }),
              3);
    EXPECT_EQ(get("a"), "one");
}

TEST_F(BucketAtGateway, KeepsMetadata) {
    bucket_->put(at("a"), std::string("x"), {.metadata = {{"mtime", " 1 2 "}, {"mode", ""}}},
                 deadline());
    auto const head = bucket_->head(at("a"), deadline());
    EXPECT_EQ(head->headers.find("x-amz-meta-mtime"), "1 2");
    bucket_->copy(variable("VFS_TEST_S3_BUCKET") + '/' + at("a"), at("b"),
                  {.metadata = {{"mtime", "3"}}}, {}, deadline());
    EXPECT_EQ(bucket_->head(at("b"), deadline())->headers.find("x-amz-meta-mtime"), "3");
}

TEST_F(BucketAtGateway, CopiesTheVersionThatIsNamed) {
    std::string const source = variable("VFS_TEST_S3_BUCKET") + '/' + at("\xc3\xa4 +?/a");
    std::string const tag = put("\xc3\xa4 +?/a", "one");
    EXPECT_EQ(bucket_->copy(source, at("b"), {}, tag, deadline()), tag);
    EXPECT_EQ(get("b"), "one");
    EXPECT_EQ(
        codeOf([&] { bucket_->copy(source, at("b"), {.onlyIfMissing = true}, tag, deadline()); }),
        3);
    EXPECT_EQ(codeOf([&] { bucket_->copy(source + 'x', at("c"), {}, {}, deadline()); }), 4);
    EXPECT_FALSE(bucket_->head(at("c"), deadline()));
}

TEST_F(BucketAtGateway, RemovesWhatIsThereAndWhatIsNot) {
    put("a", "x");
    bucket_->remove(at("a"), deadline());
    bucket_->remove(at("a"), deadline());
    EXPECT_FALSE(bucket_->head(at("a"), deadline()));
    std::vector<std::string> const keys{at("a"), at("b")};
    EXPECT_THAT(bucket_->remove(keys, deadline()), IsEmpty());
}

TEST_F(BucketAtGateway, UploadsInPartsAndShowsNothingBefore) {
    std::string const first = bytes(5 * 1024 * 1024);
    std::string const second = bytes(1000, 2);
    std::string const upload =
        bucket_->beginUpload(at("a"), {.metadata = {{"m", "1"}}}, deadline());
    ASSERT_EQ(bucket_->listUploads(at("a"), deadline()).size(), 1U);
    EXPECT_EQ(bucket_->listUploads(at("a"), deadline())[0].upload, upload);
    std::vector<UploadedPart> const parts{
        bucket_->uploadPart(at("a"), upload, 1, first, deadline()),
        bucket_->uploadPart(at("a"), upload, 2, second, deadline())};
    EXPECT_FALSE(bucket_->head(at("a"), deadline()));
    std::string const tag = bucket_->completeUpload(at("a"), upload, parts, {}, deadline());
    EXPECT_EQ(get("a"), first + second);
    EXPECT_EQ(bucket_->head(at("a"), deadline())->eTag, tag);
    EXPECT_EQ(bucket_->head(at("a"), deadline())->headers.find("x-amz-meta-m"), "1");
    bucket_->abortUpload(at("a"), upload, deadline());
    EXPECT_EQ(get("a"), first + second);
}

TEST_F(BucketAtGateway, UploadsPartsOfOtherObjects) {
    std::string const content = bytes(6 * 1024 * 1024);
    std::string const tag = put("a", content);
    std::string const source = variable("VFS_TEST_S3_BUCKET") + '/' + at("a");
    std::string const upload = bucket_->beginUpload(at("b"), {}, deadline());
    std::uint64_t const half = 5 * 1024 * 1024;
    std::vector<UploadedPart> const parts{
        bucket_->copyPart(at("b"), upload, 1, source, tag, 0, half, deadline()),
        bucket_->copyPart(at("b"), upload, 2, source, tag, half, content.size() - half,
                          deadline())};
    bucket_->completeUpload(at("b"), upload, parts, {}, deadline());
    EXPECT_EQ(get("b"), content);
}

TEST_F(BucketAtGateway, CompletesNothingOverWhatIsThereWhenAskedNotTo) {
    put("a", "x");
    std::string const upload = bucket_->beginUpload(at("a"), {}, deadline());
    std::vector<UploadedPart> const parts{
        bucket_->uploadPart(at("a"), upload, 1, std::string("y"), deadline())};
    EXPECT_EQ(codeOf([&] {
                  bucket_->completeUpload(at("a"), upload, parts, {.onlyIfMissing = true},
                                          deadline());
              }),
              3);
    bucket_->abortUpload(at("a"), upload, deadline());
    bucket_->abortUpload(at("a"), upload, deadline());
    EXPECT_EQ(get("a"), "x");
}

TEST_F(BucketAtGateway, TakesNoPartOfAnUploadThatIsGone) {
    std::string const upload = bucket_->beginUpload(at("a"), {}, deadline());
    bucket_->abortUpload(at("a"), upload, deadline());
    EXPECT_EQ(
        codeOf([&] { bucket_->uploadPart(at("a"), upload, 1, std::string("y"), deadline()); }), 4);
}

TEST_F(BucketAtGateway, TellsWhyItMayNot) {
    S3Options options = gatewayOptions();
    options.credentials.secretKey = "canary";
    Bucket const wrongSecret(variable("VFS_TEST_S3_BUCKET"), options);
    options.credentials = {};
    Bucket const nobody(variable("VFS_TEST_S3_BUCKET"), options);
    Bucket const missing("no-such-bucket-here", gatewayOptions());
    EXPECT_EQ(codeOf([&] { wrongSecret.list({}, deadline()); }), 2);
    EXPECT_EQ(codeOf([&] { nobody.list({}, deadline()); }), 2);
    EXPECT_EQ(codeOf([&] { missing.list({}, deadline()); }), 4);
    EXPECT_EQ(codeOf([&] { missing.put("a", std::string("x"), {}, deadline()); }), 4);
    try {
        wrongSecret.list({}, deadline());
    } catch (web::Failure const& failure) {
        EXPECT_THAT(failure.what(), HasSubstr("SignatureDoesNotMatch (403)"));
    }
}

} // namespace
} // namespace foundation::storage::provider::s3::detail
