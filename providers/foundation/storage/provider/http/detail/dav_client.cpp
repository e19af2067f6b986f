#include <foundation/storage/provider/http/detail/dav_client.hpp>

#include <foundation/storage/provider/http/detail/dav_multistatus.hpp>

#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

namespace foundation::storage::provider::http::detail {

namespace {

constexpr std::string_view wantedProperties =
    R"(<?xml version="1.0" encoding="utf-8"?>)"
    R"(<propfind xmlns="DAV:"><prop><resourcetype/><getcontentlength/><getlastmodified/>)"
    R"(<creationdate/><getetag/><getcontenttype/></prop></propfind>)";

/// Of an answer of any use: an item takes 300 to 1,000 bytes, and has about 13 tags.
constexpr std::uint64_t bytesOfPart = 24;

/// Whether one of the classes is named, each of which holds the first one (RFC 4918, section 18).
bool namesClass(std::string_view field) noexcept {
    while (!field.empty()) {
        std::size_t const end = std::min(field.find(','), field.size());
        std::string_view const item = web::trimmed(field.substr(0, end));
        field.remove_prefix(std::min(end + 1, field.size()));
        if (item == "1" || item == "2" || item == "3") {
            return true;
        }
    }
    return false;
}

DavPath pathOf(web::Url const& url) {
    auto path = DavPath::of(url);
    if (!path) {
        throw web::Failure(ErrorCode::InvalidLocation, "no item can have this location");
    }
    return *std::move(path);
}

std::string httpDate(std::int64_t seconds) {
    std::time_t const time = seconds;
    std::tm parts{};
    std::array<char, 64> text{};
    constexpr std::array days{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    constexpr std::array months{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    if (!::gmtime_r(&time, &parts)) {
        throw web::Failure(ErrorCode::UnsupportedOperation, "a time that cannot be sent");
    }
    std::snprintf(text.data(), text.size(), "%s, %02d %s %04d %02d:%02d:%02d GMT",
                  days[static_cast<std::size_t>(parts.tm_wday)], parts.tm_mday,
                  months[static_cast<std::size_t>(parts.tm_mon)], parts.tm_year + 1900,
                  parts.tm_hour, parts.tm_min, parts.tm_sec);
    return text.data();
}

web::Request requestOf(char const* method, web::Url const& url) {
    web::Request request{method, url};
    request.isRepeatable = false;
    // Whoever sends a change looks after it. A move is not sent again, and so not lost lightly.
    request.isTraceable = request.method != "MOVE";
    request.followsRedirects = false;
    request.takesTime = true; // all of a tree, or the content of a large file
    return request;
}

} // namespace

DavClient::Spoken DavClient::speechAt(web::Url const& url, unsigned attempts,
                                      web::Deadline const& deadline) const {
    web::Request request{"OPTIONS", url};
    request.attempts = attempts;
    auto const answer = client_->send(request, deadline);
    web::AnswerHead const& head = answer->head(deadline);
    answer->finish();
    for (auto const& [name, value] : head.headers.fields()) {
        if (web::areEqualNames(name, "DAV") && namesClass(value)) {
            // What is led to another origin is not asked of this one.
            return {answer->url().hasSameOrigin(url) ? Speech::Dav : Speech::Web};
        }
    }
    int const status = head.status;
    if (web::isAbsence(status)) {
        return {Speech::Unknown};
    }
    bool const isRefused = status == 400 || status == 401 || status == 403 || status == 407 ||
                           status == 408 || status == 429 ||
                           (status >= 500 && status != 501); // 501: the method is not known
    return isRefused ? Spoken{Speech::Refused, web::failureOf(status, head.headers)}
                     : Spoken{Speech::Web};
}

std::vector<DavResponse> DavClient::partsOf(web::Exchange& answer,
                                            web::Deadline const& deadline) const {
    MultistatusReader reader(static_cast<std::size_t>(largestAnswer_ / bytesOfPart));
    std::vector<char> buffer(std::size_t{64} * 1024);
    for (std::uint64_t total = 0;;) {
        std::size_t const got = answer.read(buffer, deadline);
        if (got == 0) {
            return reader.finish();
        }
        total += got;
        if (total > largestAnswer_) {
            throw web::Failure(ErrorCode::FileTooLarge, "the server sent more XML than is taken");
        }
        reader.take({buffer.data(), got});
    }
}

/// `url` becomes the one that the answer is about.
std::vector<DavResponse> DavClient::ask(web::Url& url, char const* depth, int& status,
                                        web::Deadline const& deadline) const {
    web::Request request{"PROPFIND", url};
    request.headers.add("Depth", depth);
    request.headers.add("Content-Type", "application/xml; charset=utf-8");
    request.headers.add("Accept-Encoding", "identity");
    request.body = web::Body::of(wantedProperties);
    for (unsigned attempt = 1;; ++attempt) {
        auto answer = client_->send(request, deadline); // which tries again by itself
        try {
            status = answer->head(deadline).status;
            if (!answer->url().hasSameOrigin(url)) {
                throw web::unusableAnswer("it is another server's");
            }
            url = answer->url();
            if (status == 207) {
                return partsOf(*answer, deadline);
            }
            answer->finish();
            if (web::isSuccess(status)) {
                status = 405; // that is no answer to this request, and so the method is unknown
            }
            return {};
        } catch (web::Failure const& failure) { // of the body
            answer.reset();
            if (!failure.mayPass() || attempt >= client_->options().attempts) {
                throw;
            }
            client_->pauseBefore(attempt + 1, std::chrono::milliseconds(0), deadline, failure);
        }
    }
}

DavItem DavClient::find(web::Url const& url, web::Deadline const& deadline) const {
    web::Url asked = url;
    DavItem item;
    std::vector<DavResponse> const responses = ask(asked, "0", item.status, deadline);
    if (item.status != 207) {
        return item;
    }
    // Some write its name as it is kept there, and not as it was asked for.
    DavPath const place = asWritten(responses, pathOf(asked));
    for (DavResponse const& response : responses) {
        auto const path = DavPath::of(response.href, place);
        if (!path || !path->isSameAs(place)) {
            continue;
        }
        if (response.status != 0 && !web::isSuccess(response.status)) {
            item.status = response.status;
            return item;
        }
        item.isKindTold = response.properties.isFolder || response.href.ends_with('/');
        if (!response.properties.isFolder && response.refusal != 0) {
            item.status = response.refusal;
            return item;
        }
        item.status = 200;
        item.properties = response.properties;
        item.isFolder = isFolder(response);
        return item;
    }
    throw web::unusableAnswer("it tells of something else");
}

DavListing DavClient::list(web::Url const& folder, web::Deadline const& deadline) const {
    web::Url asked = folder;
    DavListing listing;
    std::vector<DavResponse> const responses = ask(asked, "1", listing.status, deadline);
    if (listing.status != 207) {
        return listing;
    }
    return listingOf(responses, pathOf(asked));
}

DavOutcome DavClient::change(web::Request request, web::Deadline const& deadline) const {
    auto const answer = client_->send(request, deadline);
    DavOutcome outcome{answer->head(deadline).status, answer->sendings()};
    if (outcome.status != 207) {
        answer->finish();
        return outcome;
    }
    outcome.status = 200;
    auto const place = DavPath::of(request.url);
    for (DavResponse const& response : partsOf(*answer, deadline)) {
        int const status = web::isSuccess(response.status) ? 0 : response.status;
        int const refusal = status != 0 ? status : response.refusal;
        // 424: not done because of another one.
        if (refusal >= 300 && (outcome.isSuccess() || outcome.status == 424)) {
            outcome.status = refusal;
            outcome.failed = place ? DavPath::of(response.href, *place) : std::nullopt;
        }
    }
    return outcome;
}

DavOutcome DavClient::makeFolder(web::Url const& url, web::Deadline const& deadline) const {
    return change(requestOf("MKCOL", url), deadline);
}

DavOutcome DavClient::remove(web::Url const& url, std::string const& tag,
                             web::Deadline const& deadline) const {
    web::Request request = requestOf("DELETE", url);
    if (!tag.empty()) {
        request.headers.add("If-Match", tag);
    }
    return change(std::move(request), deadline);
}

DavOutcome DavClient::transfer(Transfer what, web::Url const& source, web::Url const& destination,
                               Overwriting overwriting, web::Deadline const& deadline) const {
    web::Request request = requestOf(what == Transfer::Copy ? "COPY" : "MOVE", source);
    request.headers.add("Destination", destination.text());
    request.headers.add("Overwrite", overwriting == Overwriting::Allowed ? "T" : "F");
    return change(std::move(request), deadline);
}

DavOutcome DavClient::put(web::Url const& url, web::Body body, DavExpected const& expected,
                          std::chrono::milliseconds longestWork,
                          web::Deadline const& deadline) const {
    web::Request request = requestOf("PUT", url);
    request.isRepeatable = expected.state == DavExpected::State::Anything;
    request.longestWork = longestWork;
    if (expected.state == DavExpected::State::Nothing) {
        request.headers.add("If-None-Match", "*");
    } else if (expected.state == DavExpected::State::Tagged) {
        request.headers.add("If-Match", expected.tag);
    }
    request.body = std::move(body);
    return change(std::move(request), deadline);
}

DavOutcome DavClient::setLastModified(web::Url const& url, std::int64_t seconds,
                                      web::Deadline const& deadline) const {
    std::string const text = R"(<?xml version="1.0" encoding="utf-8"?>)"
                             R"(<propertyupdate xmlns="DAV:"><set><prop><getlastmodified>)" +
                             httpDate(seconds) + "</getlastmodified></prop></set></propertyupdate>";
    web::Request request = requestOf("PROPPATCH", url);
    request.isRepeatable = true;
    request.headers.add("Content-Type", "application/xml; charset=utf-8");
    request.body = web::Body::of(text);
    return change(std::move(request), deadline);
}

} // namespace foundation::storage::provider::http::detail
