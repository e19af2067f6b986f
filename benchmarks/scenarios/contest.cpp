#include "contest.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <sys/resource.h>
#include <system_error>
#include <utility>

namespace bench {

namespace {

struct Times {
    double processor; ///< seconds
    double elapsed;
};

double seconds(struct timeval const& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

double processorSeconds() {
    struct timespec now {};
    if (::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now) != 0) {
        fail("clock_gettime");
    }
    struct rusage children {};
    if (::getrusage(RUSAGE_CHILDREN, &children) != 0) {
        fail("getrusage");
    }
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9 +
           seconds(children.ru_utime) + seconds(children.ru_stime);
}

Times measured(Contender const& contender) {
    if (contender.prepare) {
        contender.prepare();
    }
    using Clock = std::chrono::steady_clock;
    Clock::time_point const begin = Clock::now();
    double const before = processorSeconds();
    contender.work();
    double const after = processorSeconds();
    Times const times{after - before, std::chrono::duration<double>(Clock::now() - begin).count()};
    if (contender.finish) {
        contender.finish();
    }
    return times;
}

double Times::*timeFor(Time time) {
    return time == Time::Elapsed ? &Times::elapsed : &Times::processor;
}

double median(std::vector<double> values) {
    auto const middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

using Rounds = std::vector<Times>;

double medianTime(Rounds const& rounds, double Times::*time) {
    std::vector<double> values;
    for (Times const& round : rounds) {
        values.push_back(round.*time);
    }
    return median(std::move(values));
}

double medianRatio(Rounds const& rounds, Rounds const& against, double Times::*time) {
    std::vector<double> values;
    for (std::size_t i = 0; i < rounds.size(); ++i) {
        values.push_back(rounds[i].*time / against[i].*time);
    }
    return median(std::move(values));
}

} // namespace

void hold(Contest const& contest) {
    std::size_t const count = contest.contenders.size();
    std::vector<Rounds> results(count);
    for (int round = -1; round < contest.rounds; ++round) {
        for (std::size_t turn = 0; turn < count; ++turn) {
            // Who comes first changes from round to round.
            std::size_t const who = (turn + static_cast<std::size_t>(round + 1)) % count;
            Times const times = measured(contest.contenders[who]);
            if (round >= 0) {
                results[who].push_back(times);
            }
        }
    }

    auto const resultsOf = [&](std::string const& name) -> Rounds const& {
        auto const& all = contest.contenders;
        auto const found = std::find_if(all.begin(), all.end(),
                                        [&](Contender const& c) { return c.name == name; });
        if (found == all.end()) {
            errno = ENOENT;
            fail("a goal is held against " + name);
        }
        return results[static_cast<std::size_t>(found - all.begin())];
    };
    std::printf("\n%s (%d rounds, %s)\n", contest.title.c_str(), contest.rounds,
                contest.unit.c_str());
    std::printf("%-32s %10s %10s %7s   %s\n", "", "processor", "elapsed", "ratio", "goal");
    for (std::size_t i = 0; i < count; ++i) {
        Contender const& contender = contest.contenders[i];
        std::printf("%-32s %10.1f %10.1f %7.2f", contender.name.c_str(),
                    medianTime(results[i], &Times::processor) / contest.unitSeconds,
                    medianTime(results[i], &Times::elapsed) / contest.unitSeconds,
                    medianRatio(results[i], results[0], timeFor(contest.ratios)));
        for (Goal const& goal : contender.goals) {
            bool const elapsed = goal.time == Time::Elapsed;
            double const ratio =
                medianRatio(results[i], resultsOf(goal.against), timeFor(goal.time));
            std::printf("   %.2f of %s%s, at most %.2f: %s", ratio, goal.against.c_str(),
                        elapsed ? ", elapsed" : "", goal.ratio,
                        ratio <= goal.ratio ? "met" : "missed");
        }
        std::printf("\n");
    }
    std::fflush(stdout);
}

void fail(std::string const& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

} // namespace bench
