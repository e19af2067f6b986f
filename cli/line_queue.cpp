#include "line_queue.hpp"

#include <cerrno>
#include <cstdint>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace cli {

namespace {

int makeDescriptor() {
    int const descriptor = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    return descriptor;
}

} // namespace

LineQueue::LineQueue(std::size_t mostBytes)
    : mostBytes_(mostBytes),
      descriptor_(makeDescriptor()) {}

LineQueue::~LineQueue() {
    ::close(descriptor_);
}

void LineQueue::add(std::string const& line) {
    if (line.empty()) {
        return; // there is nothing to be woken for
    }
    std::unique_lock lock(mutex_);
    hasRoom_.wait(lock, [&] { return isUnbounded_ || lines_.size() < mostBytes_; });
    lines_ += line;
    raise();
}

void LineQueue::fail(std::exception_ptr failure) noexcept {
    std::lock_guard const lock(mutex_);
    if (failure_ == nullptr) {
        failure_ = std::move(failure);
    }
    raise();
}

void LineQueue::letAllIn() noexcept {
    std::lock_guard const lock(mutex_);
    isUnbounded_ = true;
    hasRoom_.notify_all();
}

std::string LineQueue::take() {
    std::lock_guard const lock(mutex_);
    std::uint64_t count = 0;
    [[maybe_unused]] auto const got = ::read(descriptor_, &count, sizeof count);
    hasRoom_.notify_all();
    if (lines_.empty() && failure_ != nullptr) {
        std::rethrow_exception(std::exchange(failure_, nullptr));
    }
    if (failure_ != nullptr) {
        raise(); // behind the lines that came before
    }
    return std::exchange(lines_, {});
}

void LineQueue::raise() const noexcept {
    // The counter cannot come near its end: it is read before the lines are so many.
    std::uint64_t const one = 1;
    [[maybe_unused]] auto const written = ::write(descriptor_, &one, sizeof one);
}

} // namespace cli
