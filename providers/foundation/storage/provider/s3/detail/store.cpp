#include <foundation/storage/provider/s3/detail/store.hpp>

#include <foundation/storage/provider/s3/detail/digest.hpp>
#include <foundation/storage/provider/s3/detail/encoding.hpp>
#include <foundation/storage/provider/s3/detail/s3_xml.hpp>
#include <foundation/storage/provider/s3/detail/signer.hpp>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>

namespace foundation::storage::provider::s3::detail {

namespace {

/// A store refuses what is signed for a time further away than a quarter of an hour.
constexpr std::int64_t largestSkew = 5 * 60;

std::string queryOf(Question const& question) {
    std::string query;
    for (auto const& [name, value] : question.query) {
        query.append(query.empty() ? "" : "&").append(encoded(name, Slash::Encoded));
        query.append("=").append(encoded(value, Slash::Encoded));
    }
    return query;
}

bool isOfOneLine(char c) noexcept {
    return static_cast<unsigned char>(c) >= ' ' && c != 0x7f;
}

/// A bucket that is elsewhere is a failure: what follows a redirect would go unsigned.
web::WebOptions withoutRedirects(web::WebOptions options) {
    options.redirects = 0;
    return options;
}

} // namespace

Store::Store(std::string_view bucket, S3Options options)
    : options_(std::move(options)),
      endpoint_(bucket, options_),
      client_(endpoint_.home(),
              {.sign =
                   [this](web::Request& request) {
                       detail::sign(request, options_.credentials, {options_.region}, now());
                   }},
              withoutRedirects(options_.web)) {}

std::int64_t Store::now() const {
    return std::time(nullptr) + clockOffset_.load(std::memory_order_relaxed);
}

bool Store::mendClock(web::AnswerHead const& head) const {
    auto const value = head.headers.find("Date");
    auto const date = value ? web::parseHttpDate(*value) : std::nullopt;
    if (!date || std::abs(*date - now()) < largestSkew) {
        return false;
    }
    clockOffset_.store(*date - std::time(nullptr), std::memory_order_relaxed);
    return true;
}

/// TLS holds the bytes together already; hashing many again would cost more than sending them.
std::string Store::payloadHashOf(Question const& question) const {
    constexpr std::size_t many = std::size_t{1024} * 1024;
    std::span<char const> const body = question.body.value_or(std::span<char const>());
    if (endpoint_.home().isSecure() && body.size() > many) {
        return "UNSIGNED-PAYLOAD";
    }
    return hex(sha256(body));
}

std::unique_ptr<web::Exchange> Store::send(Question const& question, web::Deadline const& deadline,
                                           bool isRepeatable) const {
    web::Request request{question.method, endpoint_.of(question.key, queryOf(question)),
                         question.headers};
    for (auto const& [name, value] : request.headers.fields()) {
        if (!std::all_of(value.begin(), value.end(), isOfOneLine)) {
            throw web::Failure(ErrorCode::InternalError, "the request cannot be made");
        }
    }
    if (!options_.credentials.accessKey.empty()) {
        request.headers.add("x-amz-content-sha256", payloadHashOf(question));
    }
    if (question.body) {
        request.body = web::Body::of(*question.body);
    }
    request.isRepeatable = isRepeatable;
    request.isTraceable = true; // see Inquiry
    for (bool isMended = false;; isMended = true) {
        auto answer = client_.send(request, deadline);
        web::AnswerHead const& head = answer->head(deadline);
        if (head.status != 403 || isMended || !mendClock(head)) {
            return answer;
        }
        answer->finish();
    }
}

Answer Store::read(web::Exchange& exchange, web::Deadline const& deadline) const {
    web::AnswerHead const& head = exchange.head(deadline);
    Answer answer{head.status, head.headers, {}};
    std::array<char, 16 * 1024> buffer; // NOLINT(*-member-init): filled by the next call
    while (std::size_t const got = exchange.read(buffer, deadline)) {
        if (answer.body.size() + got > largestDocument) {
            throw wrongAnswer("it is longer than any");
        }
        answer.body.append(buffer.data(), got);
    }
    return answer;
}

Answer Store::ask(Question const& question, web::Deadline const& deadline) const {
    for (unsigned attempt = 1;; ++attempt) {
        auto const exchange = send(question, deadline);
        try {
            Answer answer = read(*exchange, deadline);
            auto const failure =
                failureOf(answer.status, answer.headers, answer.body, options_.credentials);
            if (!failure) {
                return answer;
            }
            throw *failure;
        } catch (web::Failure const& failure) {
            bool const wasRepeated = web::mayPass(exchange->head(deadline).status);
            if (!failure.mayPass() || wasRepeated || attempt >= options_.web.attempts) {
                throw;
            }
            client_.pauseBefore(attempt + 1, {}, deadline, failure);
        }
    }
}

std::int64_t Doubt::secondsSince() const {
    using std::chrono::steady_clock;
    return std::chrono::ceil<std::chrono::seconds>(steady_clock::now() - began).count();
}

std::string Store::askOnce(Question const& question, Inquiry const& inquiry,
                           web::Deadline const& deadline) const {
    Doubt doubt{std::chrono::steady_clock::now()};
    for (unsigned attempt = 1;; ++attempt) {
        std::optional<web::Failure> last;
        try {
            auto const exchange = send(question, deadline, false);
            Answer answer = read(*exchange, deadline);
            auto const failure =
                failureOf(answer.status, answer.headers, answer.body, options_.credentials);
            if (!failure) {
                return inquiry.take(std::move(answer));
            }
            throw *failure;
        } catch (StoreFailure const& failure) {
            int const status = failure.status();
            bool const wasDone = status < 300 || (web::mayPass(status) && !web::isUndone(status));
            if (!wasDone) {
                if (doubt.sendings > 0) {
                    if (auto result = inquiry.lookBehind(failure, doubt)) {
                        return *std::move(result);
                    }
                }
                // What was undone has been sent again already.
                if (!failure.mayPass() || web::isUndone(status)) {
                    throw;
                }
            } else {
                ++doubt.sendings;
            }
            last = failure;
        } catch (web::Failure const& failure) {
            if (failure.cannotHaveCome()) {
                throw;
            }
            ++doubt.sendings;
            last = failure;
        }
        if (doubt.sendings > 0) {
            if (auto result = inquiry.look(doubt)) {
                return *std::move(result);
            }
        }
        if (!last->mayPass() || attempt >= options_.web.attempts) {
            throw *last;
        }
        client_.pauseBefore(attempt + 1, {}, deadline, *last);
    }
}

} // namespace foundation::storage::provider::s3::detail
