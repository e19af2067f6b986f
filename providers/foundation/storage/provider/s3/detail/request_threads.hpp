#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace foundation::storage::provider::s3::detail {

/// Threads that wait for answers while their caller goes on. They are started as they are needed,
/// and stay. Safe on any thread.
///
/// A job must not wait for another one, and must not keep the last handle on these threads.
class RequestThreads {
  public:
    explicit RequestThreads(unsigned most) : most_(most) {}
    RequestThreads(RequestThreads const&) = delete;
    RequestThreads& operator=(RequestThreads const&) = delete;
    /// Waits for the jobs that have begun; the others are dropped.
    ~RequestThreads();

    /// Waits for no job, but where not one thread can be started: then it does this one itself.
    /// What the job throws is lost.
    void run(std::function<void()> job);

    /// The same with a result, or what the job threw.
    template<class Job>
    auto ask(Job job) -> std::future<std::invoke_result_t<Job>> {
        using Returned = std::invoke_result_t<Job>;
        auto task = std::make_shared<std::packaged_task<Returned()>>(std::move(job));
        auto future = task->get_future();
        run([task] { (*task)(); });
        return future;
    }

  private:
    void work();
    static void doOne(std::function<void()> const& job) noexcept;

    unsigned const most_;
    std::mutex mutex_;
    std::condition_variable changed_;
    // guarded by the mutex:
    std::deque<std::function<void()>> jobs_;
    std::vector<std::thread> threads_;
    std::size_t idle_ = 0;
    bool isEnding_ = false;
};

} // namespace foundation::storage::provider::s3::detail
