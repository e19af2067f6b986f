// A store that is some way off: 10 ms in each direction. To be run by tests/remote/with-servers,
// which starts it (workplace.hpp tells the command line).

#include "remote.hpp"

int main(int argc, char** argv) {
    static constexpr bench::Work works[] = {
        {"memory", bench::showMemoryOfKeys},   {"read", bench::holdRemoteRead},
        {"listing", bench::holdRemoteListing}, {"walk", bench::holdRemoteWalk},
        {"upload", bench::holdRemoteUpload},
    };
    return bench::runWorks("bench_remote", argc, argv, works);
}
