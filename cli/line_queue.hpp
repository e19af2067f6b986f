#pragma once

#include <condition_variable>
#include <cstddef>
#include <exception>
#include <mutex>
#include <string>

namespace cli {

/// Lines on their way from any number of threads to the one that prints them. Who makes lines
/// faster than they are printed waits, so that a reader who stands still costs no memory.
class LineQueue {
  public:
    /// Throws std::system_error.
    explicit LineQueue(std::size_t mostBytes = 1 << 20);
    ~LineQueue();
    LineQueue(LineQueue const&) = delete;
    LineQueue& operator=(LineQueue const&) = delete;

    /// Waits while the queue is full. Throws std::bad_alloc.
    void add(std::string const& line);
    /// A line could not be made: take() throws the first of these.
    void fail(std::exception_ptr failure) noexcept;
    /// From here on nobody waits: for the end, when those who add are waited for.
    void letAllIn() noexcept;

    /// Everything that came since the last call. Empty where nothing did.
    std::string take();
    /// Can be read while something is there to take.
    int descriptor() const noexcept { return descriptor_; }

  private:
    void raise() const noexcept;

    std::size_t const mostBytes_;
    int const descriptor_; // of an eventfd
    std::mutex mutex_;
    std::condition_variable hasRoom_;
    std::string lines_;          // guarded by mutex_
    std::exception_ptr failure_; // guarded by mutex_
    bool isUnbounded_ = false;   // guarded by mutex_
};

} // namespace cli
