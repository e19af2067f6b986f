#pragma once

#include <foundation/storage/provider/web/client.hpp>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace foundation::storage::provider::http::detail {

/// Bytes of a request: at first and behind a seek, twice as many, but 128 KiB at most, where it
/// begins with the end of the file; and the number from which on everything is asked for.
struct RangeSizes {
    std::uint64_t first;
    std::uint64_t largest;
};

/// Which content a file has: what the server gives to tell one from another, as far as it does.
struct Version {
    std::string etag; ///< with the mark of a weak one: `"a"` and `W/"a"` are two
    std::string lastModified;
    std::string contentEncoding;
    std::optional<std::uint64_t> size;

    bool isEtagStrong() const noexcept { return !etag.empty() && !etag.starts_with("W/"); }
    /// What makes a server send a range of this version alone; empty where there is nothing.
    std::string validator() const { return isEtagStrong() ? etag : lastModified; }
    /// Whether what a later answer tells is no sign of another version. Where it `mayTellLess`, as
    /// the part of a file does that was asked for with the validator (RFC 9110, section 15.3.7),
    /// it need not repeat everything, but for a strong entity tag.
    bool isStill(Version const& later, bool mayTellLess) const;
};

/// A file of a server, read at any position by requests for ranges. The version that the first
/// answer tells of is the one that is read; an answer of another one is a failure. Every answer is
/// held to what was asked for. A server that sends the whole file instead of a range is read from
/// its start on, which a step back begins again.
///
/// A body that breaks off is asked for again from where it broke off. Requests grow while reading
/// goes on, so that a file takes few of them. For one thread at a time. All calls throw
/// web::Failure.
class RangeReader {
  public:
    RangeReader(std::shared_ptr<web::Client const> client, web::Url url, RangeSizes sizes);

    /// Asks for the start of the file. REQUIRES: one of these is called once, before anything else.
    void open() { open(client_->deadline()); }
    void open(web::Deadline const& deadline) { request(0, 0, deadline); }
    /// Asks for the end of the file, and keeps it; for the start where the server does not know how
    /// to be asked for that.
    void openFromEnd();
    /// Of the same version, as far as that is told; has the end of the file where this one has it.
    /// Safe on any thread while nobody reads this one.
    std::unique_ptr<RangeReader> another() const;
    /// Nothing where the server does not tell it.
    std::optional<std::uint64_t> size() const noexcept { return version_.size; }
    /// As the first answer told it, or empty.
    std::string const& etag() const noexcept { return version_.etag; }
    /// Whether the first answer was a page that nothing tells from a later one: as what a server
    /// shows of a folder.
    bool isUnmarkedPage() const noexcept { return isPage_ && version_.validator().empty(); }
    /// Where redirects have led.
    web::Url place() const { return place_->get(); }
    /// Fills the buffer; fewer bytes only at the end of the file.
    std::size_t readAt(std::uint64_t position, std::span<char> buffer) {
        return readAt(position, buffer, client_->deadline());
    }
    std::size_t readAt(std::uint64_t position, std::span<char> buffer,
                       web::Deadline const& deadline);
    /// Lets a body go of which much is to come.
    void rest() noexcept;

  private:
    /// Where redirects have led, of a reader and all others that it has opened: one that learns
    /// that they lead elsewhere by now learns it for all. Safe on any thread.
    class Place {
      public:
        explicit Place(web::Url url) : url_(std::move(url)) {}
        web::Url get() const {
            std::lock_guard const lock(mutex_);
            return url_;
        }
        void set(web::Url const& url) {
            std::lock_guard const lock(mutex_);
            url_ = url;
        }

      private:
        mutable std::mutex mutex_;
        web::Url url_; ///< guarded by the mutex
    };

    /// Whether there is something to read.
    bool request(std::uint64_t position, std::uint64_t wanted, web::Deadline const& deadline);
    void requestEnd(web::Deadline const& deadline);
    void keepEnd(web::Deadline const& deadline);
    web::AnswerHead const& ask(web::Headers const& fields, web::Deadline const& deadline);
    [[noreturn]] static void failWith(web::AnswerHead const& head);
    void noteOpen(web::AnswerHead const& head);
    std::unique_ptr<web::Exchange> send(web::Headers const& fields, web::Deadline const& deadline);
    void takeRange(web::AnswerHead const& head, std::uint64_t position,
                   std::optional<std::uint64_t> last);
    void takeWhole(web::AnswerHead const& head);
    bool takeNoRange(web::AnswerHead const& head, std::uint64_t position);
    void holdToVersion(Version const& found, bool mayTellLess);
    void holdToReached(std::uint64_t size) const;
    void noteProgress(std::size_t bytes, bool isRangeDone) noexcept;

    bool isReachable(std::uint64_t position) const noexcept;
    /// Some bytes at the position; 0 at the end of the file.
    std::size_t readSome(std::uint64_t position, std::span<char> buffer,
                         web::Deadline const& deadline);
    std::size_t takeBody(std::span<char> buffer, web::Deadline const& deadline);
    /// Whether there were more bytes.
    bool endBody() noexcept;

    std::shared_ptr<web::Client const> const client_;
    web::Url const url_;
    std::shared_ptr<Place> place_; ///< never null
    RangeSizes const sizes_;
    std::uint64_t const endSize_; ///< bytes that are asked for from the end, and kept

    bool isOpen_ = false;
    bool isWholeAlways_ = false; ///< the server knows no ranges
    Version version_;
    bool isPage_ = false;                           ///< HTML, says the first answer
    std::uint64_t endFrom_ = 0;                     ///< of the end that is kept, if any
    std::shared_ptr<std::vector<char> const> kept_; ///< null where it is not

    std::unique_ptr<web::Exchange> body_; ///< what is being read, if anything
    std::uint64_t position_ = 0;          ///< in the file, of the next byte of the body
    std::optional<std::uint64_t> end_;    ///< of the body
    std::uint64_t nextRange_;             ///< bytes of the next request, if reading goes on
    std::uint64_t reached_ = 0;           ///< the file had as many bytes as that
    unsigned setbacks_ = 0;               ///< failures since there was real progress
    std::uint64_t progress_ = 0;          ///< bytes since the last of them
};

} // namespace foundation::storage::provider::http::detail
