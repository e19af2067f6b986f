// Whole trees walked, copied and removed (workplace.hpp tells the command line).

#include "trees.hpp"

int main(int argc, char** argv) {
    static constexpr bench::Work works[] = {
        {"memory", bench::showMemoryOfWalks}, {"copy", bench::holdTreeCopy},
        {"removal", bench::holdTreeRemoval},  {"walk", bench::holdTreeWalk},
        {"slow", bench::holdSlowStorage},
    };
    return bench::runWorks("bench_trees", argc, argv, works);
}
