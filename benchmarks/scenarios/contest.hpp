#pragma once

#include <functional>
#include <string>
#include <vector>

namespace bench {

/// What a goal is held in. Elapsed time is for works that use several threads, or wait.
enum class Time { Processor, Elapsed };

/// The most that a contender may cost, as a ratio to another one.
struct Goal {
    double ratio;
    std::string against;
    Time time = Time::Processor;
};

/// One way to do the work. `prepare` comes before each round and `finish` behind it; neither is
/// measured, and both may be empty.
struct Contender {
    std::string name;
    std::function<void()> work;
    std::vector<Goal> goals = {};
    std::function<void()> prepare = nullptr;
    std::function<void()> finish = nullptr;
};

/// One work, done by all contenders in turns, round by round in one run, so that whatever else the
/// machine does falls on all of them alike. The first contender is the one that ratios are given
/// to.
///
/// What counts is processor time, also that of programs that a contender starts and waits for:
/// other programs disturb it least. Elapsed time is shown beside it, and ratios may be of it, and a
/// goal held in it. A ratio is the median of the ratios of the single rounds.
struct Contest {
    std::string title;
    std::string unit;   ///< what times are given in, as "ns a call"
    double unitSeconds; ///< how many seconds of a round make one of them
    int rounds;
    std::vector<Contender> contenders;
    Time ratios = Time::Processor; ///< what they are ratios of
};

/// Holds the contest, after one round that does not count, and prints its table.
void hold(Contest const& contest);

/// Throws std::system_error about the system's last error.
[[noreturn]] void fail(std::string const& what);

} // namespace bench
