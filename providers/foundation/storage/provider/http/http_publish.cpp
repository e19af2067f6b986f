// Writing files on a server that speaks WebDAV: each is sent as a whole.

#include <foundation/storage/provider/http/http_provider.hpp>

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/http/detail/entity_tag.hpp>
#include <foundation/storage/provider/http/detail/range_reader.hpp>
#include <foundation/storage/provider/http/http_writing.hpp>

#include <algorithm>
#include <utility>
#include <vector>

namespace foundation::storage::provider::http {

using detail::DavExpected;
using detail::DavOutcome;
using State = detail::DavExpected::State;

namespace {

/// As much of a file is read at once.
constexpr std::size_t pieceSize = std::size_t{256} * 1024;
/// At least so many bytes in a second are expected of a way that goes on, and of a server's disk.
constexpr std::uint64_t slowestWay = std::uint64_t{64} * 1024;
constexpr std::uint64_t slowestDisk = std::uint64_t{1024} * 1024;

std::chrono::seconds timeFor(std::uint64_t size, std::uint64_t bytesInASecond) noexcept {
    // What a server tells of a size may be anything.
    constexpr std::uint64_t longest = std::uint64_t{30} * 24 * 3600;
    return std::chrono::seconds(std::min(size / bytesInASecond, longest));
}

} // namespace

std::string HttpProvider::tagOf(Description const& there) {
    return detail::strongTagOf(there.headers.find("ETag").value_or(""));
}

std::string HttpProvider::takeOld(StorageIRI const& location, Description const& there,
                                  spool::Content& content, web::Deadline const& deadline) const {
    web::Url const url = itemUrl(location);
    detail::RangeReader reader(client_, url, {options_.firstRange, options_.largestRange});
    web::Deadline const end = deadline.after(timeToSend(there.size.value_or(0)));
    reader.open(end);
    std::vector<char> buffer(pieceSize);
    while (std::size_t const got = reader.readAt(content.size(), buffer, end)) {
        content.write(content.size(), buffer.data(), got);
    }
    if (content.size() == 0 && there.size == 0U) {
        return tagOf(there); // of no bytes, an answer may tell none
    }
    std::string read = reader.place() == url ? detail::strongTagOf(reader.etag()) : std::string();
    if (!read.empty() && read != tagOf(there)) {
        // Another one was written since the question, or the server has two tags for one content.
        std::string const now = tagOf(lookAt(location, end));
        if (now != read && now == tagOf(there)) {
            read.clear();
        }
    }
    return read;
}

bool HttpProvider::holds(StorageIRI const& location, spool::Content const& content,
                         web::Deadline const& deadline) const {
    Description const there = lookAt(location, deadline);
    if (!there.isThere() || there.isFolder ||
        there.size.value_or(content.size()) != content.size()) {
        return false;
    }
    detail::RangeReader reader(client_, itemUrl(location),
                               {options_.firstRange, options_.largestRange});
    reader.open(deadline);
    std::vector<char> theirs(pieceSize);
    std::vector<char> ours(pieceSize);
    for (std::uint64_t done = 0;;) {
        std::size_t const got = reader.readAt(done, theirs, deadline);
        if (content.read(done, ours.data(), got) != got ||
            !std::equal(ours.begin(), ours.begin() + static_cast<std::ptrdiff_t>(got),
                        theirs.begin())) {
            return false;
        }
        done += got;
        if (got < theirs.size()) {
            return done == content.size();
        }
    }
}

std::chrono::milliseconds HttpProvider::timeToStore(std::uint64_t size) noexcept {
    return timeFor(size, slowestDisk);
}
std::chrono::milliseconds HttpProvider::timeToSend(std::uint64_t size) noexcept {
    return timeFor(size, slowestWay);
}
std::chrono::milliseconds HttpProvider::timeToWork(std::uint64_t size) const noexcept {
    return client_->options().operationTimeout + timeToStore(size);
}

DavOutcome HttpProvider::put(StorageIRI const& location, spool::Content const& content,
                             DavExpected const& expected, web::Deadline const& deadline) const {
    web::Body const body{content.size(), [&](std::uint64_t offset, std::span<char> buffer) {
                             content.read(offset, buffer.data(), buffer.size());
                         }};
    web::Url const url = itemUrl(location);
    return change(
        expected.state == State::Anything ? Sending::Once : Sending::UntilDone, Changed::Files,
        deadline,
        [&] { return dav_.put(url, body, expected, timeToWork(content.size()), deadline); },
        [&] { return holds(location, content, deadline); });
}

void HttpProvider::publish(StorageIRI const& location, spool::Content const& content,
                           DavExpected const& expected, bool& mayHaveCome) try {
    web::Deadline const deadline = client_->deadline().after(timeToSend(content.size()));
    bool const cameBefore = mayHaveCome;
    std::optional<detail::NamesInWork::Hold> hold;
    if (expected.state == State::Nothing) {
        hold.emplace(inWork_, itemUrl(location).text(), deadline);
        // Not every server looks at the condition of the request.
        if (lookAt(location, deadline).isThere()) {
            if (cameBefore && holds(location, content, deadline)) {
                return;
            }
            throw Exception(ErrorCode::ResourceAlreadyExists, location);
        }
    }
    auto const sent = [&](DavExpected const& wanted) {
        mayHaveCome = true;
        DavOutcome answered = put(location, content, wanted, deadline);
        mayHaveCome = cameBefore;
        return answered;
    };
    DavOutcome outcome = sent(expected);
    if (outcome.status == 412 && expected.state == State::Tagged) {
        // Where nothing was lost, the same content is another one's: as where two append one line.
        if (cameBefore && holds(location, content, deadline)) {
            return;
        }
        // There are servers whose conditions are not about the tags that they tell.
        Description const there = lookAt(location, deadline);
        if (!there.isThere() || tagOf(there) != expected.tag) {
            throw Exception(ErrorCode::ResourceInUse, location);
        }
        outcome = sent({});
    }
    if (!outcome.isSuccess()) {
        Description const there = lookAt(location, deadline);
        if (there.isThere() && there.isFolder) {
            throw Exception(ErrorCode::InvalidLocation, location);
        }
        failChange(outcome, location, deadline);
    }
} catch (web::Failure const& failure) {
    throw Exception(failure.code(), location, failure.what());
} catch (spool::Failure const& failure) {
    throw Exception(failure.code(), location);
}

HttpWritingStream::Publish HttpProvider::publishing(StorageIRI const& location,
                                                    DavExpected const& expected) {
    return [self = shared_from_this(), location, expected,
            mayHaveCome = false](spool::Content const& whole) mutable {
        self->publish(location, whole, expected, mayHaveCome);
    };
}

std::unique_ptr<ByteStream> HttpProvider::openStream(StorageIRI const& location,
                                                     ByteStreamOpenOptions const& options) try {
    web::Deadline const deadline = client_->deadline();
    requireDav(location, deadline);
    Description const there = lookAt(location, deadline);
    bool const isThere = there.isThere();
    if (there.isFolder) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    if (!isThere) {
        if (options.creation == ByteStreamCreation::OpenExisting) {
            throw Exception(ErrorCode::ResourceNotFound, location);
        }
        requireFolderAbove(location, deadline);
    }
    bool const keeps = isThere && options.withoutTruncate != 0;
    spool::Content content(space_);
    DavExpected expected;
    if (keeps) {
        expected.tag = takeOld(location, there, content, deadline);
        expected.state = expected.tag.empty() ? State::Anything : State::Tagged;
    }
    return std::make_unique<HttpWritingStream>(
        std::move(content),
        options.access == ByteStreamAccess::ReadWrite ? WritingAccess::ReadWrite
                                                      : WritingAccess::Write,
        options.withoutAppend == 0 ? WritingPlace::AtEnd : WritingPlace::AtPosition,
        /*isChanged=*/!keeps, publishing(location, expected));
} catch (web::Failure const& failure) {
    throw Exception(failure.code(), location, failure.what());
} catch (spool::Failure const& failure) {
    throw Exception(failure.code(), location);
}

std::unique_ptr<ByteStream> HttpProvider::openReplacement(StorageIRI const& location,
                                                          ReplacementPolicy const& policy) try {
    web::Deadline const deadline = client_->deadline();
    requireDav(location, deadline);
    if (!checkReplaceable(location, lookAt(location, deadline), policy)) {
        requireFolderAbove(location, deadline);
    }
    DavExpected const expected{replaces(policy) ? State::Anything : State::Nothing};
    return std::make_unique<HttpWritingStream>(spool::Content(space_), WritingAccess::ReadWrite,
                                               WritingPlace::AtPosition,
                                               /*isChanged=*/true, publishing(location, expected));
} catch (web::Failure const& failure) {
    throw Exception(failure.code(), location, failure.what());
}

} // namespace foundation::storage::provider::http
