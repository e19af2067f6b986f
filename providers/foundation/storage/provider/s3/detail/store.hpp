#pragma once

#include <foundation/storage/provider/s3/detail/endpoint.hpp>
#include <foundation/storage/provider/s3/detail/store_failure.hpp>
#include <foundation/storage/provider/s3/s3_options.hpp>
#include <foundation/storage/provider/web/client.hpp>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace foundation::storage::provider::s3::detail {

/// What a store is asked.
struct Question {
    std::string method = "GET";
    std::string_view key = {};                                   ///< empty: the bucket itself
    std::vector<std::pair<std::string, std::string>> query = {}; ///< not encoded
    web::Headers headers = {};
    /// Must outlive the question; an empty one is sent, too.
    std::optional<std::span<char const>> body = {};
};

/// One that is short, and was read to its end.
struct Answer {
    int status = 0;
    web::Headers headers;
    std::string body;
};

/// Of what must not be done twice: whether it was done, is not known from some sendings.
struct Doubt {
    std::chrono::steady_clock::time_point began; ///< before the first one
    unsigned sendings = 0;

    std::int64_t secondsSince() const;
};

/// How it comes to be known. Each gives the result where the question was answered.
struct Inquiry {
    std::function<std::string(Answer)> take;
    /// Behind a sending in doubt; where it gives nothing, the question is sent again.
    std::function<std::optional<std::string>(Doubt const&)> look;
    /// Behind a refusal, where a sending before is in doubt that may be the reason for it.
    std::function<std::optional<std::string>(StoreFailure const&, Doubt const&)> lookBehind;
};

/// Sends signed requests for one bucket. Where the clock of this machine is wrong, it goes by the
/// store's. Safe on any thread.
class Store {
  public:
    Store(std::string_view bucket, S3Options options);
    Store(Store const&) = delete;
    Store& operator=(Store const&) = delete;

    S3Options const& options() const noexcept { return options_; }
    web::Client const& client() const noexcept { return client_; }

    /// The answer with its head, whatever its status is.
    std::unique_ptr<web::Exchange> send(Question const& question, web::Deadline const& deadline,
                                        bool isRepeatable = true) const;
    /// Asks again where the answer breaks off, or names a reason that may pass. Throws StoreFailure
    /// where it is no success, or holds an error.
    Answer ask(Question const& question, web::Deadline const& deadline) const;
    /// For what must not be done twice: sent again where it was not done, or where it comes to be
    /// known that it was not.
    std::string askOnce(Question const& question, Inquiry const& inquiry,
                        web::Deadline const& deadline) const;
    /// Reads the rest of an answer.
    Answer read(web::Exchange& exchange, web::Deadline const& deadline) const;

    /// Seconds since 1970, as the store counts them.
    std::int64_t now() const;

  private:
    std::string payloadHashOf(Question const& question) const;
    bool mendClock(web::AnswerHead const& head) const;

    S3Options const options_;
    Endpoint const endpoint_;
    web::Client const client_;
    mutable std::atomic<std::int64_t> clockOffset_{0}; ///< seconds that the store is ahead
};

} // namespace foundation::storage::provider::s3::detail
