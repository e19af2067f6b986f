#include <foundation/storage/provider/http/detail/range_reader.hpp>

#include <algorithm>
#include <array>
#include <utility>

namespace foundation::storage::provider::http::detail {

using web::Deadline;
using web::Failure;

namespace {

/// A step forward of up to so many bytes is read, and not asked for anew.
constexpr std::uint64_t smallStep = std::uint64_t{64} * 1024;
/// So many bytes without a failure make up for the failures before.
constexpr std::uint64_t realProgress = std::uint64_t{64} * 1024;
/// The directory of an archive of a thousand members. It is kept, so that no option makes it more.
constexpr std::uint64_t mostOfEnd = std::uint64_t{128} * 1024;
/// What a body has to come that nobody reads.
constexpr std::uint64_t mostAtRest = std::uint64_t{1024} * 1024;

web::VersionFailure changed() {
    return web::VersionFailure("the file has changed since it was opened");
}
Failure wrongAnswer(char const* what) {
    return {ErrorCode::IOError, std::string("the server's answer cannot be used: ") + what};
}
Failure broken() {
    return {ErrorCode::IOError, "the file broke off before its end", Failure::Repetition::MayHelp};
}

bool hasType(web::AnswerHead const& head, std::string_view wanted) {
    auto const type = head.headers.find("Content-Type").value_or("");
    return web::areEqualNames(type.substr(0, wanted.size()), wanted);
}

/// Of the media type that holds several ranges, which is sent where several are asked for.
bool isInSeveralParts(web::AnswerHead const& head) {
    return hasType(head, "multipart/byteranges");
}

std::optional<web::ContentRange> rangeIn(web::AnswerHead const& head) {
    auto const value = head.headers.find("Content-Range");
    return value ? web::parseContentRange(*value) : std::nullopt;
}

std::optional<std::uint64_t> sizeIn(web::AnswerHead const& head) {
    auto const range = rangeIn(head);
    return range ? range->size : std::nullopt;
}

bool knowsRanges(web::AnswerHead const& head) {
    return web::areEqualNames(head.headers.find("Accept-Ranges").value_or(""), "bytes");
}

Version versionOf(web::AnswerHead const& head) {
    auto const told = [&](char const* name) {
        return std::string(head.headers.find(name).value_or(""));
    };
    Version version{told("ETag"), told("Last-Modified"), told("Content-Encoding"), std::nullopt};
    if (version.etag == "\"\"" || version.etag == "W/\"\"") {
        version.etag.clear(); // tells nothing
    }
    if (version.contentEncoding == "identity") {
        version.contentEncoding.clear();
    }
    return version;
}

} // namespace

bool Version::isStill(Version const& later, bool mayTellLess) const {
    if (size && later.size && *size != *later.size) {
        return false;
    }
    if (later.contentEncoding != contentEncoding &&
        !(mayTellLess && later.contentEncoding.empty())) {
        return false;
    }
    auto const agree = [](std::string const& first, std::string const& second, bool mayLack) {
        return first.empty() || second == first || (mayLack && second.empty());
    };
    bool const isStrong = isEtagStrong();
    return agree(etag, later.etag, mayTellLess && !isStrong) &&
           agree(lastModified, later.lastModified, mayTellLess || isStrong);
}

RangeReader::RangeReader(std::shared_ptr<web::Client const> client, web::Url url, RangeSizes sizes)
    : client_(std::move(client)),
      url_(std::move(url)),
      place_(std::make_shared<Place>(url_)),
      sizes_{std::max<std::uint64_t>(sizes.first, 1), sizes.largest},
      endSize_(2 * std::min(sizes_.first, mostOfEnd / 2)),
      nextRange_(sizes_.first) {}

std::size_t RangeReader::readAt(std::uint64_t position, std::span<char> buffer,
                                Deadline const& deadline) {
    std::size_t done = 0;
    unsigned failures = 0;
    while (done < buffer.size()) {
        try {
            std::size_t const got = readSome(position + done, buffer.subspan(done), deadline);
            if (got == 0) {
                break;
            }
            done += got;
            failures = 0; // whatever moves on may go on until the deadline
        } catch (Failure const& failure) {
            body_.reset();
            if (!failure.mayPass() || ++failures >= client_->options().attempts) {
                throw;
            }
            progress_ = 0;
            if (++setbacks_ > 1) {
                client_->pauseBefore(setbacks_, std::chrono::milliseconds(0), deadline, failure);
            } else if (deadline.isOver()) {
                throw;
            }
        }
    }
    return done;
}

bool RangeReader::isReachable(std::uint64_t position) const noexcept {
    return body_ && position >= position_ && (!end_ || position < *end_) &&
           (isWholeAlways_ || position - position_ <= smallStep);
}

std::size_t RangeReader::readSome(std::uint64_t position, std::span<char> buffer,
                                  Deadline const& deadline) {
    if (version_.size && position >= *version_.size) {
        return 0;
    }
    if (kept_ && position >= endFrom_) {
        auto const at = static_cast<std::size_t>(position - endFrom_);
        std::size_t const count = std::min(buffer.size(), kept_->size() - at);
        std::copy_n(kept_->data() + at, count, buffer.data());
        return count;
    }
    if (!isReachable(position) && !request(position, buffer.size(), deadline)) {
        return 0;
    }
    std::array<char, 16 * 1024> passedOver{};
    while (position_ < position) {
        auto const step = std::min<std::uint64_t>(passedOver.size(), position - position_);
        if (takeBody(std::span(passedOver).first(static_cast<std::size_t>(step)), deadline) == 0) {
            return 0;
        }
    }
    return takeBody(buffer, deadline);
}

std::size_t RangeReader::takeBody(std::span<char> buffer, Deadline const& deadline) {
    std::size_t const got = body_->read(buffer, deadline);
    position_ += got;
    if (got == 0) {
        if (end_) {
            throw broken();
        }
        holdToReached(position_);
        version_.size = position_; // the end is where the server has ended
        endBody();
        return 0;
    }
    if (end_ && position_ > *end_) {
        throw wrongAnswer("more bytes than it tells of");
    }
    reached_ = std::max(reached_, position_);
    bool const isDone = end_ && position_ == *end_;
    noteProgress(got, isDone);
    if (isDone && endBody()) {
        throw wrongAnswer("more bytes than it tells of");
    }
    return got;
}

void RangeReader::noteProgress(std::size_t bytes, bool isRangeDone) noexcept {
    progress_ += bytes;
    if (isRangeDone || progress_ >= realProgress) {
        setbacks_ = 0;
    }
}

bool RangeReader::endBody() noexcept {
    bool hasMore = false;
    try {
        hasMore = body_->finish() > 0; // so that the connection is free for the next request
    } catch (...) {                    // that is worth nothing more than a connection
    }
    body_.reset();
    return hasMore;
}

std::unique_ptr<web::Exchange> RangeReader::send(web::Headers const& fields,
                                                 Deadline const& deadline) {
    web::Url const place = place_->get();
    auto answer = client_->send({"GET", place, fields}, deadline);
    int const status = answer->head(deadline).status;
    if (!(place == url_) && (status == 401 || status == 403 || status == 404 || status == 410)) {
        // A redirect may lead to what is there for a while only.
        answer = client_->send({"GET", url_, fields}, deadline);
    }
    // A place that fails is not the one to go to, even if it was told.
    if (!(answer->url() == place) && web::isSuccess(answer->head(deadline).status)) {
        place_->set(answer->url());
    }
    return answer;
}

web::AnswerHead const& RangeReader::ask(web::Headers const& fields, Deadline const& deadline) {
    try {
        body_ = send(fields, deadline);
    } catch (Failure const& failure) { // was tried again where that may help
        throw Failure(failure.code(), failure.what());
    }
    return body_->head(deadline);
}

void RangeReader::failWith(web::AnswerHead const& head) {
    throw Failure(web::errorCodeOfStatus(head.status),
                  web::failureOf(head.status, head.headers).what());
}

void RangeReader::noteOpen(web::AnswerHead const& head) {
    isPage_ = isOpen_ ? isPage_ : hasType(head, "text/html");
    isOpen_ = true;
}

bool RangeReader::request(std::uint64_t position, std::uint64_t wanted, Deadline const& deadline) {
    if (body_) {
        endBody();
    }
    bool const goesOn = position == position_;
    std::uint64_t const range = std::max(goesOn ? nextRange_ : sizes_.first, wanted);
    std::optional<std::uint64_t> last;
    if (range < sizes_.largest) {
        last = position + range - 1;
        if (version_.size) {
            last = std::min(*last, *version_.size - 1);
        }
    }
    if (kept_) {
        last = std::min(last.value_or(endFrom_ - 1), endFrom_ - 1);
    }
    web::Headers fields;
    fields.add("Accept-Encoding", "identity");
    if (!isWholeAlways_) {
        fields.add("Range",
                   "bytes=" + std::to_string(position) + '-' + (last ? std::to_string(*last) : ""));
        if (isOpen_ && !version_.validator().empty()) {
            fields.add("If-Range", version_.validator());
        }
    }
    web::AnswerHead const& head = ask(fields, deadline);
    switch (head.status) {
    case 206:
        takeRange(head, position, last);
        break;
    case 200:
        takeWhole(head);
        break;
    case 416:
        return takeNoRange(head, position);
    case 412:
        throw changed();
    default:
        failWith(head);
    }
    noteOpen(head);
    nextRange_ = range <= sizes_.largest / 4 ? range * 4 : sizes_.largest;
    return true;
}

void RangeReader::openFromEnd() {
    Deadline const deadline = client_->deadline();
    requestEnd(deadline);
    keepEnd(deadline);
}

/// As request().
void RangeReader::requestEnd(Deadline const& deadline) {
    web::Headers fields;
    fields.add("Accept-Encoding", "identity");
    fields.add("Range", "bytes=-" + std::to_string(endSize_));
    web::AnswerHead const& head = ask(fields, deadline);
    switch (head.status) {
    case 206:
        if (auto const range = rangeIn(head);
            range && range->isSatisfied && range->size &&
            range->first == *range->size - std::min(*range->size, endSize_)) {
            takeRange(head, range->first, *range->size - 1);
            noteOpen(head);
            return;
        }
        break; // it could be anything, or the start for somebody who read `-N` as `0-N`
    case 200:
        if (!head.contentLength()) {
            break; // a range tells the size
        }
        takeWhole(head);
        // That it does not know this range does not mean that it knows none.
        isWholeAlways_ = !knowsRanges(head);
        noteOpen(head);
        return;
    case 416:
        if (sizeIn(head) == 0U) {
            takeNoRange(head, 0);
            return;
        }
        break;
    case 400:
    case 501:
        break;
    default:
        failWith(head);
    }
    endBody();
    open(deadline);
}

/// Where the body that has come is the end, or a small file as a whole.
void RangeReader::keepEnd(Deadline const& deadline) {
    if (!body_ || !version_.size || *version_.size - position_ > endSize_) {
        return;
    }
    std::uint64_t const from = position_;
    std::vector<char> bytes(static_cast<std::size_t>(*version_.size - from));
    if (readAt(from, bytes, deadline) != bytes.size()) {
        throw wrongAnswer("less than the size that it tells");
    }
    endFrom_ = from;
    kept_ = std::make_shared<std::vector<char> const>(std::move(bytes));
}

void RangeReader::rest() noexcept {
    nextRange_ = std::min(nextRange_, mostAtRest);
    bool const hasMuch = !end_ || *end_ - position_ > mostAtRest;
    if (body_ && hasMuch && !isWholeAlways_) { // that would have to come from its start again
        body_.reset();
    }
}

std::unique_ptr<RangeReader> RangeReader::another() const {
    auto reader = std::make_unique<RangeReader>(client_, url_, sizes_);
    reader->place_ = place_;
    reader->isOpen_ = isOpen_;
    reader->isWholeAlways_ = isWholeAlways_;
    reader->version_ = version_;
    reader->isPage_ = isPage_;
    reader->endFrom_ = endFrom_;
    reader->kept_ = kept_;
    return reader;
}

void RangeReader::takeRange(web::AnswerHead const& head, std::uint64_t position,
                            std::optional<std::uint64_t> last) {
    if (isInSeveralParts(head)) {
        throw wrongAnswer("several parts in one");
    }
    if (head.headers.isRepeated("Content-Range")) {
        throw wrongAnswer("two ranges for one part");
    }
    auto const range = rangeIn(head);
    if (isWholeAlways_ || !range || !range->isSatisfied) {
        throw wrongAnswer("a part that nobody asked for");
    }
    if (range->first != position || (last && range->last > *last)) {
        throw wrongAnswer("another range than was asked for");
    }
    auto const length = head.contentLength();
    if (length && *length != range->last - range->first + 1) {
        throw wrongAnswer("another length than the range has");
    }
    Version found = versionOf(head);
    found.size = range->size;
    holdToVersion(found, !version_.validator().empty());
    position_ = position;
    end_ = range->last + 1;
}

void RangeReader::takeWhole(web::AnswerHead const& head) {
    Version found = versionOf(head);
    found.size = head.contentLength();
    // To a request for a range of one version, the whole file is also the answer where it is
    // another one by now: without a sign that it is the same, it counts as that.
    holdToVersion(found, false);
    isWholeAlways_ = true;
    position_ = 0;
    end_ = version_.size;
}

bool RangeReader::takeNoRange(web::AnswerHead const& head, std::uint64_t position) {
    auto const size = sizeIn(head); // the marks are those of the answer
    if (isOpen_ && size) {
        if (version_.size && *version_.size != *size) {
            throw changed();
        }
        holdToReached(*size);
    }
    // The end is taken from a server that says where it is, and at no place where it cannot be.
    if (version_.size || !size || *size > position) {
        throw wrongAnswer("a range of the file is refused");
    }
    version_.size = size;
    isOpen_ = true;
    endBody();
    return false;
}

void RangeReader::holdToVersion(Version const& found, bool mayTellLess) {
    if (!isOpen_) {
        version_ = found;
        return;
    }
    if (!version_.isStill(found, mayTellLess)) {
        throw changed();
    }
    if (!version_.size && found.size) {
        holdToReached(*found.size);
        version_.size = found.size;
    }
}

void RangeReader::holdToReached(std::uint64_t size) const {
    if (size < reached_) {
        throw changed();
    }
}

} // namespace foundation::storage::provider::http::detail
