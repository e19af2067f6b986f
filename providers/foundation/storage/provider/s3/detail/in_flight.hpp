#pragma once

#include <foundation/storage/provider/s3/detail/request_threads.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <future>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <utility>

namespace foundation::storage::provider::s3::detail {

/// Answers that are waited for in the order of the questions. Whoever leaves early drops what has
/// not begun and waits for the rest: nothing goes on behind the end of a call.
template<class Answer>
class InFlight {
  public:
    InFlight() = default;
    InFlight(InFlight const&) = delete;
    InFlight& operator=(InFlight const&) = delete;
    ~InFlight() {
        drop();
        wait();
    }

    std::size_t size() const noexcept { return questions_.size(); }
    bool isEmpty() const noexcept { return questions_.empty(); }

    /// Has one of the threads ask. Where that throws, nothing is waited for.
    template<class Ask>
    void add(RequestThreads& threads, Ask ask) {
        auto isTaken = std::make_shared<std::atomic<bool>>(false);
        questions_.push_back({isTaken, {}});
        try {
            questions_.back().answer = threads.ask([isTaken, ask = std::move(ask)] {
                if (isTaken->exchange(true)) {
                    throw std::logic_error("nobody waits for this answer");
                }
                return ask();
            });
        } catch (...) {
            questions_.pop_back();
            throw;
        }
    }

    /// The answer to the oldest one, or what it failed with. REQUIRES: not empty.
    Answer take() {
        Question oldest = std::move(questions_.front());
        questions_.pop_front();
        return oldest.answer.get();
    }

    /// Leaves out what has not begun.
    void drop() noexcept {
        for (auto i = questions_.begin(); i != questions_.end();) {
            i = i->isTaken->exchange(true) ? std::next(i) : questions_.erase(i);
        }
    }
    void wait() const noexcept {
        for (Question const& question : questions_) {
            question.answer.wait();
        }
    }
    /// Whether all are there in time.
    bool waitUntil(std::chrono::steady_clock::time_point end) const noexcept {
        return std::all_of(questions_.begin(), questions_.end(), [&](Question const& question) {
            return question.answer.wait_until(end) == std::future_status::ready;
        });
    }

  private:
    struct Question {
        std::shared_ptr<std::atomic<bool>> isTaken;
        std::future<Answer> answer;
    };
    std::deque<Question> questions_;
};

} // namespace foundation::storage::provider::s3::detail
