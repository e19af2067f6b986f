#include <foundation/storage/provider/s3/detail/bucket.hpp>

#include <foundation/storage/provider/s3/detail/object_read.hpp>
#include <foundation/storage/provider/s3/detail/s3_xml.hpp>
#include <foundation/storage/provider/s3/detail/store.hpp>
#include <foundation/storage/provider/s3/detail/upload_ledger.hpp>

#include <algorithm>
#include <limits>
#include <utility>

namespace foundation::storage::provider::s3::detail {

Bucket::Bucket(std::string const& name, S3Options options)
    : store_(std::make_unique<Store const>(name, std::move(options))),
      uploads_(std::make_unique<UploadLedger>()) {}

Bucket::~Bucket() = default;

S3Options const& Bucket::options() const noexcept {
    return store_->options();
}

Bucket::Deadline Bucket::deadline(std::stop_token stop) const {
    return store_->client().deadline(std::move(stop));
}

std::int64_t nanosecondsOf(std::int64_t seconds) noexcept {
    constexpr std::int64_t most =
        std::numeric_limits<std::int64_t>::max() / nanosecondsInASecond - 1;
    return std::clamp(seconds, -most, most) * nanosecondsInASecond;
}

std::chrono::milliseconds cleaningTime(web::WebOptions const& options) noexcept {
    return std::min(std::chrono::milliseconds(5'000), options.operationTimeout);
}

ListPage Bucket::list(ListQuery const& query, Deadline const& deadline) const {
    Question question;
    question.query = {{"list-type", "2"},
                      {"encoding-type", "url"},
                      {"max-keys", std::to_string(query.mostKeys)},
                      {"prefix", query.prefix}};
    if (query.isDelimited) {
        question.query.emplace_back("delimiter", "/");
    }
    if (!query.continuation.empty()) {
        question.query.emplace_back("continuation-token", query.continuation);
    } else if (!query.startAfter.empty()) {
        question.query.emplace_back("start-after", query.startAfter);
    }
    return listPageIn(store_->ask(question, deadline).body, query);
}

bool Bucket::exists(Deadline const& deadline) const {
    try {
        store_->ask({"HEAD"}, deadline);
        return true;
    } catch (StoreFailure const& failure) {
        if (failure.status() == 404) {
            return false;
        }
        throw;
    }
}

std::optional<ObjectHead> Bucket::head(std::string_view key, Deadline const& deadline) const {
    try {
        Answer const answer = store_->ask({"HEAD", key}, deadline);
        auto const size = web::AnswerHead{answer.status, answer.headers}.contentLength();
        if (!size) {
            throw wrongAnswer("an object has no size");
        }
        return objectHeadOf(answer.headers, *size);
    } catch (StoreFailure const& failure) {
        if (failure.status() == 404) {
            return std::nullopt;
        }
        throw;
    }
}

ObjectHead Bucket::read(std::string_view key, std::uint64_t offset, std::span<char> buffer,
                        std::string_view eTag, Deadline const& deadline) const {
    if (buffer.empty()) {
        return headOfSame(*this, key, eTag, deadline);
    }
    return ObjectRead(*this, *store_, key, eTag).run(offset, buffer, deadline);
}

std::optional<ObjectHead> Bucket::readEnd(std::string_view key, std::span<char> buffer,
                                          Deadline const& deadline) const {
    return ObjectRead(*this, *store_, key, {}).runFromEnd(buffer, deadline);
}

} // namespace foundation::storage::provider::s3::detail
