#pragma once

#include <foundation/storage/provider/local/detail/watch_translator.hpp>

#include <chrono>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <unordered_map>

namespace foundation::storage::provider::local::detail {

/// The publications of a provider, one inotify(7) descriptor for all of them, and the thread that
/// reads it and calls the callbacks. The thread sleeps until the kernel has something, and keeps
/// the watcher alive, so that a callback may let go of everything else.
///
/// begin(), end() and retire() are called from any thread, one at a time.
class Watcher : public std::enable_shared_from_this<Watcher> {
  public:
    /// Throws std::system_error where the system gives no more descriptors for this.
    Watcher();

    /// The error number, or 0. Throws std::system_error where there are no more threads.
    int begin(std::shared_ptr<WatchPublication> const& publication);
    /// Ends the oldest publication of a file, or of a folder; null where there is none.
    std::shared_ptr<WatchPublication> end(StorageIRI const& location, bool isFolder);
    bool isIdle() const noexcept { return files_.empty() && folders_.empty(); }

    /// Ends all publications and the thread. Waits for the thread unless it is within callbacks.
    void retire();

  private:
    using Publications =
        std::unordered_map<StorageIRI, std::deque<std::shared_ptr<WatchPublication>>>;

    void readWhatWasBefore();
    void run() noexcept;
    void wait();
    int timeUntilRetry() const noexcept;
    void retry() noexcept;
    bool isBurst() noexcept;
    void wake() noexcept;
    bool work();
    void translate();
    void loseAll() noexcept;
    void abandon() noexcept;
    void takeReports();
    void deliver();

    // Guarded by mutex_.
    std::mutex mutex_;
    WatchTable table_;
    WatchReports reports_;
    WatchTranslator translator_;
    Publications files_;
    Publications folders_;
    std::size_t expected_ = 0; ///< the number of publications
    bool isRetired_ = false;
    bool isDelivering_ = false; ///< callbacks are called, or let go of
    WatchBatch batch_;

    // The thread's own.
    std::size_t bytesRead_ = 0; ///< the last time
    std::vector<WatchReport> reportsToDeliver_;
    std::vector<std::shared_ptr<WatchPublication>> kept_; ///< as long as these are delivered
    std::chrono::steady_clock::time_point lastRead_;
    unsigned readsInARow_ = 0;
    unsigned batchesInARow_ = 0;
    bool hasOpenEnds_ = false;
    bool isWaiting_ = false; ///< these are waited for
    bool hasFailed_ = false;
    std::optional<std::chrono::steady_clock::time_point> retryAt_;

    FileDescriptor wakeUp_; ///< an eventfd(2)
    std::thread thread_;
};

} // namespace foundation::storage::provider::local::detail
