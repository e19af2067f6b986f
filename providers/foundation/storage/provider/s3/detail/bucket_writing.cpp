#include <foundation/storage/provider/s3/detail/bucket.hpp>

#include <foundation/storage/provider/s3/detail/digest.hpp>
#include <foundation/storage/provider/s3/detail/request_fields.hpp>
#include <foundation/storage/provider/s3/detail/s3_xml.hpp>
#include <foundation/storage/provider/s3/detail/sent_documents.hpp>
#include <foundation/storage/provider/s3/detail/store.hpp>
#include <foundation/storage/provider/web/encoding.hpp>

#include <algorithm>
#include <iterator>
#include <set>

namespace foundation::storage::provider::s3::detail {

namespace {

/// 412, or 409 where another one was about to write.
bool saysThatThereIsOne(StoreFailure const& failure) noexcept {
    return failure.status() == 412 || failure.word() == "ConditionalRequestConflict";
}

std::string tagOf(Answer const& answer) {
    return std::string(answer.headers.find("ETag").value_or(""));
}

} // namespace

std::string Bucket::put(std::string_view key, std::span<char const> content,
                        PutConditions const& conditions, Deadline const& deadline,
                        std::optional<std::chrono::steady_clock::time_point> askedSince) const {
    auto const doneBefore = [&] {
        auto done = askedSince ? ownPut(key, content, Doubt{*askedSince, 1}, deadline)
                               : std::nullopt; // which throws where it is another's
        return done ? *std::move(done) : throw existsAlready();
    };
    Question question{"PUT", key};
    question.body = content;
    addMetadata(question.headers, conditions);
    if (!conditions.onlyIfMissing) {
        return tagOf(store_->ask(question, deadline));
    }
    Question conditional = question;
    conditional.headers.add("If-None-Match", "*");
    Inquiry const inquiry{
        tagOf,
        [&](Doubt const& doubt) { return ownPut(key, content, doubt, deadline); },
        [&](StoreFailure const& failure, Doubt const& doubt) {
            return saysThatThereIsOne(failure) ? ownPut(key, content, doubt, deadline)
                                               : std::nullopt;
        },
    };
    try {
        return store_->askOnce(conditional, inquiry, deadline);
    } catch (StoreFailure const& failure) {
        if (saysThatThereIsOne(failure)) {
            return doneBefore();
        }
        if (failure.word() != "NotImplemented") {
            throw;
        }
    }
    // A store that knows no conditions: it is looked before.
    if (head(key, deadline)) {
        return doneBefore();
    }
    return store_->askOnce(question, inquiry, deadline);
}

std::optional<std::string> Bucket::ownPut(std::string_view key, std::span<char const> content,
                                          Doubt const& doubt, Deadline const& deadline) const {
    std::optional<ObjectHead> const head = this->head(key, deadline);
    if (!head) {
        return std::nullopt;
    }
    if (!isRecent(*head, doubt, store_->now()) || !isSame(key, content, *head, deadline)) {
        throw existsAlready();
    }
    return head->eTag;
}

bool Bucket::isSame(std::string_view key, std::span<char const> content, ObjectHead const& head,
                    Deadline const& deadline) const {
    if (head.size != content.size()) {
        return false;
    }
    if (head.eTag == '"' + hex(md5(content)) + '"') {
        return true;
    }
    // The tag of an object that is stored encrypted is another one.
    std::vector<char> piece(std::min<std::size_t>(content.size(), std::size_t{1024} * 1024));
    for (std::size_t done = 0; done < content.size();) {
        std::size_t const size = std::min(piece.size(), content.size() - done);
        read(key, done, std::span(piece).first(size), head.eTag, deadline);
        if (!std::equal(piece.begin(), std::next(piece.begin(), static_cast<std::ptrdiff_t>(size)),
                        std::next(content.begin(), static_cast<std::ptrdiff_t>(done)))) {
            return false;
        }
        done += size;
    }
    return true;
}

std::string Bucket::copy(std::string_view source, std::string_view key,
                         PutConditions const& conditions, std::string_view sourceTag,
                         Deadline const& deadline) const {
    if (conditions.onlyIfMissing && head(key, deadline)) {
        throw existsAlready();
    }
    Question question{"PUT", key};
    question.body.emplace();
    addSource(question.headers, source, sourceTag);
    addMetadata(question.headers, conditions);
    if (!conditions.metadata.empty() || !conditions.contentFields.empty()) {
        question.headers.add("x-amz-metadata-directive", "REPLACE");
    }
    try {
        return tagIn(store_->ask(question, deadline).body, "CopyObjectResult");
    } catch (StoreFailure const& failure) {
        failCopy(failure);
    }
}

void Bucket::remove(std::string_view key, Deadline const& deadline) const {
    try {
        store_->ask({"DELETE", key}, deadline);
    } catch (StoreFailure const& failure) {
        if (failure.word() != "NoSuchKey") {
            throw;
        }
    }
}

std::vector<KeyFailure> Bucket::remove(std::span<std::string const> keys,
                                       Deadline const& deadline) const {
    std::vector<KeyFailure> failures;
    std::vector<std::string> left;
    for (std::string const& key : keys) {
        if (canBeWritten(key)) {
            left.push_back(key);
            continue;
        }
        try { // in the URL there is a way to write it
            remove(key, deadline);
        } catch (web::Failure const& failure) {
            failures.push_back({key, failure.code(), failure.what()});
        }
    }
    for (unsigned attempt = 1; !left.empty(); ++attempt) {
        std::string const document = removalOf(left);
        Question question{"POST", {}, {{"delete", ""}}};
        question.headers.add("Content-Type", "application/xml");
        Md5 const digest = md5(document);
        question.headers.add(
            "Content-MD5",
            web::base64({reinterpret_cast<char const*>(digest.data()), digest.size()}));
        question.body = document;
        auto const refused = refusedRemovalsIn(store_->ask(question, deadline).body);
        std::set<std::string> const asked(left.begin(), left.end());
        left.clear();
        std::optional<web::Failure> last;
        for (RefusedRemoval const& removal : refused) {
            if (!asked.contains(removal.key)) {
                throw wrongAnswer("a key was not among those to remove");
            }
            StoreFailure const failure =
                failureOfWord(removal.word, 200, store_->options().credentials);
            if (failure.mayPass() && attempt < store_->options().web.attempts) {
                left.push_back(removal.key);
                last = failure;
            } else {
                failures.push_back({removal.key, failure.code(), failure.what()});
            }
        }
        if (last) {
            store_->client().pauseBefore(attempt + 1, {}, deadline, *last);
        }
    }
    return failures;
}

} // namespace foundation::storage::provider::s3::detail
