#pragma once

#include <foundation/storage/provider/s3/detail/bucket.hpp>
#include <foundation/storage/provider/s3/detail/in_flight.hpp>
#include <foundation/storage/provider/s3/detail/request_threads.hpp>
#include <foundation/storage/provider/timestamp.hpp>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

namespace foundation::storage::provider::s3::detail {

/// A version of an object that the store itself takes bytes from.
struct CopySource {
    std::shared_ptr<Bucket const> bucket;
    std::string bucketName;
    std::string key;
    ObjectHead head;

    std::string path() const { return bucketName + '/' + key; }
};

/// The new content of an object, on its way to the store: in one request where it is no larger than
/// a part, and else in parts, several at once. It is there for others when it is finished; without
/// that nothing is left of it. Keeps as many bytes in memory as `concurrency` parts of `partSize`
/// have, and one part more; beyond a thousand parts, which then grow, never less than two parts.
///
/// For one thread at a time. Throws web::Failure.
class Upload {
  public:
    Upload(std::shared_ptr<Bucket const> bucket, std::shared_ptr<RequestThreads> threads,
           std::string key, PutConditions conditions);
    Upload(Upload const&) = delete;
    Upload& operator=(Upload const&) = delete;
    /// Leaves out what was not sent yet, gives the rest a few seconds to come to its end, and has
    /// the store forget it all.
    ~Upload();

    /// In place of the time that it was given before. REQUIRES: nothing was sent yet.
    void setLastModified(Timestamp time);

    std::uint64_t size() const noexcept { return sent_ + buffer_.size(); }
    /// Bytes at the start that cannot be changed any more.
    std::uint64_t sent() const noexcept { return sent_; }
    void append(std::span<char const> bytes);
    void appendZeros(std::uint64_t count);
    /// REQUIRES: the bytes are there, and none of them is sent.
    void overwrite(std::uint64_t position, std::span<char const> bytes);
    /// The first bytes are those of another object. What is finished has them of this version, or
    /// finish() fails. REQUIRES: nothing was appended yet, and the source is no smaller than the
    /// smallest part.
    void startWith(CopySource source, std::function<void(std::uint64_t done)> const& progress = {});
    /// May be called again where it failed.
    void finish();

    /// The protocol has no part smaller than this but the last one.
    static constexpr std::uint64_t smallestPart = std::uint64_t{5} * 1024 * 1024;
    /// And not more of them.
    static constexpr unsigned mostParts = 10'000;

    /// Of the part behind so many. The first thousand are as they are `usual`; then they grow, so
    /// that they are enough for 5 TiB, but not beyond 1 GiB, since they lie in memory.
    static std::uint64_t partSizeBehind(unsigned parts, std::uint64_t usual) noexcept;

  private:
    std::uint64_t partSize() const;
    void begin();
    void sendPart();
    void ask(std::function<UploadedPart(web::Deadline const&)> send);
    void takeOldest();
    unsigned nextNumber();
    void abort() noexcept;

    std::shared_ptr<Bucket const> const bucket_;
    std::shared_ptr<RequestThreads> const threads_;
    std::string const key_;
    PutConditions conditions_;
    std::vector<char> buffer_;
    std::uint64_t sent_ = 0;
    std::string id_; ///< empty: nothing was sent
    unsigned number_ = 0;
    std::stop_source stop_;
    InFlight<UploadedPart> inFlight_;
    std::vector<UploadedPart> parts_;
    std::optional<CopySource> source_;
    std::optional<web::Failure> lost_; ///< why a part did not come to the store
    /// When it was first to be finished, which may have been done though the answer was lost.
    std::optional<std::chrono::steady_clock::time_point> finishing_;
    bool isFinished_ = false;
};

} // namespace foundation::storage::provider::s3::detail
