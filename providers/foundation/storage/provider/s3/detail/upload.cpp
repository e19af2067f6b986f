#include <foundation/storage/provider/s3/detail/upload.hpp>

#include <foundation/storage/provider/s3/detail/likeness.hpp>
#include <foundation/storage/provider/s3/detail/request_fields.hpp>
#include <foundation/storage/provider/s3/detail/translation.hpp>

#include <algorithm>
#include <deque>
#include <utility>

namespace foundation::storage::provider::s3::detail {

namespace {

/// Of a copy within the store, which is to answer before anybody takes it for dead.
constexpr std::uint64_t copiedPart = std::uint64_t{256} * 1024 * 1024;

/// Parts of the usual size, which stores are content with that want parts of one size; then each
/// number of the larger ones is twice as large as the one before.
constexpr unsigned usualParts = 1'000;
constexpr unsigned largerParts = 600;
constexpr std::uint64_t largestInMemory = std::uint64_t{1024} * 1024 * 1024;

} // namespace

Upload::Upload(std::shared_ptr<Bucket const> bucket, std::shared_ptr<RequestThreads> threads,
               std::string key, PutConditions conditions)
    : bucket_(std::move(bucket)),
      threads_(std::move(threads)),
      key_(std::move(key)),
      conditions_(std::move(conditions)) {}

Upload::~Upload() {
    abort();
}

void Upload::setLastModified(Timestamp time) {
    setTime(conditions_, time);
}

std::uint64_t Upload::partSize() const {
    return partSizeBehind(number_, bucket_->options().partSize);
}

std::uint64_t Upload::partSizeBehind(unsigned parts, std::uint64_t usual) noexcept {
    unsigned const doublings = parts < usualParts ? 0 : 1 + (parts - usualParts) / largerParts;
    return std::min(usual << doublings, std::max(usual, largestInMemory));
}

void Upload::append(std::span<char const> bytes) {
    while (!bytes.empty()) {
        std::uint64_t const room = partSize();
        if (buffer_.size() >= room) { // there is more, so it is not the last one
            sendPart();
            continue;
        }
        auto const piece =
            static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), room - buffer_.size()));
        if (buffer_.capacity() - buffer_.size() < piece) {
            // Doubled, but never beyond what a part takes.
            buffer_.reserve(static_cast<std::size_t>(std::min<std::uint64_t>(
                room, std::max(buffer_.capacity() * 2, buffer_.size() + piece))));
        }
        buffer_.insert(buffer_.end(), bytes.begin(), bytes.begin() + static_cast<long>(piece));
        bytes = bytes.subspan(piece);
    }
}

void Upload::appendZeros(std::uint64_t count) {
    static constexpr std::size_t block = std::size_t{64} * 1024;
    static constexpr char zeros[block]{};
    while (count > 0) {
        auto const piece = static_cast<std::size_t>(std::min<std::uint64_t>(count, block));
        append({zeros, piece});
        count -= piece;
    }
}

void Upload::overwrite(std::uint64_t position, std::span<char const> bytes) {
    std::copy(bytes.begin(), bytes.end(), buffer_.begin() + static_cast<long>(position - sent_));
}

void Upload::begin() {
    if (id_.empty()) {
        id_ = bucket_->beginUpload(key_, conditions_, bucket_->deadline());
    }
}

unsigned Upload::nextNumber() {
    if (number_ == mostParts) {
        throw web::Failure(ErrorCode::FileTooLarge, "the object is too large for the store");
    }
    return ++number_;
}

void Upload::sendPart() {
    begin();
    std::uint64_t const allowed =
        std::max<std::uint64_t>(1, bucket_->options().concurrency * bucket_->options().partSize /
                                       std::max<std::uint64_t>(1, buffer_.size()));
    while (inFlight_.size() >= allowed) {
        takeOldest();
    }
    std::size_t const size = buffer_.size();
    unsigned const number = nextNumber();
    ask([bucket = bucket_, key = key_, id = id_, number,
         content = std::move(buffer_)](web::Deadline const& deadline) {
        return bucket->uploadPart(key, id, number, content, deadline);
    });
    sent_ += size;
    buffer_ = {};
    buffer_.reserve(static_cast<std::size_t>(partSize()));
}

