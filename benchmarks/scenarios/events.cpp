// Changes: how soon they are told, what watching costs (workplace.hpp tells the command line).

#include "events.hpp"

int main(int argc, char** argv) {
    static constexpr bench::Work works[] = {
        {"tree", bench::holdTreeWatch},
        {"latency", bench::holdChangeLatency},
        {"create", bench::holdCreateUnderWatch},
        {"manager", bench::holdManySubscribers},
        {"burst", bench::holdBurst},
    };
    return bench::runWorks("bench_events", argc, argv, works);
}
