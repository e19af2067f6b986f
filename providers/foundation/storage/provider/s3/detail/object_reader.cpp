#include <foundation/storage/provider/s3/detail/object_reader.hpp>

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstring>
#include <new>
#include <optional>
#include <utility>

namespace foundation::storage::provider::s3::detail {

namespace {

constexpr std::size_t startRange = std::size_t{64} * 1024;
/// The directory of an archive of a thousand members, or any end of one with the longest comment.
constexpr std::size_t endRange = std::size_t{128} * 1024;
constexpr std::uint64_t smallestPart = std::uint64_t{128} * 1024;
/// A step forward over no more than this is still reading in one direction.
constexpr std::uint64_t smallStep = std::uint64_t{1024} * 1024;
/// What a reader keeps that nobody reads, with the little of it that a step back may want.
constexpr std::uint64_t mostAtRest = std::uint64_t{1024} * 1024;
constexpr std::uint64_t keptBehind = std::uint64_t{64} * 1024;
/// What is no larger comes to its end though nobody wants it, and its connection serves again.
constexpr std::size_t largestWorthAnEnd = std::size_t{1024} * 1024;

} // namespace

ObjectReader::ObjectReader(std::shared_ptr<Bucket const> bucket,
                           std::shared_ptr<RequestThreads> threads, std::string key)
    : bucket_(std::move(bucket)),
      threads_(std::move(threads)),
      key_(std::move(key)) {}

ObjectReader::~ObjectReader() {
    forget();
    stop_.request_stop();
}

ObjectHead ObjectReader::open(web::Deadline const& deadline) {
    auto buffer = std::make_unique_for_overwrite<char[]>(startRange);
    ObjectHead head = bucket_->read(key_, 0, {buffer.get(), startRange}, {}, deadline);
    pin(head, std::move(buffer), startRange, 0);
    return head;
}

ObjectHead ObjectReader::openFromEnd(web::Deadline const& deadline) {
    auto buffer = std::make_unique_for_overwrite<char[]>(endRange);
    std::optional<ObjectHead> head = bucket_->readEnd(key_, {buffer.get(), endRange}, deadline);
    if (!head) {
        return open(deadline);
    }
    pin(*head, std::move(buffer), endRange,
        head->size - std::min<std::uint64_t>(head->size, endRange));
    return *std::move(head);
}

/// To the version that a head is of, with the bytes that came with it.
void ObjectReader::pin(ObjectHead const& head, std::unique_ptr<char[]> known, std::size_t room,
                       std::uint64_t from) {
    if (head.size > room && !head.hasStrongTag()) {
        throw web::Failure(ErrorCode::IOError,
                           "the store does not tell versions of a large object apart");
    }
    size_ = head.size;
    eTag_ = head.eTag;
    knownFrom_ = from;
    knownSize_ = static_cast<std::size_t>(std::min<std::uint64_t>(size_, room));
    if (knownSize_ < room / 2) { // many small files may be open at once
        auto fitting = std::make_unique_for_overwrite<char[]>(knownSize_);
        std::memcpy(fitting.get(), known.get(), knownSize_);
        known = std::move(fitting);
    }
    known_ = std::move(known);
}

std::unique_ptr<ObjectReader> ObjectReader::another() const {
    auto reader = std::make_unique<ObjectReader>(bucket_, threads_, key_);
    reader->size_ = size_;
    reader->eTag_ = eTag_;
    reader->knownFrom_ = knownFrom_;
    reader->knownSize_ = knownSize_;
    reader->known_ = known_;
    return reader;
}

std::size_t ObjectReader::readAt(std::uint64_t position, std::span<char> buffer) {
    if (position >= size_) {
        return 0;
    }
    auto const count =
        static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), size_ - position));
    for (std::size_t done = 0; done < count;) {
        std::uint64_t const at = position + done;
        if (at >= knownFrom_ && at - knownFrom_ < knownSize_) {
            auto const offset = static_cast<std::size_t>(at - knownFrom_);
            std::size_t const piece = std::min(count - done, knownSize_ - offset);
            std::memcpy(buffer.data() + done, known_.get() + offset, piece);
            done += piece;
            if (expected_ == at) {
                run_ += piece;
                expected_ += piece;
            }
            continue;
        }
        Part& part = partAt(at, count - done);
        auto const offset = static_cast<std::size_t>(at - part.offset);
        std::size_t const piece = std::min(count - done, part.size - offset);
        std::memcpy(buffer.data() + done, part.bytes.get() + offset, piece);
        done += piece;
        run_ += piece;
        expected_ = at + piece;
    }
    return count;
}

/// The part with the byte at a position, which it has by then.
ObjectReader::Part& ObjectReader::partAt(std::uint64_t position, std::uint64_t wanted) {
    while (!parts_.empty() && parts_.front()->end() <= position) {
        drop(*parts_.front());
        parts_.pop_front();
    }
    bool const isThere = !parts_.empty() && parts_.front()->offset <= position;
    if (!isThere) {
        bool const goesOn = position >= expected_ && position - expected_ <= smallStep;
        if (!goesOn) {
            run_ = 0;
        }
        forget();
        next_ = position;
    }
    lookAhead(wanted);
    Part& part = *parts_.front();
    if (!part.isReady) {
        try {
            // Waiting for who took it counts, too.
            web::Deadline const deadline = bucket_->deadline();
            // What failed ahead may have failed long ago, when nobody needed it.
            if (!part.isTaken.exchange(true) || !hasCome(part)) {
                fetch(*bucket_, key_, eTag_, size_, deadline, part);
            }
        } catch (...) {
            forget(); // nobody will ever say that it is there
            next_ = position;
            throw;
        }
        part.isReady = true;
    }
    return part;
}