/// Has a part sent. What it holds is gone if that fails.
void Upload::ask(std::function<UploadedPart(web::Deadline const&)> send) {
    try {
        inFlight_.add(*threads_, [bucket = bucket_, stop = stop_.get_token(),
                                  send = std::move(send)] { return send(bucket->deadline(stop)); });
    } catch (...) {
        lost_ = currentFailure();
        throw;
    }
}

void Upload::takeOldest() {
    try {
        parts_.push_back(inFlight_.take());
    } catch (...) {
        lost_ = currentFailure();
        throw;
    }
}

void Upload::startWith(CopySource source, std::function<void(std::uint64_t done)> const& progress) {
    if (!source.head.hasStrongTag()) {
        throw SourceFailure(ErrorCode::IOError,
                            "the store does not tell versions of a large object apart");
    }
    source_ = std::move(source);
    std::uint64_t const size = source_->head.size;
    begin();
    std::uint64_t const usual = std::max(copiedPart, size / (mostParts - usualParts));
    std::uint64_t done = 0;
    std::deque<std::uint64_t> pieces;
    auto const take = [&] {
        takeOldest();
        done += pieces.front();
        pieces.pop_front();
        if (progress) {
            progress(done);
        }
    };
    for (std::uint64_t offset = 0; offset < size;) {
        std::uint64_t piece = std::min(usual, size - offset);
        if (size - offset > piece && size - offset - piece < smallestPart) {
            piece -= smallestPart; // the rest is not the last part
        }
        while (inFlight_.size() >= bucket_->options().concurrency) {
            take();
        }
        unsigned const number = nextNumber();
        ask([bucket = bucket_, key = key_, id = id_, path = source_->path(),
             eTag = source_->head.eTag, number, offset, piece](web::Deadline const& deadline) {
            return bucket->copyPart(key, id, number, path, eTag, offset, piece, deadline);
        });
        pieces.push_back(piece);
        offset += piece;
        sent_ += piece;
    }
    while (!pieces.empty()) {
        take();
    }
}

void Upload::finish() {
    if (lost_) {
        throw web::Failure(*lost_); // there is a hole
    }
    auto const askedSince = finishing_;
    if (id_.empty()) {
        finishing_ = askedSince.value_or(std::chrono::steady_clock::now());
        bucket_->put(key_, buffer_, conditions_, bucket_->deadline(), askedSince);
        isFinished_ = true;
        return;
    }
    if (!buffer_.empty()) {
        sendPart();
    }
    while (!inFlight_.isEmpty()) {
        takeOldest();
    }
    if (parts_.size() != number_) {
        throw web::Failure(ErrorCode::InternalError, "not all of it is in the store");
    }
    if (source_) { // some stores look at the tag for whole objects alone
        auto const now = source_->bucket->head(source_->key, source_->bucket->deadline());
        if (!now || !isSameVersion(*now, source_->head)) {
            throw sourceHasChanged();
        }
    }
    finishing_ = askedSince.value_or(std::chrono::steady_clock::now());
    bucket_->completeUpload(key_, id_, parts_, conditions_, bucket_->deadline(), askedSince);
    isFinished_ = true;
}

void Upload::abort() noexcept {
    web::WebOptions const& options = bucket_->options().web;
    // For those that are on their way, and for the store to forget them, each.
    std::chrono::milliseconds const allowed = cleaningTime(options);
    inFlight_.drop();
    // A part that arrives behind the end of its upload might stay. Those that the store copies take
    // it longer.
    auto const patience = source_ ? std::max(allowed, options.stallTimeout) : allowed;
    if (!inFlight_.waitUntil(std::chrono::steady_clock::now() + patience)) {
        stop_.request_stop();
        inFlight_.wait();
    }
    if (id_.empty() || isFinished_) {
        return;
    }
    try {
        bucket_->abortUpload(key_, id_, web::Deadline(allowed));
    } catch (...) { // NOLINT(bugprone-empty-catch): there is nobody left to tell
    }
}

} // namespace foundation::storage::provider::s3::detail
