#include <foundation/storage/provider/web/exchange.hpp>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <utility>

namespace foundation::storage::provider::web {

namespace {

/// A rest up to this size costs less than a new connection, where it comes within that time.
constexpr std::uint64_t shortRest = std::uint64_t{64} * 1024;
constexpr std::chrono::milliseconds soon{250};

} // namespace

std::optional<std::uint64_t> AnswerHead::contentLength() const {
    auto const value = headers.find("Content-Length");
    return value ? parseNumber(*value) : std::nullopt;
}

Body Body::of(std::span<char const> bytes) {
    return {bytes.size(), [bytes](std::uint64_t offset, std::span<char> buffer) {
                std::memcpy(buffer.data(), bytes.data() + offset, buffer.size());
            }};
}

Exchange::Exchange(ConnectionPool& pool, Request const& request, WebOptions const& options)
    : url_(request.url),
      stallTimeout_(options.stallTimeout),
      channel_(pool.lend()),
      isRepeatable_(request.isRepeatable),
      takesTime_(request.takesTime),
      longestWork_(request.longestWork),
      body_(request.body) {
    for (auto const& [name, value] : request.headers.fields()) {
        std::string line = name;
        line += value.empty() ? ";" : ": ";
        line += value;
        addField(line.c_str());
    }
    if (body_) {
        addField("Expect:"); // not to wait for a word before the body
    }
    set(request, options);
    if (::curl_multi_add_handle(channel_->multi, channel_->easy) != CURLM_OK) {
        throw Failure(ErrorCode::InternalError, "the request cannot be made");
    }
}

Exchange::~Exchange() {
    ::curl_multi_remove_handle(channel_->multi, channel_->easy);
}

bool Exchange::isSpoiled() const noexcept {
    return isConnectionSpoiled_ || (hasOldAnswer() && isRepeatable_);
}

bool Exchange::hasOldAnswer() const noexcept {
    bool const isNoAnswer = result_ == CURLE_UNSUPPORTED_PROTOCOL ||
                            result_ == CURLE_WEIRD_SERVER_REPLY || result_ == CURLE_HTTP2;
    return isConnectionOld_ && isEnded_ && received_ == 0 && isNoAnswer;
}

template<class Seen>
void Exchange::drive(Seen const& seen, Deadline const& deadline) {
    using Milliseconds = std::chrono::milliseconds;
    std::uint64_t before = progress();
    bool wasConnected = isConnected_;
    Deadline stall(stallTimeout_);
    std::stop_callback const wake(deadline.stop(),
                                  [this] { ::curl_multi_wakeup(channel_->multi); });
    for (;;) {
        int running = 0;
        if (::curl_multi_perform(channel_->multi, &running) != CURLM_OK) {
            throw Failure(ErrorCode::InternalError, "the request cannot be made");
        }
        noteEnd();
        if (seen() || isEnded_) {
            return;
        }
        std::uint64_t const now = progress();
        if (now != before || isConnected_ != wasConnected) {
            before = now;
            wasConnected = isConnected_;
            stall = Deadline(stallTimeout_);
        }
        bool const isWorking = isAtWork();
        if (isWorking && longestWork_ && !endOfWork_) {
            endOfWork_.emplace(*longestWork_);
        }
        if (deadline.isOver() || (isWorking && endOfWork_ && endOfWork_->isOver())) {
            throw Failure(ErrorCode::IOError, "the server took longer than the operation may");
        }
        // Connecting has a limit of its own.
        bool const mayStall = isConnected_ && !isWorking;
        if (mayStall && stall.isOver()) {
            throw Failure(ErrorCode::IOError, "the server has sent or taken nothing for too long",
                          Failure::Repetition::MayHelp);
        }
        Milliseconds wait = std::min(deadline.left(), Milliseconds(1000));
        if (mayStall) {
            wait = std::min(wait, stall.left());
        }
        if (isWorking && endOfWork_) {
            wait = std::min(wait, endOfWork_->left());
        }
        ::curl_multi_poll(channel_->multi, nullptr, 0, static_cast<int>(wait.count()), nullptr);
    }
}

bool Exchange::isAtWork() const noexcept {
    bool const isSent = !body_ || (given_ == body_->size && channel_->unsent() == 0);
    return takesTime_ && !isHeadComplete_ && isSent;
}

std::uint64_t Exchange::progress() const noexcept {
    // What the system has taken may still wait here, for many seconds where the way is narrow.
    return received_ + given_ - (given_ > 0 ? std::min(given_, channel_->unsent()) : 0);
}

void Exchange::noteEnd() {
    int left = 0;
    while (CURLMsg const* const message = ::curl_multi_info_read(channel_->multi, &left)) {
        if (message->msg == CURLMSG_DONE) {
            isEnded_ = true;
            result_ = message->data.result;
        }
    }
}

void Exchange::failByResult() const {
    using enum Failure::Repetition;
    if (isOutOfMemory_) {
        throw std::bad_alloc();
    }
    if (bodyFailure_) {
        std::rethrow_exception(bodyFailure_);
    }
    if (isConnectionSpoiled_) {
        throw Failure(ErrorCode::IOError, "the server sent bytes that nobody asked for",
                      IsHarmless);
    }
    if (isHeldBack_ || hasOldAnswer()) {
        throw Failure(ErrorCode::IOError, "the connection was lost", MayHelp);
    }
    if (isHeadTooLarge_) {
        throw Failure(ErrorCode::IOError, "the server sent more headers than are taken");
    }
    switch (result_) {
    case CURLE_COULDNT_RESOLVE_HOST:
        throw Failure(ErrorCode::IOError, "the host has no address");
    case CURLE_COULDNT_RESOLVE_PROXY:
        throw Failure(ErrorCode::IOError, "the proxy has no address");
    case CURLE_COULDNT_CONNECT:
        throw Failure(ErrorCode::IOError, "the server cannot be reached", IsHarmless);
    case CURLE_OPERATION_TIMEDOUT:
        throw Failure(ErrorCode::IOError, "there was no connection in time", IsHarmless);
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_INVALIDCERTSTATUS:
        throw Failure(ErrorCode::IOError, "the certificate of the server is not valid");
    case CURLE_SSL_CACERT_BADFILE:
        throw Failure(ErrorCode::IOError, "the file of trusted certificates cannot be read");
    case CURLE_SSL_CONNECT_ERROR:
        throw Failure(ErrorCode::IOError, "no secure connection can be made", IsHarmless);
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
        throw Failure(ErrorCode::IOError, "the connection was lost", MayHelp);
    case CURLE_OUT_OF_MEMORY: // the library says so of a line that is longer than it takes, too
        throw Failure(ErrorCode::IOError, "the server sent a line that is too long, or there was "
                                          "no memory for it");
    default:
        // The library's own text for the number; it names nothing of the request.
        throw unusableAnswer(::curl_easy_strerror(result_));
    }
}

AnswerHead const& Exchange::head(Deadline const& deadline) {
    drive([&] { return isHeadComplete_; }, deadline);
    if (!isHeadComplete_) {
        if (result_ == CURLE_OK) {
            throw Failure(ErrorCode::IOError, "the server's answer has no end of its headers",
                          Failure::Repetition::MayHelp);
        }
        failByResult();
    }
    bool const isDone = isSuccess(head_.status);
    if (isDone && bodyFailure_) {
        std::rethrow_exception(bodyFailure_);
    }
    if (isDone && body_ && given_ < body_->size) {
        throw Failure(ErrorCode::IOError, "the server answered before it had the whole request",
                      Failure::Repetition::MayHelp);
    }
    return head_;
}

std::size_t Exchange::read(std::span<char> buffer, Deadline const& deadline) {
    if (buffer.empty()) {
        return 0;
    }
    if (spillRead_ < spill_.size()) {
        std::size_t const count = std::min(buffer.size(), spill_.size() - spillRead_);
        std::memcpy(buffer.data(), spill_.data() + spillRead_, count);
        spillRead_ += count;
        return count;
    }
    wanted_ = buffer;
    if (isPaused_) {
        isPaused_ = false;
        ::curl_easy_pause(channel_->easy, CURLPAUSE_CONT); // may bring bytes at once
    }
    // As much as is there, and at least something.
    auto const count = [&] { return buffer.size() - wanted_.size(); };
    try {
        drive([&] { return count() > 0; }, deadline);
    } catch (...) {
        wanted_ = {};
        throw;
    }
    std::size_t const got = count();
    wanted_ = {};
    if (got == 0 && result_ != CURLE_OK) {
        failByResult();
    }
    return got;
}

std::uint64_t Exchange::finish() {
    auto const length = head_.contentLength();
    bool const isAllRead = isEnded_ && spillRead_ == spill_.size();
    if (isAllRead || !isHeadComplete_ || (length && *length > bodyReceived_ + shortRest)) {
        return 0;
    }
    std::uint64_t total = 0;
    try {
        Deadline const deadline(soon);
        std::array<char, 8192> rest{};
        while (total <= shortRest) {
            std::size_t const got = read(rest, deadline);
            if (got == 0) {
                break;
            }
            total += got;
        }
    } catch (Failure const&) { // then the connection is closed
    }
    return total;
}

} // namespace foundation::storage::provider::web
