#pragma once

#include <foundation/storage/provider/s3/s3_options.hpp>
#include <foundation/storage/provider/web/exchange.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace foundation::storage::provider::s3::detail {

/// An answer of the store that says why not. The text holds the store's word for it, and none of
/// the explanation, which may repeat the request.
class StoreFailure : public web::Failure {
  public:
    StoreFailure(web::Failure const& failure, int status, std::string word)
        : web::Failure(failure),
          status_(status),
          word_(std::move(word)) {}

    /// Of the answer; 200 too.
    int status() const noexcept { return status_; }
    /// Such as NoSuchKey; empty where none was told.
    std::string const& word() const noexcept { return word_; }

  private:
    int status_;
    std::string word_;
};

/// S3 API Reference, Error responses.
ErrorCode errorCodeOfWord(std::string_view word, int status) noexcept;

/// Whether the same request may have success later.
bool mayPassByWord(std::string_view word, int status) noexcept;

/// What is wrong with an answer, an error inside a success included; nothing where it is a success.
std::optional<StoreFailure> failureOf(int status, web::Headers const& headers,
                                      std::string_view body, Credentials const& credentials);

/// Of the word alone, as it stands in the answer to a removal of many.
StoreFailure failureOfWord(std::string_view word, int status, Credentials const& credentials);

/// What an answer is called that is no part of the protocol, or contradicts the question.
web::Failure wrongAnswer(std::string const& what);

} // namespace foundation::storage::provider::s3::detail