/// Whether it came well; waits for who took it. REQUIRES: that was another one, and nobody has
/// asked before.
bool ObjectReader::hasCome(Part& part) noexcept {
    try {
        part.done.get();
        part.isReady = true;
    } catch (...) { // who needs it asks again, and is told
        return false;
    }
    return true;
}

/// Asks for what is to come, as far as it is worth it by what was read so far.
void ObjectReader::lookAhead(std::uint64_t wanted) {
    S3Options const& options = bucket_->options();
    std::uint64_t const mostInFlight = std::max(1U, options.concurrency);
    std::uint64_t const ahead = std::max(wanted, std::min(run_, mostInFlight * options.partSize));
    // A few parts in flight hide the round trips; where fewer may be, they are the larger.
    std::uint64_t const share = std::min<std::uint64_t>(mostInFlight, 4);
    std::uint64_t const from = parts_.empty() ? next_ : parts_.front()->offset;
    while (next_ < endOfParts() && next_ - from < ahead && parts_.size() < mostInFlight) {
        std::uint64_t size = std::max(run_ == 0 ? std::uint64_t{startRange} : smallestPart,
                                      std::bit_floor(std::max<std::uint64_t>(ahead / share, 1)));
        if (parts_.empty()) {
            size = std::max(size, std::min(wanted, options.partSize));
        }
        // What is needed at once is asked for by the reader itself.
        add(std::min(size, options.partSize), parts_.empty() ? Start::WhenNeeded : Start::Now);
    }
}

void ObjectReader::add(std::uint64_t size, Start start) {
    auto part = std::make_shared<Part>();
    part->offset = next_;
    part->size = static_cast<std::size_t>(std::min(size, endOfParts() - next_));
    part->bytes = std::make_unique_for_overwrite<char[]>(part->size);
    part->done = part->promise.get_future();
    part->stop = part->size > largestWorthAnEnd ? std::stop_source() : stop_;
    if (start == Start::Now) {
        threads_->run([part, bucket = bucket_, key = key_, eTag = eTag_, whole = size_,
                       stop = part->stop.get_token()] {
            if (part->isTaken.exchange(true)) {
                return;
            }
            try {
                fetch(*bucket, key, eTag, whole, bucket->deadline(stop), *part);
                part->promise.set_value();
            } catch (...) {
                part->promise.set_exception(std::current_exception());
            }
        });
    }
    next_ = part->end();
    parts_.push_back(std::move(part));
}

void ObjectReader::fetch(Bucket const& bucket, std::string const& key, std::string const& eTag,
                         std::uint64_t size, web::Deadline const& deadline, Part& part) {
    ObjectHead const head =
        bucket.read(key, part.offset, {part.bytes.get(), part.size}, eTag, deadline);
    if (head.size != size || head.eTag != eTag) {
        throw web::VersionFailure("the file has changed since it was opened");
    }
}

void ObjectReader::rest() noexcept {
    // So far that reading on a little asks for nothing that the next rest would drop again.
    run_ = std::min(run_, mostAtRest / 2);
    std::uint64_t from = expected_ - std::min(expected_, keptBehind);
    while (!parts_.empty() && parts_.front()->end() <= from) {
        drop(*parts_.front());
        parts_.pop_front();
    }
    if (parts_.empty()) {
        return;
    }
    from = std::max(from, parts_.front()->offset);
    std::size_t kept = 0;
    while (kept < parts_.size() && isKept(parts_[kept], from, from + mostAtRest)) {
        ++kept;
    }
    while (parts_.size() > kept) {
        drop(*parts_.back());
        parts_.pop_back();
    }
    next_ = kept > 0 ? parts_.back()->end() : expected_;
}

/// Whether there is something to keep of a part: all of it where it lies between these two, and a
/// copy of what does where it has come.
bool ObjectReader::isKept(PartPtr& part, std::uint64_t from, std::uint64_t to) noexcept {
    bool const isOver =
        !part->isReady && part->done.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    if (part->offset >= to || (isOver && !hasCome(*part))) {
        return false;
    }
    if (part->offset >= from && part->end() <= to) {
        return true;
    }
    if (!part->isReady) {
        return false;
    }
    try {
        auto piece = std::make_shared<Part>();
        piece->offset = std::max(part->offset, from);
        piece->size = static_cast<std::size_t>(std::min(part->end(), to) - piece->offset);
        piece->bytes = std::make_unique_for_overwrite<char[]>(piece->size);
        piece->isTaken = true;
        piece->isReady = true;
        std::memcpy(piece->bytes.get(),
                    part->bytes.get() + static_cast<std::size_t>(piece->offset - part->offset),
                    piece->size);
        part = std::move(piece);
    } catch (std::bad_alloc const&) {
        return false;
    }
    return true;
}

/// What nobody has begun is not begun any more.
void ObjectReader::drop(Part& part) noexcept {
    part.isTaken = true;
    if (part.size > largestWorthAnEnd) {
        part.stop.request_stop();
    }
}

void ObjectReader::forget() noexcept {
    for (PartPtr const& part : parts_) {
        drop(*part);
    }
    parts_.clear();
}

} // namespace foundation::storage::provider::s3::detail
