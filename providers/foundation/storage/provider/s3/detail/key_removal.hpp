#pragma once

#include <foundation/storage/provider/s3/detail/bucket.hpp>
#include <foundation/storage/provider/s3/detail/in_flight.hpp>
#include <foundation/storage/provider/s3/detail/request_threads.hpp>

#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace foundation::storage::provider::s3::detail {

/// Removes keys by the thousand, several times at once, and keeps the first that could not be
/// removed. Whoever lets it go waits for those that are on their way.
class KeyRemoval {
  public:
    KeyRemoval(std::shared_ptr<Bucket const> bucket, RequestThreads& threads)
        : bucket_(std::move(bucket)),
          threads_(threads) {}

    void remove(std::vector<std::string> keys) {
        while (inFlight_.size() >= bucket_->options().concurrency) {
            takeOldest();
        }
        inFlight_.add(threads_, [bucket = bucket_, keys = std::move(keys)] {
            return bucket->remove(keys, bucket->deadline());
        });
    }

    bool hasFailed() const noexcept { return failed_ || failure_; }

    /// Waits for all; the first key that is still there.
    std::optional<KeyFailure> finish() {
        while (!inFlight_.isEmpty()) {
            takeOldest();
        }
        if (failure_) {
            std::rethrow_exception(failure_);
        }
        return failed_;
    }

  private:
    void takeOldest() {
        try {
            auto const failures = inFlight_.take();
            if (!failures.empty() && !failed_) {
                failed_ = failures.front();
            }
        } catch (...) {
            failure_ = failure_ ? failure_ : std::current_exception();
        }
    }

    std::shared_ptr<Bucket const> const bucket_;
    RequestThreads& threads_;
    InFlight<std::vector<KeyFailure>> inFlight_;
    std::optional<KeyFailure> failed_;
    std::exception_ptr failure_;
};

} // namespace foundation::storage::provider::s3::detail
