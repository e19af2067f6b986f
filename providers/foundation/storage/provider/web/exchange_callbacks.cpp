// What an exchange tells the library, and what the library calls.

#include <foundation/storage/provider/web/exchange.hpp>

#include <algorithm>
#include <cstring>
#include <new>

namespace foundation::storage::provider::web {

namespace {

/// More than any server has reason for.
constexpr std::size_t largestHead = std::size_t{256} * 1024;
constexpr std::size_t mostFields = 1000;
/// As much is received at once, and kept at most.
constexpr long receiveSize = 128 * 1024;
/// As much of a body is asked for and sent at once.
constexpr long sendSize = 256 * 1024;

} // namespace

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

} // namespace foundation::storage::provider::web
