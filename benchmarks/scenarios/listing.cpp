// Listings of folders and trees (workplace.hpp tells the command line).

#include "listing.hpp"

int main(int argc, char** argv) {
    static constexpr bench::Work works[] = {
        {"memory", bench::showMemoryOfListing}, {"names", bench::holdNames},
        {"entries", bench::holdEntries},        {"deep", bench::holdDeepNames},
        {"cursor", bench::holdCursor},
    };
    return bench::runWorks("bench_listing", argc, argv, works);
}
