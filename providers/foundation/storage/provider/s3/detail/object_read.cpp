#include <foundation/storage/provider/s3/detail/object_read.hpp>

#include <algorithm>

namespace foundation::storage::provider::s3::detail {

using web::Failure;

namespace {

/// So many bytes without a failure make up for the failures before.
constexpr std::uint64_t realProgress = std::uint64_t{64} * 1024;

web::VersionFailure changed() {
    return web::VersionFailure("the object has changed since it was opened");
}

} // namespace

ObjectHead objectHeadOf(web::Headers const& headers, std::uint64_t size) {
    ObjectHead head;
    head.size = size;
    if (auto const value = headers.find("Last-Modified")) {
        head.lastModified = nanosecondsOf(web::parseHttpDate(*value).value_or(0));
    }
    head.eTag = headers.find("ETag").value_or("");
    head.headers = headers;
    return head;
}

bool isSameVersion(ObjectHead const& one, ObjectHead const& other) noexcept {
    return one.eTag == other.eTag && one.size == other.size &&
           (one.hasStrongTag() || one.lastModified == other.lastModified);
}

ObjectHead headOfSame(Bucket const& bucket, std::string_view key, std::string_view eTag,
                      web::Deadline const& deadline) {
    std::optional<ObjectHead> head = bucket.head(key, deadline);
    if (!head) {
        throw Failure(ErrorCode::ResourceNotFound, "there is no such object");
    }
    if (!eTag.empty() && head->eTag != eTag) {
        throw changed();
    }
    return *std::move(head);
}

ObjectHead ObjectRead::run(std::uint64_t offset, std::span<char> buffer,
                           web::Deadline const& deadline) {
    runAll(offset, buffer, deadline);
    return head_;
}

std::optional<ObjectHead> ObjectRead::runFromEnd(std::span<char> buffer,
                                                 web::Deadline const& deadline) {
    if (runAll(std::nullopt, buffer, deadline) == Outcome::NoSuchRange) {
        return std::nullopt;
    }
    return head_;
}

ObjectRead::Outcome ObjectRead::runAll(std::optional<std::uint64_t> offset, std::span<char> buffer,
                                       web::Deadline const& deadline) {
    offset_ = offset;
    unsigned failures = 0; // one after the other, without a byte between them
    unsigned setbacks = 0; // those without real progress between them
    std::uint64_t setback = 0;
    for (;;) {
        std::uint64_t const before = done_;
        try {
            Outcome const outcome = step(buffer, deadline);
            if (outcome != Outcome::Unfinished) {
                return outcome;
            }
        } catch (Failure const& failure) {
            failures = done_ > before ? 1 : failures + 1;
            setbacks = done_ >= setback + realProgress ? 1 : setbacks + 1;
            setback = done_;
            if (!failure.mayPass() || failures >= store_.options().web.attempts) {
                throw;
            }
            if (tag_.empty()) {
                done_ = 0; // what is there may be of another version than what comes
                hasHead_ = false;
                offset_ = offset;
            }
            if (setbacks > 1) {
                store_.client().pauseBefore(setbacks, {}, deadline, failure);
            } else if (deadline.isOver()) {
                throw;
            }
        }
    }
}

ObjectRead::Outcome ObjectRead::step(std::span<char> buffer, web::Deadline const& deadline) {
    std::uint64_t const most = buffer.size() - done_;
    bool const isEnd = !offset_;
    std::uint64_t const first = offset_.value_or(0) + done_;
    Question question{"GET", key_};
    question.headers.add("Accept-Encoding", "identity");
    question.headers.add("Range", isEnd ? "bytes=-" + std::to_string(most)
                                        : "bytes=" + std::to_string(first) + '-' +
                                              std::to_string(first + most - 1));
    if (!tag_.empty()) {
        question.headers.add("If-Match", tag_);
    }
    std::unique_ptr<web::Exchange> exchange;
    try {
        exchange = store_.send(question, deadline);
    } catch (Failure const& failure) { // was tried again where that may help
        throw Failure(failure.code(), failure.what());
    }
    web::AnswerHead const& head = exchange->head(deadline);
    if (isEnd && (head.status == 400 || head.status == 501)) {
        exchange->finish();
        return Outcome::NoSuchRange; // and another failure comes again
    }
    if (head.status == 416) {
        exchange->finish();
        head_ = headOfSame(bucket_, key_, tag_, deadline);
        if (isEnd && head_.size > 0) {
            return Outcome::NoSuchRange;
        }
        if (done_ > 0 || head_.size > first) {
            throw wrongAnswer("a range of the object is refused");
        }
        return Outcome::Done;
    }
    if (head.status == 412 || (head.status == 304 && !tag_.empty())) {
        throw changed();
    }
    if (head.status != 200 && head.status != 206) {
        Answer const answer = store_.read(*exchange, deadline);
        auto const failure =
            failureOf(answer.status, answer.headers, answer.body, store_.options().credentials);
        if (!failure) {
            throw wrongAnswer("it is neither the object nor an error");
        }
        if (web::mayPass(head.status)) { // was tried again
            throw Failure(failure->code(), failure->what());
        }
        throw *failure;
    }
    std::optional<std::uint64_t> left = takeHead(head, most);
    if (!left) {
        exchange->finish();
        return Outcome::NoSuchRange;
    }
    while (*left > 0) {
        auto const room = buffer.subspan(
            static_cast<std::size_t>(done_),
            static_cast<std::size_t>(std::min<std::uint64_t>(*left, buffer.size() - done_)));
        std::size_t const got = exchange->read(room, deadline);
        if (got == 0) {
            throw Failure(ErrorCode::IOError, "the object broke off before its end",
                          Failure::Repetition::MayHelp);
        }
        done_ += got;
        *left -= got;
    }
    bool const isAll = done_ == buffer.size() || *offset_ + done_ == head_.size;
    if (!isAll && tag_.empty()) { // the next piece may be of another version
        throw wrongAnswer("an object without a tag comes in pieces");
    }
    if (head.status == 206 && exchange->finish() > 0) { // else the connection is free again
        throw wrongAnswer("more bytes than it tells of");
    }
    return isAll ? Outcome::Done : Outcome::Unfinished;
}

std::optional<std::uint64_t> ObjectRead::takeHead(web::AnswerHead const& head, std::uint64_t most) {
    if (!head.headers.find("ETag") && !head.headers.find("Last-Modified")) {
        throw wrongAnswer("no object: it has no tag and no time"); // an error, as an object
    }
    std::optional<std::uint64_t> const length = head.contentLength();
    std::optional<std::uint64_t> size = length;
    std::optional<web::ContentRange> range;
    if (head.status == 206) {
        auto const value = head.headers.find("Content-Range");
        range = value ? web::parseContentRange(*value) : std::nullopt;
        if (!range || !range->isSatisfied || head.headers.isRepeated("Content-Range")) {
            throw wrongAnswer("a part that nobody asked for");
        }
        size = range->size;
    }
    if (!size) {
        if (!offset_) {
            return std::nullopt;
        }
        throw wrongAnswer("an object has no size");
    }
    if (!offset_) {
        std::uint64_t const begin = *size - std::min(*size, most);
        if ((range ? range->first : 0) != begin) {
            return std::nullopt;
        }
        offset_ = begin;
    }
    std::uint64_t const first = *offset_ + done_;
    std::uint64_t const last = first + most - 1;
    std::uint64_t end = std::min(*size, last + 1);
    if (range) {
        if (range->first != first || range->last > last) {
            throw wrongAnswer("another range than was asked for");
        }
        if (length && *length != range->last - first + 1) {
            throw wrongAnswer("another length than the range has");
        }
        end = range->last + 1;
    } else if (first > 0) {
        throw wrongAnswer("the whole object instead of a range");
    }
    ObjectHead found = objectHeadOf(head.headers, *size);
    if ((!tag_.empty() && found.eTag != tag_) || (hasHead_ && found.size != head_.size)) {
        throw changed();
    }
    tag_ = found.eTag;
    head_ = std::move(found);
    hasHead_ = true;
    return end - first;
}

} // namespace foundation::storage::provider::s3::detail
