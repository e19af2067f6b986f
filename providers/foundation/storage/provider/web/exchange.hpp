#pragma once

#include <foundation/storage/provider/web/connection_pool.hpp>
#include <foundation/storage/provider/web/deadline.hpp>
#include <foundation/storage/provider/web/failure.hpp>
#include <foundation/storage/provider/web/headers.hpp>
#include <foundation/storage/provider/web/url.hpp>
#include <foundation/storage/provider/web/web_options.hpp>

#include <chrono>
#include <cstdint>
#include <curl/curl.h>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace foundation::storage::provider::web {

/// What a request carries; read anew each time that it is sent.
struct Body {
    std::uint64_t size = 0;
    /// Fills the buffer with the bytes from `offset` on. What it throws ends the request, and comes
    /// out of the call that was made of the exchange.
    std::function<void(std::uint64_t offset, std::span<char> buffer)> read = {};

    /// `bytes` must outlive the request.
    static Body of(std::span<char const> bytes);
};

struct Request {
    std::string method = "GET";
    Url url;
    Headers headers = {};
    /// Where the user and the password for the host are looked up (netrc(5)), if anywhere.
    std::string netrcFile = {};
    bool isOnNewConnection = false; ///< whether none that is open already may be used
    std::optional<Body> body = {};  ///< an empty one is sent as such: with the length 0
    bool isRepeatable = true;       ///< whether it does no harm when it is sent twice
    /// Whether the sender finds out what has become of one that was lost. Otherwise one that is not
    /// repeatable goes on a new connection, as an old one may be at its end.
    bool isTraceable = false;
    bool followsRedirects = true; ///< else a redirect is the answer
    /// Whether the server may work for longer than a stall before it answers: then only the
    /// deadline counts, once it has the whole request.
    bool takesTime = false;
    /// For how long, where less time than to the deadline is enough: of that most may be for the
    /// way that the request takes.
    std::optional<std::chrono::milliseconds> longestWork = {};
    /// How often it is sent at most; where there is no number, as often as the options say.
    std::optional<unsigned> attempts = {};
};

struct AnswerHead {
    int status = 0;
    Headers headers;
    /// The length of the body, where the answer tells one.
    std::optional<std::uint64_t> contentLength() const;
};

/// One request and its answer, on a connection of its own. The body is pulled: what the reader does
/// not ask for stays with the server, but for what fits into some small buffers. Nothing is done
/// between the calls. For one thread at a time.
///
/// All calls throw Failure; behind a failure the exchange is of no use.
class Exchange {
  public:
    /// Sends nothing yet.
    Exchange(ConnectionPool& pool, Request const& request, WebOptions const& options);
    Exchange(Exchange const&) = delete;
    Exchange& operator=(Exchange const&) = delete;
    /// Where the body was not read to its end, the connection is closed.
    ~Exchange();

    Url const& url() const noexcept { return url_; }
    /// How often the request was sent for this answer, where servers have said to send it again.
    unsigned sendings() const noexcept { return sendings_; }
    void setSendings(unsigned count) noexcept { sendings_ = count; }
    /// Waits for it.
    AnswerHead const& head(Deadline const& deadline);
    /// REQUIRES: head() has returned. Up to as many bytes of the body as there is room for; 0 at
    /// its end.
    std::size_t read(std::span<char> buffer, Deadline const& deadline);
    /// Reads a rest that is short and comes soon, so that the connection can be used again. Throws
    /// nothing but std::bad_alloc. Returns how many bytes there were.
    std::uint64_t finish();
    /// Whether it failed as a connection was used that something else has spoiled: with bytes that
    /// nobody asked for, or with an answer that is none. On a new one it may have success.
    bool isSpoiled() const noexcept;

  private:
    static std::size_t giveBody(char* buffer, std::size_t one, std::size_t size, void* exchange);
    static int seekBody(void* exchange, curl_off_t offset, int origin) noexcept;
    static std::size_t takeHeader(char* data, std::size_t one, std::size_t size, void* exchange);
    static std::size_t takeBody(char* data, std::size_t one, std::size_t size, void* exchange);
    static int noteConnection(void* exchange, char*, char*, int, int localPort) noexcept;

    void set(Request const& request, WebOptions const& options);
    void addField(char const* line);
    void takeHeaderLine(std::string_view line);
    /// Lets the exchange go on until there is something to see.
    template<class Seen>
    void drive(Seen const& seen, Deadline const& deadline);
    /// Whether the server has the request, and time for it.
    bool isAtWork() const noexcept;
    /// Grows with each byte that goes to or comes from the server.
    std::uint64_t progress() const noexcept;
    void noteEnd();
    /// Whether what came is none, on a connection that was used before: what it is there for, and
    /// what became of the request, nobody knows.
    bool hasOldAnswer() const noexcept;
    [[noreturn]] void failByResult() const;

    Url const url_;
    std::chrono::milliseconds const stallTimeout_;
    struct ListDeleter {
        void operator()(curl_slist* list) const noexcept { ::curl_slist_free_all(list); }
    };
    std::unique_ptr<curl_slist, ListDeleter> fields_;
    ConnectionPool::Lent channel_;

    bool const isRepeatable_;
    bool const takesTime_;
    std::optional<std::chrono::milliseconds> const longestWork_;
    std::optional<Deadline> endOfWork_; ///< once the server is at work
    unsigned sendings_ = 1;
    std::optional<Body> const body_;
    std::uint64_t given_ = 0; ///< bytes of the body that is sent
    std::exception_ptr bodyFailure_;

    AnswerHead head_;
    std::size_t headSize_ = 0;
    bool isHeadComplete_ = false;
    bool isHeadTooLarge_ = false;
    bool isOutOfMemory_ = false; ///< in a call from the library
    bool isConnected_ = false;
    bool isConnectionOld_ = false;
    bool isConnectionSpoiled_ = false;
    bool isHeldBack_ = false; ///< from being sent twice
    bool isPaused_ = false;
    bool isEnded_ = false;
    CURLcode result_ = CURLE_OK; ///< where it has ended
    std::uint64_t received_ = 0; ///< bytes of head and body
    std::uint64_t bodyReceived_ = 0;
    std::span<char> wanted_; ///< where the reader wants the next bytes
    std::string spill_;      ///< received, and more than the reader wanted
    std::size_t spillRead_ = 0;
};

} // namespace foundation::storage::provider::web
