#pragma once

#include "../http/lying_server.hpp"

#include <foundation/storage/provider/s3/detail/bucket.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <vector>

namespace foundation::storage::provider::s3::detail {

/// What came of a call: what it returned, or why not.
struct Result {
    std::string value;
    int code = -1;
    std::string failure;
};

/// A store whose buckets behave as they are called; see lying_store.py.
class LyingStore : public ::testing::Test {
  protected:
    /// What the store knows of.
    static Credentials credentials() { return {"CANARYACCESS", "CANARYSECRET/+=", "CANARYTOKEN"}; }

    S3Options options() const {
        S3Options options;
        options.web.proxy = "";
        options.web.firstPause = std::chrono::milliseconds(1);
        options.web.longestPause = std::chrono::milliseconds(5);
        options.web.operationTimeout = std::chrono::milliseconds(20'000);
        options.endpoint = "http://" + server_.authority();
        options.region = "eu-test-1";
        options.credentials = credentials();
        return options;
    }
    /// For what never comes: then waiting is all that there is to do.
    S3Options impatientOptions() const {
        S3Options options = this->options();
        options.web.stallTimeout = std::chrono::milliseconds(100);
        options.web.attempts = 2;
        return options;
    }
    Bucket bucket(std::string const& behaviour) const { return Bucket(behaviour, options()); }

    /// In which there is an object `a`, of the bytes of content(size).
    void fill(Bucket const& bucket, std::size_t size, std::string const& key = "a") const {
        bucket.put(key, http::test::content(size), {}, bucket.deadline());
    }

    template<class Call>
    static Result resultOf(Call const& call) {
        Result result;
        try {
            result.value = call();
        } catch (web::Failure const& failure) {
            result.code = static_cast<int>(failure.code());
            result.failure = failure.what();
            EXPECT_EQ(result.failure.find("CANARY"), std::string::npos) << result.failure;
        }
        return result;
    }

    static Result read(Bucket const& bucket, std::uint64_t offset, std::size_t size,
                       std::string_view eTag = {}, std::string_view key = "a") {
        return resultOf([&] {
            std::string buffer(size, '?');
            ObjectHead const head = bucket.read(key, offset, buffer, eTag, bucket.deadline());
            std::uint64_t const left = head.size - std::min(head.size, offset);
            buffer.resize(static_cast<std::size_t>(std::min<std::uint64_t>(size, left)));
            return buffer;
        });
    }
    /// "none" where the store does not know such ranges.
    static Result readEnd(Bucket const& bucket, std::size_t size, std::string_view key = "a") {
        return resultOf([&]() -> std::string {
            std::string buffer(size, '?');
            auto const head = bucket.readEnd(key, buffer, bucket.deadline());
            if (!head) {
                return "none";
            }
            buffer.resize(static_cast<std::size_t>(std::min<std::uint64_t>(size, head->size)));
            return buffer;
        });
    }
    static Result list(Bucket const& bucket, ListQuery const& query = {}) {
        return resultOf([&] {
            ListPage const page = bucket.list(query, bucket.deadline());
            std::string text;
            for (ListedObject const& object : page.objects) {
                text += object.key + ' ';
            }
            for (std::string const& prefix : page.prefixes) {
                text += '[' + prefix + "] ";
            }
            return text + page.continuation;
        });
    }
    static Result put(Bucket const& bucket, std::string const& content,
                      PutConditions const& conditions = {}) {
        return resultOf([&] { return bucket.put("a", content, conditions, bucket.deadline()); });
    }
    static std::size_t uploadsIn(Bucket const& bucket) {
        return bucket.listUploads({}, bucket.deadline()).size();
    }

    http::test::LyingServer server_;
};

} // namespace foundation::storage::provider::s3::detail
