#include <foundation/storage/vfs/listing/detail/lazy_value.hpp>

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <latch>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using Text = foundation::storage::vfs::detail::LazyValue<std::string>;

static_assert(!std::is_copy_constructible_v<Text> && !std::is_move_constructible_v<Text>);
static_assert(!std::is_copy_assignable_v<Text> && !std::is_move_assignable_v<Text>);

// The lock of a value, which only a test may touch: an explicit instantiation may name it.
std::mutex& lockOf(Text const& value);
template<auto Member>
struct Opened {
    friend std::mutex& lockOf(Text const& value) {
        return const_cast<Text&>(value).*Member; // NOLINT(cppcoreguidelines-pro-type-const-cast)
    }
};
template struct Opened<&Text::mutex_>;

/// Whether get() answers while somebody else holds the value's lock. A get() that takes the lock
/// finishes when this gives it back.
testing::AssertionResult answersWithoutALock(Text const& value) {
    std::unique_lock held(lockOf(value));
    auto const asked = std::async(std::launch::async, [&] { (void)value.get(); });
    bool const answered = asked.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
    held.unlock();
    return answered ? testing::AssertionSuccess() : testing::AssertionFailure() << "it waited";
}

TEST(LazyValue, IsThereWithoutAProducer) {
    Text const value(std::string("given"));
    EXPECT_EQ(value.get(), "given");
    EXPECT_EQ(&value.get(), &value.get());
    EXPECT_TRUE(answersWithoutALock(value));
}

TEST(LazyValue, IsMadeWhenFirstAskedForAndNotBefore) {
    int made = 0;
    Text const value([&] { return std::to_string(++made); });
    EXPECT_EQ(made, 0);
    EXPECT_EQ(value.get(), "1");
    EXPECT_EQ(value.get(), "1");
    EXPECT_EQ(made, 1);
}

TEST(LazyValue, TakesNoLockOnceItIsThere) {
    Text const value([] { return std::string("made"); });
    (void)value.get();
    EXPECT_TRUE(answersWithoutALock(value));
}

TEST(LazyValue, LocksForTheFirstEvaluation) {
    Text const* asked = nullptr;
    bool free = true;
    Text const value([&] {
        // From another thread: a lock that its own thread holds must not be tried.
        std::jthread([&] {
            free = lockOf(*asked).try_lock();
            if (free) {
                lockOf(*asked).unlock();
            }
        }).join();
        return std::string("made");
    });
    asked = &value;
    EXPECT_EQ(value.get(), "made");
    EXPECT_FALSE(free) << "the lock is held while the producer works";
    EXPECT_TRUE(lockOf(value).try_lock()) << "and given back";
    lockOf(value).unlock();
}

TEST(LazyValue, IsMadeOnceUnderManyThreadsWhichAllGetOneAddress) {
    constexpr std::size_t threads = 64;
    std::latch start(threads);
    std::atomic<int> made = 0;
    Text const value([&] {
        ++made;
        std::this_thread::yield();
        return std::string("made");
    });
    std::vector<std::string const*> seen(threads);
    {
        std::vector<std::jthread> pool;
        for (std::size_t i = 0; i < threads; ++i) {
            pool.emplace_back([&, i] {
                start.arrive_and_wait();
                seen[i] = &value.get();
                EXPECT_EQ(*seen[i], "made");
            });
        }
    }
    EXPECT_EQ(made, 1);
    EXPECT_EQ(seen, std::vector<std::string const*>(threads, &value.get()));
}

TEST(LazyValue, FailingProducerIsAskedAgainByTheNextCaller) {
    int asked = 0;
    Text const value([&]() -> std::string {
        if (++asked <= 2) {
            throw std::domain_error("attempt " + std::to_string(asked));
        }
        return "made";
    });
    for (char const* const attempt : {"attempt 1", "attempt 2"}) {
        try {
            (void)value.get();
            ADD_FAILURE();
        } catch (std::domain_error const& e) {
            EXPECT_STREQ(e.what(), attempt);
        }
    }
    EXPECT_EQ(value.get(), "made");
    EXPECT_EQ(value.get(), "made");
    EXPECT_EQ(asked, 3);
    EXPECT_TRUE(answersWithoutALock(value));
}

TEST(LazyValue, LetsThreadsThatWaitForAFailingProducerAskAgain) {
    constexpr int threads = 16;
    std::latch start(threads);
    std::atomic<int> running = 0;
    std::atomic<int> asked = 0;
    Text const value([&]() -> std::string {
        EXPECT_EQ(++running, 1) << "one producer at a time";
        int const attempt = ++asked;
        --running;
        if (attempt < threads) {
            throw std::domain_error("not yet");
        }
        return "made";
    });
    std::atomic<int> failed = 0;
    {
        std::vector<std::jthread> pool;
        for (int i = 0; i < threads; ++i) {
            pool.emplace_back([&] {
                start.arrive_and_wait();
                try {
                    (void)value.get();
                } catch (std::domain_error const&) {
                    ++failed;
                }
            });
        }
    }
    EXPECT_EQ(failed, threads - 1);
    EXPECT_EQ(value.get(), "made");
    EXPECT_EQ(asked, threads);
}

TEST(LazyValue, LetsGoOfItsProducerWhenItIsThereAndNotBefore) {
    auto const held = std::make_shared<int>(0);
    Text const value([held]() -> std::string {
        if (++*held == 1) {
            throw std::domain_error("first");
        }
        return "made";
    });
    EXPECT_EQ(held.use_count(), 2);
    EXPECT_THROW((void)value.get(), std::domain_error);
    EXPECT_EQ(held.use_count(), 2);
    (void)value.get();
    EXPECT_EQ(held.use_count(), 1);
}

TEST(LazyValue, AnswersWhileAnotherValueIsBeingMade) {
    Text const there(std::string("there"));
    Text const alsoMade([] { return std::string("made"); });
    std::latch entered(1);
    std::latch leave(1);
    Text const slow([&] {
        entered.count_down();
        leave.wait();
        return std::string("slow");
    });
    std::jthread const asking([&] { (void)slow.get(); });
    entered.wait();
    EXPECT_EQ(there.get(), "there");
    EXPECT_EQ(alsoMade.get(), "made") << "every value has a lock of its own";
    leave.count_down();
    EXPECT_EQ(slow.get(), "slow");
}

TEST(LazyValue, ProducerMayAskForAnotherValue) {
    Text const first([] { return std::string("a"); });
    Text const second([&] { return first.get() + "b"; });
    EXPECT_EQ(second.get(), "ab");
    EXPECT_EQ(first.get(), "a");
}

} // namespace
