// Reading and listing, and what stores do wrong about it: the right bytes, or a failure in time.

#include "bucket_fixture.hpp"

#include <chrono>

namespace foundation::storage::provider::s3::detail {
namespace {

using http::test::content;
using ::testing::HasSubstr;
using Clock = std::chrono::steady_clock;

TEST_F(LyingStore, ReadsRangesOfWhatWasPut) {
    Bucket const bucket = this->bucket("good");
    fill(bucket, 5000);
    EXPECT_EQ(read(bucket, 0, 5000).value, content(5000));
    EXPECT_EQ(read(bucket, 0, 9000).value, content(5000));
    EXPECT_EQ(read(bucket, 4990, 100).value, content(5000, 4990));
    EXPECT_EQ(read(bucket, 5000, 100).value, "");
    EXPECT_EQ(read(bucket, 7000, 100).value, "");
    EXPECT_EQ(read(bucket, 0, 0).value, "");
    EXPECT_EQ(read(bucket, 0, 10, {}, "missing").code, 4);
    EXPECT_EQ(read(bucket, 0, 0, {}, "missing").code, 4);
}

TEST_F(LyingStore, TakesNoAnswerThatIsNotTheRangeAskedFor) {
    struct Row {
        std::string behaviour;
        std::string text;
    };
    for (Row const& row : {
             Row{"shifted-range", "another range than was asked for"},
             Row{"longer-than-its-range", "another length than the range has"},
             Row{"range-unsaid", "a part that nobody asked for"},
             Row{"of-unknown-size", "an object has no size"},
             Row{"extra-bytes", "more bytes than it tells of"},
             Row{"whole", "the whole object instead of a range"},
             Row{"refuses-ranges", "a range of the object is refused"},
         }) {
        Bucket const bucket = this->bucket(row.behaviour);
        fill(bucket, 5000);
        Result const result = read(bucket, 100, 1000);
        EXPECT_EQ(result.code, 9) << row.behaviour;
        EXPECT_THAT(result.failure, HasSubstr(row.text)) << row.behaviour;
    }
}

TEST_F(LyingStore, TakesTheStartOfAWholeObject) {
    Bucket const bucket = this->bucket("whole");
    fill(bucket, 500'000);
    EXPECT_EQ(read(bucket, 0, 1000).value, content(1000));
    EXPECT_TRUE(read(bucket, 0, 600'000).value == content(500'000));
}

TEST_F(LyingStore, ReadsTheEndOfWhatWasPut) {
    Bucket const bucket = this->bucket("good");
    fill(bucket, 5000);
    EXPECT_EQ(readEnd(bucket, 100).value, content(5000, 4900));
    EXPECT_EQ(readEnd(bucket, 5000).value, content(5000));
    EXPECT_EQ(readEnd(bucket, 9000).value, content(5000));
    EXPECT_EQ(server_.countOf("GET\t"), 3U);
    EXPECT_EQ(server_.countOf("range: bytes=-100\t"), 1U);
    EXPECT_EQ(readEnd(bucket, 100, "missing").code, 4);
    fill(bucket, 0, "empty");
    EXPECT_EQ(readEnd(bucket, 100, "empty").value, "");
}

TEST_F(LyingStore, SaysThatAStoreDoesNotKnowRangesFromTheEnd) {
    for (std::string const behaviour :
         {"ignores-ends", "refuses-ends", "takes-ends-for-nonsense", "has-no-ends-yet",
          "takes-ends-for-starts", "gives-all-for-ends", "gives-all-for-ends-and-no-size"}) {
        Bucket const bucket = this->bucket(behaviour);
        fill(bucket, 5000);
        EXPECT_EQ(readEnd(bucket, 4999).value, "none") << behaviour;
    }
    for (std::string const behaviour : {"shifted-range", "of-unknown-size", "other-ends"}) {
        Bucket const bucket = this->bucket(behaviour);
        fill(bucket, 5000);
        EXPECT_EQ(readEnd(bucket, 1000).value, "none") << behaviour;
    }
    // The whole of it is its end, too.
    EXPECT_EQ(readEnd(this->bucket("ignores-ends"), 5000).value, content(5000));
    EXPECT_EQ(readEnd(this->bucket("takes-ends-for-starts"), 5000).value, content(5000));
    // And what fails for another reason fails when the start is asked for.
    EXPECT_EQ(readEnd(this->bucket("has-no-ends-yet"), 10, "missing").value, "none");
}

TEST_F(LyingStore, TakesNoAnswerThatIsNotTheEndAskedFor) {
    struct Row {
        std::string behaviour;
        std::string text;
    };
    for (Row const& row : {
             Row{"longer-than-its-range", "another length than the range has"},
             Row{"range-unsaid", "a part that nobody asked for"},
             Row{"extra-bytes", "more bytes than it tells of"},
             Row{"an-error-for-the-object", "no object"},
         }) {
        Bucket const bucket = this->bucket(row.behaviour);
        fill(bucket, 5000);
        Result const result = readEnd(bucket, 1000);
        EXPECT_EQ(result.code, 9) << row.behaviour << ' ' << result.value;
        EXPECT_THAT(result.failure, HasSubstr(row.text)) << row.behaviour;
    }
}

TEST_F(LyingStore, AsksOnTheSameConnectionWhereAnEndIsRefused) {
    for (std::string const behaviour : {"takes-ends-for-nonsense", "has-no-ends-yet"}) {
        Bucket const bucket = this->bucket(behaviour);
        fill(bucket, 5000);
        EXPECT_EQ(readEnd(bucket, 10).value, "none");
        EXPECT_EQ(read(bucket, 0, 10).value, content(10));
        std::vector<std::string> const requests = server_.requests();
        auto const connectionOf = [](std::string const& request) {
            return request.substr(request.find("on-connection: "));
        };
        EXPECT_EQ(connectionOf(requests.back()), connectionOf(requests[requests.size() - 2]))
            << behaviour;
    }
}

TEST_F(LyingStore, ReadsOnWhereTheBodyOfAnEndBrokeOff) {
    for (std::string const behaviour :
         {"short", "reset-at-every-tenth-byte", "smaller-ends", "short-without-tags"}) {
        Bucket const bucket = this->bucket(behaviour);
        fill(bucket, 1500);
        EXPECT_EQ(readEnd(bucket, 1400).value, content(1500, 100)) << behaviour;
        EXPECT_EQ(readEnd(bucket, 1600).value, content(1500)) << behaviour;
    }
    EXPECT_GT(server_.countOf("if-match: \""), 50U);
}

TEST_F(LyingStore, NeverMixesTwoVersionsOfAnEnd) {
    Bucket const bucket = this->bucket("changes");
    fill(bucket, 5000);
    Result const result = readEnd(bucket, 5000);
    EXPECT_EQ(result.code, 9);
    EXPECT_THAT(result.failure, HasSubstr("has changed"));
}

TEST_F(LyingStore, TakesNoErrorForTheObject) {
    Bucket const bucket = this->bucket("an-error-for-the-object");
    fill(bucket, 5000);
    std::string const tag = bucket.head("a", bucket.deadline())->eTag;
    EXPECT_EQ(read(bucket, 0, 5000, tag).code, 9);
    EXPECT_EQ(read(bucket, 0, 5000).code, 9);
    EXPECT_EQ(read(bucket, 10, 5000).code, 9);
}

TEST_F(LyingStore, ReadsOnWhereABodyBrokeOff) {
    for (std::string const behaviour :
         {"short", "reset-at-every-tenth-byte", "smaller-ranges", "short-without-tags"}) {
        Bucket const bucket = this->bucket(behaviour);
        fill(bucket, 1500);
        EXPECT_EQ(read(bucket, 3, 1400).value, content(1403, 3)) << behaviour;
    }
    EXPECT_GT(server_.countOf("if-match: \""), 50U);
}

TEST_F(LyingStore, ReadsOnAfterAStall) {
    Bucket const bucket("stalls-in-the-first-body", impatientOptions());
    fill(bucket, 5000);
    EXPECT_EQ(read(bucket, 0, 5000).value, content(5000));
}

TEST_F(LyingStore, NeverMixesTwoVersions) {
    Bucket const bucket = this->bucket("changes");
    fill(bucket, 5000);
    Result const result = read(bucket, 0, 5000);
    EXPECT_EQ(result.code, 9);
    EXPECT_THAT(result.failure, HasSubstr("has changed"));
    EXPECT_EQ(read(this->bucket("changes"), 0, 10, "\"another\"").code, 9);
}

TEST_F(LyingStore, SaysThatTheObjectIsNotTheOneNamed) {
    Bucket const bucket = this->bucket("good");
    fill(bucket, 5000);
    for (std::uint64_t const offset : {0, 5000}) {
        EXPECT_THAT(read(bucket, offset, 10, "\"another\"").failure, HasSubstr("has changed"));
    }
}

TEST_F(LyingStore, AsksAgainWhatMayPass) {
    for (std::string const behaviour :
         {"busy-twice", "refused-twice", "resets-once", "cuts-heads"}) {
        Bucket const bucket = this->bucket(behaviour);
        fill(bucket, 100);
        EXPECT_EQ(read(bucket, 0, 100).value, content(100)) << behaviour;
        EXPECT_EQ(list(bucket).value, "a ") << behaviour;
    }
}

TEST_F(LyingStore, GivesUpInTime) {
    for (std::string const behaviour : {"always-busy", "never-answers", "resets"}) {
        Bucket const bucket(behaviour, impatientOptions());
        auto const begin = Clock::now();
        EXPECT_EQ(read(bucket, 0, 10).code, 9) << behaviour;
        EXPECT_EQ(list(bucket).code, 9) << behaviour;
        EXPECT_EQ(put(bucket, "x").code, 9) << behaviour;
        EXPECT_EQ(put(bucket, "x", {.onlyIfMissing = true}).code, 9) << behaviour;
        EXPECT_EQ(resultOf([&] { return bucket.beginUpload("a", {}, bucket.deadline()); }).code, 9);
        EXPECT_LT(Clock::now() - begin, std::chrono::seconds(15)) << behaviour;
    }
    EXPECT_EQ(server_.countOf("/always-busy/a\t"), 6U); // each twice, and no more
    S3Options options = this->options();
    options.web.operationTimeout = std::chrono::milliseconds(300);
    auto const begin = Clock::now();
    EXPECT_EQ(read(Bucket("never-answers", options), 0, 10).code, 9);
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5));
}

TEST_F(LyingStore, SaysInWhichRegionABucketIs) {
    for (std::string const behaviour :
         {"elsewhere", "elsewhere-and-says-where", "elsewhere-untold"}) {
        Bucket const bucket = this->bucket(behaviour);
        std::string const text = behaviour == "elsewhere"
                                     ? ": the bucket is in the region mars-north-1"
                                     : ": the bucket may be elsewhere";
        EXPECT_THAT(read(bucket, 0, 10).failure, HasSubstr(text));
        EXPECT_THAT(list(bucket).failure, HasSubstr(text));
        EXPECT_THAT(put(bucket, "x").failure, HasSubstr(text));
        EXPECT_EQ(put(bucket, "x").code, 9);
    }
    EXPECT_EQ(server_.countOf(server_.otherAuthority().substr(10) + '\t'), 0U); // not followed
    S3Options options = this->options();
    options.region = "eu-test-2";
    EXPECT_THAT(list(Bucket("good", options)).failure, HasSubstr("in the region eu-test-1"));
}

TEST_F(LyingStore, GoesByTheClockOfTheStore) {
    Bucket const bucket = this->bucket("an-hour-ahead");
    EXPECT_TRUE(bucket.exists(bucket.deadline())); // though its refusal has no body
    fill(bucket, 10);
    EXPECT_EQ(read(bucket, 0, 10).value, content(10));
    EXPECT_EQ(server_.requests().size(), 4U);
}

TEST_F(LyingStore, SaysWhoDoesNotMatch) {
    struct Row {
        Credentials credentials;
        std::string text;
    };
    for (Row const& row : {
             Row{{"CANARYACCESS", "CANARYWRONG", ""}, "SignatureDoesNotMatch (403)"},
             Row{{"CANARYWRONG", "CANARYSECRET/+=", ""}, "InvalidAccessKeyId (403)"},
             Row{{"CANARYACCESS", "CANARYSECRET/+=", "CANARYWRONG"}, "SignatureDoesNotMatch (403)"},
             Row{{}, "AccessDenied (403)"},
         }) {
        S3Options options = this->options();
        options.credentials = row.credentials;
        Result const result = list(Bucket("good", options));
        EXPECT_EQ(result.code, 2);
        EXPECT_EQ(result.failure, "the store answered " + row.text);
    }
}

TEST_F(LyingStore, AsksAsNobody) {
    S3Options options = this->options();
    options.credentials = {};
    Bucket const bucket("open", options);
    fill(bucket, 10);
    EXPECT_EQ(read(bucket, 0, 10).value, content(10));
    EXPECT_EQ(server_.countOf("authorization"), 0U);
    EXPECT_EQ(server_.countOf("x-amz-"), 0U);
}

TEST_F(LyingStore, RepeatsNoSecretThatTheStoreSendsBack) {
    Bucket const bucket = this->bucket("echoes");
    for (int i = 0; i < 4; ++i) {
        for (Result const& result : {read(bucket, 0, 10), list(bucket), put(bucket, "x")}) {
            EXPECT_EQ(result.failure, "the store answered 403");
        }
    }
}

TEST_F(LyingStore, ListsPagesAndLevels) {
    Bucket const bucket = this->bucket("good");
    for (char const* const key : {"a", "b/c", "b/d", "e", "+ %\xc3\xa4\x01"}) {
        fill(bucket, 3, key);
    }
    EXPECT_EQ(list(bucket).value, "+ %\xc3\xa4\x01 a b/c b/d e ");
    EXPECT_EQ(list(bucket, {.isDelimited = true}).value, "+ %\xc3\xa4\x01 a e [b/] ");
    EXPECT_EQ(list(bucket, {.prefix = "b/", .isDelimited = true}).value, "b/c b/d ");
    EXPECT_EQ(list(bucket, {.startAfter = "b/c"}).value, "b/d e ");
    EXPECT_EQ(list(bucket, {.mostKeys = 3}).value, "+ %\xc3\xa4\x01 a b/c b/c");
    EXPECT_EQ(list(bucket, {.continuation = "b/c", .mostKeys = 1}).value, "b/d b/d");
    EXPECT_EQ(list(bucket, {.continuation = "b/d"}).value, "e ");
    ListPage const page = bucket.list({.prefix = "e"}, bucket.deadline());
    EXPECT_EQ(page.objects.at(0).size, 3U);
    EXPECT_EQ(page.objects.at(0).lastModified, 1'717'236'000'250'000'000);
    EXPECT_EQ(page.objects.at(0).eTag, bucket.head("e", bucket.deadline())->eTag);
}

TEST_F(LyingStore, TakesNoListingThatIsNotTheOneAskedFor) {
    struct Row {
        std::string behaviour;
        ListQuery query;
        std::string text;
    };
    for (Row const& row : {
             Row{"token-that-stays", {.continuation = "same"}, "does not advance"},
             Row{"token-that-lacks", {}, "does not tell how it goes on"},
             Row{"end-unsaid", {}, "does not tell how it goes on"},
             Row{"starts-anew", {.startAfter = "a"}, "does not advance"},
             Row{"lists-more", {.mostKeys = 5}, "a page is larger than was asked for"},
             Row{"lists-others", {.prefix = "a"}, "not among those that were asked for"},
             Row{"lists-deep", {.prefix = "a/", .isDelimited = true}, "not of this level"},
             Row{"lists-prefixes", {}, "a prefix is not among those"},
             Row{"lists-prefixes", {.isDelimited = true}, "a prefix is not among those"},
             Row{"lists-without-size", {}, "an object has no size"},
             Row{"lists-a-malformed-time", {}, "a time is malformed"},
             Row{"lists-a-tag-of-two-lines", {}, "a tag is malformed"},
             Row{"lists-badly-encoded", {}, "a name is encoded wrongly"},
             Row{"bomb", {}, "it is no XML"},
             Row{"deep", {}, "it is no XML"},
             Row{"endless", {}, "it is longer than any"},
             Row{"no-xml", {}, "it is no XML"},
             Row{"another-document", {}, "it is no ListBucketResult"},
             Row{"empty-documents", {}, "it is no XML"},
             Row{"lists-an-error", {}, "the store answered InternalError (200)"},
         }) {
        Result const result = list(bucket(row.behaviour), row.query);
        EXPECT_EQ(result.code, 9) << row.behaviour;
        EXPECT_THAT(result.failure, HasSubstr(row.text)) << row.behaviour;
    }
}

TEST_F(LyingStore, ListsAgainWhereTheAnswerBreaksOffOrHoldsAnErrorThatMayPass) {
    for (std::string const behaviour : {"breaks-off-once", "lists-an-error-once"}) {
        Bucket const bucket = this->bucket(behaviour);
        fill(bucket, 1);
        EXPECT_EQ(list(bucket).value, "a ") << behaviour;
        EXPECT_EQ(server_.countOf("GET\t/" + behaviour), 2U);
    }
}

TEST_F(LyingStore, TellsHostileNamesAsTheyAre) {
    ListPage const page =
        bucket("lists-hostile-names").list({}, Bucket::Deadline(std::chrono::seconds(9)));
    std::vector<std::string> keys;
    for (ListedObject const& object : page.objects) {
        keys.push_back(object.key);
    }
    EXPECT_THAT(keys, ::testing::ElementsAre("../../etc/passwd", ".", "/etc/passwd", "//",
                                             std::string("a\0b", 3)));
    EXPECT_EQ(list(bucket("lists-plain")).value, "a+b%41 ");
}

TEST_F(LyingStore, TellsTimesAsFarAsTheyGo) {
    Bucket const bucket = this->bucket("lists-times-beyond-any");
    ListPage const page = bucket.list({}, bucket.deadline());
    constexpr std::int64_t century = std::int64_t{100} * 365 * 86'400 * 1'000'000'000;
    EXPECT_LT(page.objects.at(0).lastModified, -2 * century);
    EXPECT_GT(page.objects.at(1).lastModified, 2 * century);
}

TEST_F(LyingStore, TellsWhatAnObjectIsAndWhatIsNone) {
    Bucket const bucket = this->bucket("good");
    fill(bucket, 70);
    EXPECT_EQ(bucket.head("a", bucket.deadline())->size, 70U);
    EXPECT_FALSE(bucket.head("b", bucket.deadline()));
}

} // namespace
} // namespace foundation::storage::provider::s3::detail
