#pragma once

#include <foundation/storage/provider/s3/detail/bucket.hpp>
#include <foundation/storage/provider/s3/detail/request_threads.hpp>

#include <atomic>
#include <cstdint>
#include <deque>
#include <future>
#include <memory>
#include <span>
#include <stop_token>
#include <string>

namespace foundation::storage::provider::s3::detail {

/// An object read at any position, as it was when it was opened: one that has changed meanwhile is
/// a failure, and so is one without a tag that does not come with the first answer. While reading
/// goes on in one direction, ever more is asked for ahead of it, in parts and on several
/// connections at once; a jump begins again with little. Keeps as many parts in memory as requests
/// may be in flight, and what it was opened with. Whoever lets it go ends what is on its way.
///
/// For one thread at a time. Throws web::Failure.
class ObjectReader {
  public:
    ObjectReader(std::shared_ptr<Bucket const> bucket, std::shared_ptr<RequestThreads> threads,
                 std::string key);
    ~ObjectReader();

    /// Asks for the start. REQUIRES: one of these two is called once, before anything else.
    ObjectHead open(web::Deadline const& deadline);
    /// Asks for the end; for the start where the store does not know how to be asked for that.
    ObjectHead openFromEnd(web::Deadline const& deadline);
    /// Of the same version; has what this one was opened with. Safe on any thread while nobody
    /// reads this one.
    std::unique_ptr<ObjectReader> another() const;
    std::uint64_t size() const noexcept { return size_; }
    /// Fills the buffer; fewer bytes only at the end of the object.
    std::size_t readAt(std::uint64_t position, std::span<char> buffer);
    /// Keeps no more than a mebibyte besides what it was opened with.
    void rest() noexcept;

  private:
    /// A range that is asked for, by whoever comes first: one of the threads, or the reader that
    /// needs it.
    struct Part {
        std::uint64_t offset = 0;
        std::size_t size = 0;
        std::unique_ptr<char[]> bytes;
        std::atomic<bool> isTaken{false};
        std::promise<void> promise;
        std::future<void> done;
        std::stop_source stop{std::nostopstate}; ///< its own, where it is a large one
        bool isReady = false;

        std::uint64_t end() const noexcept { return offset + size; }
    };
    using PartPtr = std::shared_ptr<Part>;
    enum class Start { Now, WhenNeeded };

    void pin(ObjectHead const& head, std::unique_ptr<char[]> known, std::size_t room,
             std::uint64_t from);
    std::uint64_t endOfParts() const noexcept { return knownFrom_ > 0 ? knownFrom_ : size_; }
    Part& partAt(std::uint64_t position, std::uint64_t wanted);
    void lookAhead(std::uint64_t wanted);
    void add(std::uint64_t size, Start start);
    static void fetch(Bucket const& bucket, std::string const& key, std::string const& eTag,
                      std::uint64_t size, web::Deadline const& deadline, Part& part);
    static bool hasCome(Part& part) noexcept;
    static bool isKept(PartPtr& part, std::uint64_t from, std::uint64_t to) noexcept;
    static void drop(Part& part) noexcept;
    void forget() noexcept;

    std::shared_ptr<Bucket const> const bucket_;
    std::shared_ptr<RequestThreads> const threads_;
    std::string const key_;
    std::uint64_t size_ = 0;
    std::string eTag_;
    std::uint64_t knownFrom_ = 0; ///< what it was opened with: the start, or all behind a position
    std::size_t knownSize_ = 0;
    std::shared_ptr<char const[]> known_;
    std::stop_source stop_;      ///< of the small ones among what goes ahead
    std::deque<PartPtr> parts_;  ///< one behind the other, without gaps
    std::uint64_t next_ = 0;     ///< where the part behind them begins
    std::uint64_t run_ = 0;      ///< bytes read in one direction since the last jump
    std::uint64_t expected_ = 0; ///< where reading goes on if it does not jump
};

} // namespace foundation::storage::provider::s3::detail
