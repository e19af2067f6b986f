// Kills copies, moves and replacements by the command at random moments, and as often what it
// writes into archives, and prints a table.
//   kill_sweep VFS [KILLS [FOLDER [OTHER-FOLDER [SEED [WORD]]]]]
// With a word, only of the works that have it in their names.
#include "flush_kills.hpp"
#include "kill_rounds.hpp"

#include <cstdio>
#include <exception>
#include <random>
#include <string>
#include <unistd.h>

namespace {

using namespace fault_sweep;

int run(KillOptions const& options) {
    std::printf("seed %llu\n", static_cast<unsigned long long>(options.seed));
    std::printf("%-50s %8s %8s %8s %8s %8s\n", "what was killed", "kills", "rounds", "told",
                "stayed", "failures");
    std::fflush(stdout);
    KillResult all;
    std::vector<KillResult> results = killAtRandom(options);
    std::size_t wanted = results.empty() ? 0 : options.kills;
    std::vector<KillResult> const flushes = killFlushes(options);
    wanted += flushes.empty() ? 0 : options.kills;
    results.insert(results.end(), flushes.begin(), flushes.end());
    for (KillResult const& result : results) {
        std::printf("%-50s %8zu %8zu %8zu %8zu %8zu\n", result.name.c_str(), result.kills,
                    result.rounds, result.told, result.leftovers, result.findings.size());
        for (std::string const& finding : result.findings) {
            std::printf("    %s\n", finding.c_str());
        }
        all.kills += result.kills;
        all.rounds += result.rounds;
        all.told += result.told;
        all.leftovers += result.leftovers;
        all.findings.insert(all.findings.end(), result.findings.begin(), result.findings.end());
    }
    std::printf("%-50s %8zu %8zu %8zu %8zu %8zu\n", "in all", all.kills, all.rounds, all.told,
                all.leftovers, all.findings.size());
    if (all.kills == 0 || all.kills < wanted) {
        std::printf("only %zu of %zu were killed in time\n", all.kills, wanted);
        return 1;
    }
    return all.findings.empty() ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) try {
    if (argc < 2) {
        std::fprintf(stderr,
                     "usage: kill_sweep VFS [KILLS [FOLDER [OTHER-FOLDER [SEED [WORD]]]]]\n");
        return 2;
    }
    auto const word = [&](int i, char const* otherwise) {
        return std::string(i < argc ? argv[i] : otherwise);
    };
    std::string const own = "/kills-" + std::to_string(::getpid());
    std::string const seed = word(5, "");
    return run(
        {word(1, ""), word(3, "/tmp") + own, word(4, "/dev/shm") + own, std::stoul(word(2, "1000")),
         seed.empty() ? std::uint64_t{std::random_device{}()} : std::stoull(seed), word(6, "")});
} catch (std::exception const& e) {
    std::fprintf(stderr, "kill_sweep: %s\n", e.what());
    return 1;
}
