#include <foundation/storage/provider/s3/detail/request_threads.hpp>

#include <system_error>

namespace foundation::storage::provider::s3::detail {

RequestThreads::~RequestThreads() {
    std::deque<std::function<void()>> dropped; // destroyed behind the lock
    {
        std::lock_guard const lock(mutex_);
        isEnding_ = true;
        dropped.swap(jobs_);
    }
    changed_.notify_all();
    for (std::thread& thread : threads_) {
        thread.join();
    }
}

void RequestThreads::run(std::function<void()> job) {
    bool isQueued = false;
    {
        std::lock_guard const lock(mutex_);
        if (threads_.size() < most_ && idle_ <= jobs_.size()) {
            try {
                threads_.emplace_back([this] { work(); });
            } catch (std::system_error const&) { // NOLINT(bugprone-empty-catch): see below
            }
        }
        if (!threads_.empty()) {
            jobs_.push_back(std::move(job));
            isQueued = true;
        }
    }
    if (isQueued) {
        changed_.notify_one();
    } else {
        doOne(job);
    }
}

void RequestThreads::doOne(std::function<void()> const& job) noexcept {
    try {
        job();
    } catch (...) { // NOLINT(bugprone-empty-catch): as promised
    }
}

void RequestThreads::work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        ++idle_;
        changed_.wait(lock, [&] { return isEnding_ || !jobs_.empty(); });
        --idle_;
        if (isEnding_) {
            return;
        }
        std::function<void()> job = std::move(jobs_.front());
        jobs_.pop_front();
        lock.unlock();
        doOne(job);
        job = nullptr;
        lock.lock();
    }
}

} // namespace foundation::storage::provider::s3::detail
