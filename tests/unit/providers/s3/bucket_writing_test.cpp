// Writing, and what stores do wrong about it: it is done once, or not at all, and what is told of
// it is true.

#include "bucket_fixture.hpp"

#include <foundation/storage/provider/s3/detail/sent_documents.hpp>

#include <thread>

namespace foundation::storage::provider::s3::detail {
namespace {

using http::test::content;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::string tagOf(Bucket const& bucket, std::string_view key = "a") {
    auto const head = bucket.head(key, bucket.deadline());
    return head ? head->eTag : "none";
}

std::string begin(Bucket const& bucket) {
    return bucket.beginUpload("a", {}, bucket.deadline());
}

std::vector<UploadedPart> twoParts(Bucket const& bucket, std::string const& upload) {
    return {bucket.uploadPart("a", upload, 1, std::string("one "), bucket.deadline()),
            bucket.uploadPart("a", upload, 2, std::string("two"), bucket.deadline())};
}

std::string complete(Bucket const& bucket, std::string const& upload,
                     std::vector<UploadedPart> const& parts, PutConditions const& conditions = {}) {
    return bucket.completeUpload("a", upload, parts, conditions, bucket.deadline());
}

TEST_F(LyingStore, PutsWhatIsToBeThere) {
    Bucket const bucket = this->bucket("good");
    Result const result = put(bucket, "one");
    EXPECT_EQ(result.value, tagOf(bucket));
    EXPECT_EQ(put(bucket, "").code, -1);
    EXPECT_EQ(read(bucket, 0, 10).value, "");
    std::string const tag =
        bucket.put("b/c d", std::string("x"), {.metadata = {{"mtime", "1 2"}, {"empty", ""}}},
                   bucket.deadline());
    EXPECT_EQ(tag, tagOf(bucket, "b/c d"));
    EXPECT_EQ(bucket.head("b/c d", bucket.deadline())->headers.find("x-amz-meta-mtime"), "1 2");
}

TEST_F(LyingStore, SendsNoMetadataThatIsMoreThanOneField) {
    Bucket const bucket = this->bucket("good");
    for (auto const& field :
         std::vector<std::pair<std::string, std::string>>{{"a", "1\r\nx-amz-acl: public-read"},
                                                          {"a: 1\r\nb", "1"},
                                                          {"", "1"},
                                                          {"a", "\xc3\xa4"}}) {
        EXPECT_EQ(put(bucket, "x", {.metadata = {field}}).code, 10);
    }
    EXPECT_THAT(server_.requests(), IsEmpty());
}

TEST_F(LyingStore, PutsOnlyWhereNothingIs) {
    for (std::string const behaviour :
         {"good", "loses-put", "loses-the-answer-to-put", "fails-behind-put", "busy-twice",
          "conflicts-once", "has-tags-of-its-own"}) {
        Bucket const bucket = this->bucket(behaviour);
        Result const result = put(bucket, "one", {.onlyIfMissing = true});
        EXPECT_EQ(result.failure, "") << behaviour;
        EXPECT_EQ(result.value, tagOf(bucket)) << behaviour;
        EXPECT_EQ(put(bucket, "two", {.onlyIfMissing = true}).code, 3) << behaviour;
        EXPECT_EQ(put(bucket, "one", {.onlyIfMissing = true}).code, 3) << behaviour;
        EXPECT_EQ(read(bucket, 0, 10).value, "one") << behaviour;
    }
}

TEST_F(LyingStore, SendsOnceWhatIsToBeDoneOnceOnAConnectionThatIsUsedAgain) {
    Bucket const bucket = this->bucket("loses-the-answer-to-put");
    EXPECT_EQ(tagOf(bucket), "none");
    EXPECT_EQ(put(bucket, "one", {.onlyIfMissing = true}).failure, "");
    EXPECT_EQ(server_.countOf("PUT"), 1U);
    EXPECT_EQ(server_.countOf("on-connection: 1"), 2U);
    EXPECT_EQ(put(bucket, "two", {.onlyIfMissing = true}).code, 3);
    EXPECT_EQ(server_.countOf("on-connection: 3"), 2U); // the second one was made, and not used
}

TEST_F(LyingStore, TakesNoObjectOfOthersForItsOwn) {
    for (std::string const behaviour : {"loses-put-to-another", "loses-put-to-an-older-one"}) {
        Bucket const bucket = this->bucket(behaviour);
        EXPECT_EQ(put(bucket, "one", {.onlyIfMissing = true}).code, 3) << behaviour;
    }
    EXPECT_EQ(read(bucket("loses-put-to-another"), 0, 10).value, "other");
}

TEST_F(LyingStore, SaysWhatAStoreCannotTake) {
    EXPECT_EQ(put(bucket("is-full"), "x").code, 8);
    EXPECT_EQ(put(bucket("is-full"), "x", {.onlyIfMissing = true}).code, 8);
    EXPECT_EQ(put(bucket("takes-small-ones"), "x").code, 5);
    EXPECT_EQ(put(bucket("loses-all-of-put"), "x").code, 9);
}

TEST_F(LyingStore, LooksBeforeItPutsWhereTheStoreKnowsNoConditions) {
    Bucket const bucket = this->bucket("knows-no-conditions");
    EXPECT_EQ(put(bucket, "x", {.onlyIfMissing = true}).code, -1);
    EXPECT_EQ(put(bucket, "y", {.onlyIfMissing = true}).code, 3);
    EXPECT_EQ(read(bucket, 0, 9).value, "x");
}

TEST_F(LyingStore, CopiesWithinTheStore) {
    for (std::string const behaviour : {"good", "copies-with-an-error", "resets-once"}) {
        Bucket const bucket = this->bucket(behaviour);
        put(bucket, "one", {.metadata = {{"m", "1"}}});
        std::string const tag = tagOf(bucket);
        auto const copy = [&](std::string const& key, PutConditions const& conditions,
                              std::string const& sourceTag) {
            return resultOf([&] {
                return bucket.copy(behaviour + "/a", key, conditions, sourceTag, bucket.deadline());
            });
        };
        EXPECT_EQ(copy("b +?", {}, tag).value, tag) << behaviour;
        EXPECT_EQ(bucket.head("b +?", bucket.deadline())->headers.find("x-amz-meta-m"), "1");
        EXPECT_EQ(copy("c", {.metadata = {{"m", "2"}}}, {}).value, tag);
        EXPECT_EQ(bucket.head("c", bucket.deadline())->headers.find("x-amz-meta-m"), "2");
        EXPECT_EQ(copy("c", {.onlyIfMissing = true}, {}).code, 3);
        EXPECT_EQ(copy("d", {}, "\"another\"").failure,
                  "the object has changed while it was copied");
        EXPECT_EQ(tagOf(bucket, "d"), "none");
    }
    Result const failed = resultOf([&] {
        Bucket const bucket = this->bucket("always-copies-with-an-error");
        return bucket.copy("good/a", "b", {}, {}, bucket.deadline());
    });
    EXPECT_EQ(failed.code, 9);
    EXPECT_EQ(failed.failure, "the store answered InternalError (200)");
}

TEST_F(LyingStore, RemovesOneOrMany) {
    Bucket const bucket = this->bucket("good");
    std::vector<std::string> const keys{"a",     "b<&>\"'\r\n\t", "c\x01",
                                        "d\xff", "e\xc3\xa4",     "missing"};
    for (std::string const& key : keys) {
        fill(bucket, 1, key);
    }
    bucket.remove("missing", bucket.deadline());
    bucket.remove("missing", bucket.deadline());
    EXPECT_EQ(list(bucket, {.prefix = "c"}).value, "c\x01 ");
    EXPECT_THAT(bucket.remove(keys, bucket.deadline()), IsEmpty());
    EXPECT_EQ(list(bucket).value, "");
    EXPECT_EQ(server_.countOf("?delete"), 1U);
    EXPECT_EQ(server_.countOf("DELETE"), 4U); // two of them cannot be written in a document
}

TEST_F(LyingStore, TellsWhichOnesAreLeft) {
    std::vector<std::string> const keys{"a", "b"};
    auto const failuresOf = [&](std::string const& behaviour) {
        Bucket const bucket = this->bucket(behaviour);
        return bucket.remove(keys, bucket.deadline());
    };
    std::vector<KeyFailure> const failures = failuresOf("keeps-b");
    ASSERT_EQ(failures.size(), 1U);
    EXPECT_EQ(failures[0].key, "b");
    EXPECT_EQ(failures[0].code, ErrorCode::PermissionDenied);
    EXPECT_THAT(failuresOf("keeps-b-once"), IsEmpty());
    EXPECT_EQ(server_.countOf("/keeps-b-once?delete"), 2U);
    EXPECT_THAT(failuresOf("misses-b"), IsEmpty());
    EXPECT_EQ(resultOf([&] { return std::to_string(failuresOf("keeps-another").size()); }).code, 9);
}

TEST_F(LyingStore, UploadsInParts) {
    for (std::string const behaviour :
         {"good", "cuts-heads", "loses-parts", "spoils-parts-on-the-way", "busy-twice",
          "loses-the-answer-to-begin", "loses-begin", "begins-late", "loses-the-answer-to-complete",
          "loses-complete", "completes-with-an-error", "completes-late", "has-tags-of-its-own"}) {
        Bucket const bucket = this->bucket(behaviour);
        Result const result = resultOf([&] {
            std::string const upload = begin(bucket);
            EXPECT_EQ(uploadsIn(bucket), 1U) << behaviour;
            return complete(bucket, upload, twoParts(bucket, upload));
        });
        EXPECT_EQ(result.failure, "") << behaviour;
        EXPECT_EQ(result.value, tagOf(bucket)) << behaviour;
        EXPECT_EQ(read(bucket, 0, 10).value, "one two") << behaviour;
        EXPECT_EQ(uploadsIn(bucket), 0U) << behaviour;
    }
}

TEST_F(LyingStore, LeavesNoUploadWhereItCannotBegin) {
    for (std::string const behaviour : {"loses-all-answers-to-begin", "begins-without-a-name"}) {
        Bucket const bucket = this->bucket(behaviour);
        EXPECT_EQ(resultOf([&] { return begin(bucket); }).code, 9) << behaviour;
        EXPECT_EQ(uploadsIn(bucket), 0U) << behaviour;
    }
    EXPECT_EQ(server_.countOf("POST\t/loses-all"), options().web.attempts);
}

TEST_F(LyingStore, AbortsNoUploadOfOthers) {
    Bucket const mine = this->bucket("loses-the-answer-to-begin");
    Bucket const others = this->bucket("loses-the-answer-to-begin");
    std::string const other = others.beginUpload("b", {}, others.deadline());
    std::string const own = begin(mine);
    EXPECT_EQ(uploadsIn(mine), 2U);
    Bucket const crowded = this->bucket("others-begin-too");
    begin(crowded);
    EXPECT_EQ(uploadsIn(crowded), 3U); // which ones nobody needs cannot be told
}

TEST_F(LyingStore, CompletesOnlyWhereNothingIs) {
    for (std::string const behaviour : {"good", "loses-the-answer-to-complete", "loses-complete",
                                        "completes-with-an-error", "knows-no-conditions"}) {
        Bucket const bucket = this->bucket(behaviour);
        std::string const upload = begin(bucket);
        Result const result = resultOf([&] {
            return complete(bucket, upload, twoParts(bucket, upload), {.onlyIfMissing = true});
        });
        EXPECT_EQ(result.failure, "") << behaviour;
        EXPECT_EQ(result.value, tagOf(bucket)) << behaviour;
        std::string const second = begin(bucket);
        std::vector<UploadedPart> const parts = twoParts(bucket, second);
        EXPECT_EQ(
            resultOf([&] { return complete(bucket, second, parts, {.onlyIfMissing = true}); }).code,
            3)
            << behaviour;
        bucket.abortUpload("a", second, bucket.deadline());
        EXPECT_EQ(uploadsIn(bucket), 0U) << behaviour;
    }
}

TEST_F(LyingStore, SaysThatAnUploadCannotBeCompleted) {
    Bucket const bucket = this->bucket("always-completes-with-an-error");
    std::string const upload = begin(bucket);
    std::vector<UploadedPart> const parts = twoParts(bucket, upload);
    EXPECT_EQ(resultOf([&] { return complete(bucket, upload, parts); }).code, 9);
    bucket.abortUpload("a", upload, bucket.deadline());
    EXPECT_EQ(uploadsIn(bucket), 0U);
    EXPECT_EQ(tagOf(bucket), "none");

    Bucket const good = this->bucket("good");
    put(good, "there before");
    std::string const gone = begin(good);
    good.abortUpload("a", gone, good.deadline());
    good.abortUpload("a", gone, good.deadline());
    EXPECT_EQ(resultOf([&] { return complete(good, gone, parts); }).code, 4);
    EXPECT_EQ(resultOf([&] {
                  return good.uploadPart("a", gone, 1, std::string("x"), good.deadline()).eTag;
              }).code,
              4);
    EXPECT_EQ(read(good, 0, 20).value, "there before");
}

TEST_F(LyingStore, CopiesParts) {
    for (std::string const behaviour : {"good", "copies-parts-with-an-error"}) {
        Bucket const bucket = this->bucket(behaviour);
        bucket.put("source", content(100), {}, bucket.deadline());
        std::string const tag = tagOf(bucket, "source");
        std::string const upload = begin(bucket);
        auto const part = [&](unsigned number, std::string const& sourceTag, std::uint64_t offset,
                              std::uint64_t size) {
            return bucket.copyPart("a", upload, number, behaviour + "/source", sourceTag, offset,
                                   size, bucket.deadline());
        };
        EXPECT_EQ(resultOf([&] { return part(1, "\"another\"", 0, 50).eTag; }).code, 9);
        std::vector<UploadedPart> const parts{part(1, tag, 0, 60), part(2, tag, 60, 40)};
        EXPECT_EQ(parts[1].size, 40U);
        complete(bucket, upload, parts);
        EXPECT_EQ(read(bucket, 0, 200).value, content(100)) << behaviour;
    }
}

TEST_F(LyingStore, ServesManyThreads) {
    Bucket const bucket = this->bucket("busy-twice");
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&, key = std::to_string(i)] {
            for (int round = 0; round < 5; ++round) {
                std::string const upload = bucket.beginUpload(key, {}, bucket.deadline());
                std::vector<UploadedPart> const parts{
                    bucket.uploadPart(key, upload, 1, key, bucket.deadline())};
                bucket.completeUpload(key, upload, parts, {}, bucket.deadline());
                EXPECT_EQ(read(bucket, 0, 10, {}, key).value, key);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(list(bucket).value, "0 1 2 3 4 5 6 7 ");
    EXPECT_EQ(uploadsIn(bucket), 0U);
}

TEST_F(LyingStore, TakesNoPartWithoutATag) {
    Bucket const bucket = this->bucket("parts-without-tags");
    std::string const upload = begin(bucket);
    EXPECT_EQ(
        resultOf([&] {
            return bucket.uploadPart("a", upload, 1, std::string("x"), bucket.deadline()).eTag;
        }).code,
        9);
}

TEST(RemovalDocument, HoldsWhatXmlCan) {
    for (std::string const key :
         {"", "a", "\t\r\n", "\x7f", "\xc3\xa4", "\xed\x9f\xbf", "\xee\x80\x80", "\xef\xbf\xbd",
          "\xf0\x9f\x98\x80", "\xf4\x8f\xbf\xbf"}) {
        EXPECT_TRUE(canBeWritten(key)) << key;
    }
    for (std::string const key :
         {"\x01", "\x1f", "\x80", "\xc3", "\xc0\xaf", "\xe0\x80\xaf", "\xed\xa0\x80",
          "\xef\xbf\xbe", "\xf4\x90\x80\x80", "\xf8\x88\x80\x80\x80", "a\xff"}) {
        EXPECT_FALSE(canBeWritten(key)) << key;
    }
    EXPECT_FALSE(canBeWritten(std::string(1, '\0')));
}

} // namespace
} // namespace foundation::storage::provider::s3::detail
