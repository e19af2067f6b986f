#include <foundation/storage/provider/web/client.hpp>

#include <algorithm>
#include <condition_variable>
#include <ctime>
#include <mutex>
#include <random>
#include <utility>

namespace foundation::storage::provider::web {

using Milliseconds = std::chrono::milliseconds;

namespace {

/// To the same request elsewhere (RFC 9110, section 15.4).
bool isRedirect(int status, std::string_view method) noexcept {
    switch (status) {
    case 301:
    case 302:
        return method != "POST";
    case 303:
        return method == "GET" || method == "HEAD";
    default:
        return status == 307 || status == 308;
    }
}

/// Seconds, or a date (RFC 9110, section 10.2.3); none where the answer asks for nothing.
Milliseconds pauseAskedFor(AnswerHead const& head) {
    auto const value = head.headers.find("Retry-After");
    if (!value) {
        return Milliseconds(0);
    }
    std::int64_t seconds = 0;
    constexpr std::int64_t day = 24 * 3600;
    if (auto const number = parseNumber(*value)) {
        seconds = static_cast<std::int64_t>(std::min<std::uint64_t>(*number, day));
    } else if (auto const date = parseHttpDate(*value)) {
        seconds = std::clamp<std::int64_t>(*date - std::time(nullptr), 0, day);
    }
    return std::chrono::seconds(seconds);
}

/// A random part, so that many who failed at one moment do not all come back at one moment.
Milliseconds jittered(Milliseconds pause) {
    thread_local std::minstd_rand random{std::random_device{}()};
    return Milliseconds(
        std::uniform_int_distribution<Milliseconds::rep>(pause.count() / 2, pause.count())(random));
}

} // namespace

Client::Client(Url home, Identity identity, WebOptions options)
    : home_(std::move(home)),
      identity_(std::move(identity)),
      options_(std::move(options)),
      pool_(std::make_shared<ConnectionPool>(options_.idleConnections)) {}

void Client::pauseBefore(unsigned attempt, Milliseconds minimum, Deadline const& deadline,
                         Failure const& last) const {
    Milliseconds pause = options_.firstPause;
    for (unsigned i = 2; i < attempt && pause < options_.longestPause; ++i) {
        pause *= 2;
    }
    pause = std::max(jittered(std::min(pause, options_.longestPause)), minimum);
    if (pause >= deadline.left()) {
        throw last;
    }
    std::mutex mutex;
    std::unique_lock lock(mutex);
    std::condition_variable_any never;
    never.wait_for(lock, deadline.stop(), pause, [] { return false; });
    if (deadline.isOver()) {
        throw last;
    }
}

std::unique_ptr<Exchange> Client::send(Request const& request, Deadline const& deadline) const {
    unsigned const attempts = request.attempts.value_or(options_.attempts);
    bool hasCome = false; // to a server, which has said to send it again
    for (unsigned attempt = 1;; ++attempt) {
        std::optional<Failure> failure;
        Milliseconds minimum(0);
        try {
            std::unique_ptr<Exchange> answer = follow(request, deadline);
            AnswerHead const& head = answer->head(deadline);
            answer->setSendings(hasCome ? attempt : 1);
            bool const mayGoAgain = request.isRepeatable || isUndone(head.status);
            if (!mayPass(head.status) || !mayGoAgain || attempt >= attempts) {
                return answer;
            }
            minimum = pauseAskedFor(head);
            if (minimum > Milliseconds(0) && minimum >= deadline.left()) {
                return answer; // a failure would say that it may be sent again by now
            }
            failure = failureOfStatus(head.status);
            hasCome = true;
            answer->finish();
        } catch (Failure const& thrown) {
            bool const mayGoAgain = request.isRepeatable || thrown.cannotHaveCome();
            if (!thrown.mayPass() || !mayGoAgain || attempt >= attempts) {
                if (hasCome && thrown.cannotHaveCome()) { // but an earlier one has
                    throw Failure(thrown.code(), thrown.what(), Failure::Repetition::MayHelp);
                }
                throw;
            }
            failure = thrown;
        }
        pauseBefore(attempt + 1, minimum, deadline, *failure);
    }
}

std::unique_ptr<Exchange> Client::follow(Request const& request, Deadline const& deadline) const {
    Request current = request;
    for (unsigned step = 0;; ++step) {
        std::unique_ptr<Exchange> answer = sendOnce(current, deadline);
        AnswerHead const& head = answer->head(deadline);
        auto const reference = head.headers.find("Location");
        bool const isFollowed = current.followsRedirects && options_.redirects > 0 &&
                                isRedirect(head.status, current.method);
        if (!isFollowed || !reference) {
            return answer;
        }
        if (step == options_.redirects) {
            throw Failure(ErrorCode::IOError, "the server leads from redirect to redirect");
        }
        std::optional<Url> next = current.url.resolve(*reference);
        if (!next) {
            throw Failure(ErrorCode::IOError, "the server leads to what is no web address");
        }
        if (current.url.isSecure() && !next->isSecure() && !options_.followsToPlainHttp) {
            throw Failure(ErrorCode::IOError, "the server leads from https to http");
        }
        current.url = *std::move(next);
        answer->finish();
    }
}

Request Client::identified(Request request) const {
    if (request.url.hasSameOrigin(home_)) {
        for (auto const& [name, value] : identity_.fields.fields()) {
            request.headers.add(name, value);
        }
        request.netrcFile = identity_.netrcFile;
        if (identity_.sign) {
            identity_.sign(request);
        }
    }
    return request;
}

std::unique_ptr<Exchange> Client::sendOnce(Request const& request, Deadline const& deadline) const {
    auto answer = std::make_unique<Exchange>(*pool_, identified(request), options_);
    try {
        answer->head(deadline);
        return answer;
    } catch (Failure const&) {
        if (!answer->isSpoiled()) {
            throw;
        }
    }
    answer.reset();
    Request again = identified(request);
    again.isOnNewConnection = true;
    answer = std::make_unique<Exchange>(*pool_, again, options_);
    answer->head(deadline);
    return answer;
}

} // namespace foundation::storage::provider::web
