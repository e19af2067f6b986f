#include <foundation/storage/provider/web/exchange.hpp>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <utility>

namespace foundation::storage::provider::web {

namespace {

/// More than any server has reason for.
constexpr std::size_t largestHead = std::size_t{256} * 1024;
constexpr std::size_t mostFields = 1000;
/// As much is received at once, and kept at most.
constexpr long receiveSize = 128 * 1024;
/// As much of a body is asked for and sent at once.
constexpr long sendSize = 256 * 1024;
/// A rest up to this size costs less than a new connection, where it comes within that time.
constexpr std::uint64_t shortRest = std::uint64_t{64} * 1024;
constexpr std::chrono::milliseconds soon{250};

std::string_view trimmed(std::string_view text) noexcept {
    constexpr std::string_view blanks = " \t\r\n";
    std::size_t const first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) + 1 - first);
}

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

void Exchange::addField(char const* line) {
    curl_slist* const longer = ::curl_slist_append(fields_.get(), line);
    if (!longer) {
        throw std::bad_alloc();
    }
    static_cast<void>(fields_.release());
    fields_.reset(longer);
}

void Exchange::set(Request const& request, WebOptions const& options) {
    CURL* const easy = channel_->easy;
    bool ok = true;
    auto const option = [&](auto name, auto value) {
        ok = ::curl_easy_setopt(easy, name, value) == CURLE_OK && ok;
    };
    option(CURLOPT_URL, request.url.text().c_str());
    option(CURLOPT_PROTOCOLS_STR, "http,https");
    option(CURLOPT_PATH_AS_IS, 1L);
    option(CURLOPT_FOLLOWLOCATION, 0L);
    // One exchange a connection: a body that is not read must not fill a window of many megabytes.
    option(CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_1_1);
    option(CURLOPT_NOSIGNAL, 1L);
    option(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(options.connectTimeout.count()));
    option(CURLOPT_BUFFERSIZE, receiveSize);
    option(CURLOPT_TCP_KEEPALIVE, 1L);
    option(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    option(CURLOPT_SSL_VERIFYPEER, 1L);
    option(CURLOPT_SSL_VERIFYHOST, 2L);
    option(CURLOPT_USERAGENT, options.userAgent.c_str());
    if (!options.certificateFile.empty()) {
        option(CURLOPT_CAINFO, options.certificateFile.c_str());
    }
#if LIBCURL_VERSION_NUM >= 0x075700
    // A search for an address cannot be called off; it is not waited for when time is over.
    option(CURLOPT_QUICK_EXIT, 1L);
#endif
    if (request.isOnNewConnection || (!request.isRepeatable && !request.isTraceable)) {
        option(CURLOPT_FRESH_CONNECT, 1L);
    }
    if (options.proxy) {
        option(CURLOPT_PROXY, options.proxy->c_str());
    }
    if (!request.netrcFile.empty()) {
        option(CURLOPT_NETRC, static_cast<long>(CURL_NETRC_OPTIONAL));
        option(CURLOPT_NETRC_FILE, request.netrcFile.c_str());
        option(CURLOPT_HTTPAUTH, CURLAUTH_BASIC);
    }
    if (body_) {
        option(CURLOPT_UPLOAD, 1L);
        option(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(body_->size));
        option(CURLOPT_READFUNCTION, &Exchange::giveBody);
        option(CURLOPT_READDATA, static_cast<void*>(this));
        option(CURLOPT_SEEKFUNCTION, &Exchange::seekBody);
        option(CURLOPT_SEEKDATA, static_cast<void*>(this));
        if (body_->size > static_cast<std::uint64_t>(sendSize)) {
            option(CURLOPT_UPLOAD_BUFFERSIZE, sendSize);
        }
    }
    if (request.method == "HEAD") {
        option(CURLOPT_NOBODY, 1L);
    } else if (request.method != "GET") {
        option(CURLOPT_CUSTOMREQUEST, request.method.c_str());
    }
    option(CURLOPT_HTTPHEADER, fields_.get());
    option(CURLOPT_HEADERFUNCTION, &Exchange::takeHeader);
    option(CURLOPT_HEADERDATA, static_cast<void*>(this));
    option(CURLOPT_WRITEFUNCTION, &Exchange::takeBody);
    option(CURLOPT_WRITEDATA, static_cast<void*>(this));
    option(CURLOPT_PREREQFUNCTION, &Exchange::noteConnection);
    option(CURLOPT_PREREQDATA, static_cast<void*>(this));
    if (!ok) {
        throw Failure(ErrorCode::InternalError, "the request cannot be made");
    }
}

int Exchange::noteConnection(void* exchange, char*, char*, int, int localPort) noexcept {
    auto& self = *static_cast<Exchange*>(exchange);
    // The library sends again by itself what had no answer on a connection that was used before.
    if (self.isConnected_ && !self.isRepeatable_) {
        self.isHeldBack_ = true;
        return CURL_PREREQFUNC_ABORT;
    }
    self.isConnected_ = true;
    long made = 0;
    ::curl_easy_getinfo(self.channel_->easy, CURLINFO_NUM_CONNECTS, &made);
    self.isConnectionOld_ = made == 0;
    // What is there before the request would be read as the answer to it.
    if (self.isConnectionOld_ && !self.channel_->isQuiet(localPort)) {
        self.isConnectionSpoiled_ = true;
        return CURL_PREREQFUNC_ABORT;
    }
    return CURL_PREREQFUNC_OK;
}

bool Exchange::isSpoiled() const noexcept {
    return isConnectionSpoiled_ || (hasOldAnswer() && isRepeatable_);
}

bool Exchange::hasOldAnswer() const noexcept {
    bool const isNoAnswer = result_ == CURLE_UNSUPPORTED_PROTOCOL ||
                            result_ == CURLE_WEIRD_SERVER_REPLY || result_ == CURLE_HTTP2;
    return isConnectionOld_ && isEnded_ && received_ == 0 && isNoAnswer;
}

std::size_t Exchange::giveBody(char* buffer, std::size_t, std::size_t size, void* exchange) {
    auto& self = *static_cast<Exchange*>(exchange);
    std::uint64_t const left = self.body_->size - self.given_;
    auto const count = static_cast<std::size_t>(std::min<std::uint64_t>(left, size));
    if (count == 0) {
        return 0;
    }
    try {
        self.body_->read(self.given_, {buffer, count});
    } catch (...) { // not through a library written in C
        self.bodyFailure_ = std::current_exception();
        return CURL_READFUNC_ABORT;
    }
    self.given_ += count;
    return count;
}

int Exchange::seekBody(void* exchange, curl_off_t offset, int origin) noexcept {
    auto& self = *static_cast<Exchange*>(exchange);
    if (origin != SEEK_SET || offset < 0 || static_cast<std::uint64_t>(offset) > self.body_->size) {
        return CURL_SEEKFUNC_FAIL;
    }
    self.given_ = static_cast<std::uint64_t>(offset);
    return CURL_SEEKFUNC_OK;
}

std::size_t Exchange::takeHeader(char* data, std::size_t, std::size_t size, void* exchange) {
    auto& self = *static_cast<Exchange*>(exchange);
    self.received_ += size;
    self.headSize_ += size;
    if (self.headSize_ > largestHead) {
        self.isHeadTooLarge_ = true;
        return 0;
    }
    try {
        self.takeHeaderLine(std::string_view(data, size));
    } catch (std::bad_alloc const&) { // not through a library written in C
        self.isOutOfMemory_ = true;
        return 0;
    }
    return self.isHeadTooLarge_ ? 0 : size;
}

void Exchange::takeHeaderLine(std::string_view line) {
    if (isHeadComplete_) {
        return; // fields behind a body say nothing that is needed
    }
    if (line.empty() || line.front() == '\r' || line.front() == '\n') {
        isHeadComplete_ = head_.status >= 200; // below that, another head follows
        return;
    }
    bool const goesOn = line.front() == ' ' || line.front() == '\t'; // RFC 9112, section 5.2
    line = trimmed(line);
    if (goesOn) {
        head_.headers.goOn(line);
        return;
    }
    std::size_t const colon = line.find(':');
    if (line.starts_with("HTTP/") && (colon == std::string_view::npos || line.find(' ') < colon)) {
        std::size_t const blank = line.find(' ');
        auto const status =
            blank == std::string_view::npos ? std::nullopt : parseNumber(line.substr(blank + 1, 3));
        head_.status = static_cast<int>(status.value_or(0));
        head_.headers.clear();
        return;
    }
    if (head_.headers.fields().size() == mostFields) {
        isHeadTooLarge_ = true;
        return;
    }
    if (colon != std::string_view::npos) {
        head_.headers.add(std::string(line.substr(0, colon)),
                          std::string(trimmed(line.substr(colon + 1))));
    }
}

std::size_t Exchange::takeBody(char* data, std::size_t, std::size_t size, void* exchange) {
    auto& self = *static_cast<Exchange*>(exchange);
    if (self.wanted_.empty()) {
        self.isPaused_ = true;
        return CURL_WRITEFUNC_PAUSE;
    }
    std::size_t const count = std::min(size, self.wanted_.size());
    try {
        self.spill_.assign(data + count, size - count);
    } catch (std::bad_alloc const&) {
        self.isOutOfMemory_ = true;
        return 0;
    }
    self.spillRead_ = 0;
    std::memcpy(self.wanted_.data(), data, count);
    self.wanted_ = self.wanted_.subspan(count);
    self.received_ += size;
    self.bodyReceived_ += size;
    return size;
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
        throw Failure(ErrorCode::IOError, std::string("the server's answer cannot be used: ") +
                                              ::curl_easy_strerror(result_));
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
    bool const isDone = head_.status >= 200 && head_.status < 300;
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
