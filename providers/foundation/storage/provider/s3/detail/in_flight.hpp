#pragma once

#include <cstddef>
#include <deque>
#include <future>
#include <utility>

namespace foundation::storage::provider::s3::detail {

/// Answers that are waited for in the order of the questions. Whoever leaves early waits for all:
/// nothing goes on behind the end of a call.
template<class Answer>
class InFlight {
  public:
    InFlight() = default;
    InFlight(InFlight const&) = delete;
    InFlight& operator=(InFlight const&) = delete;
    ~InFlight() { wait(); }

    std::size_t size() const noexcept { return answers_.size(); }
    bool isEmpty() const noexcept { return answers_.empty(); }

    /// Calls what asks. Where that throws, nothing is waited for.
    template<class Ask>
    void add(Ask const& ask) {
        answers_.emplace_back();
        try {
            answers_.back() = ask();
        } catch (...) {
            answers_.pop_back();
            throw;
        }
    }

    void wait() const noexcept {
        for (std::future<Answer> const& answer : answers_) {
            answer.wait();
        }
    }

    /// The answer to the oldest one, or what it failed with. REQUIRES: not empty.
    Answer take() {
        std::future<Answer> oldest = std::move(answers_.front());
        answers_.pop_front();
        return oldest.get();
    }

  private:
    std::deque<std::future<Answer>> answers_;
};

} // namespace foundation::storage::provider::s3::detail
