// Zip archives listed, decoded and read by name, tar archives listed and read (workplace.hpp tells
// the command line).

#include "archives.hpp"

#include <stdexcept>

namespace bench {

void require(Amount const& amount, Amount const& expected, char const* who) {
    if (!(amount == expected)) {
        throw std::runtime_error(std::string(who) + " read something else");
    }
}

} // namespace bench

int main(int argc, char** argv) {
    static constexpr bench::Work works[] = {
        {"list", bench::holdArchiveListing}, {"decode", bench::holdArchiveDecoding},
        {"member", bench::holdMemberByName}, {"tar-list", bench::holdTarListing},
        {"tar-read", bench::holdTarReading},
    };
    return bench::runWorks("bench_archives", argc, argv, works);
}
