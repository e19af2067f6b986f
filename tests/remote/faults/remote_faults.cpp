// Sweeps what providers ask of servers with the faults of a line and with servers that lie, and
// prints a table: kind, how often it took place, findings. To be run by with-servers, for the
// servers that it has started.
//   remote_faults [--few] [TARGET [WORD]]
// Only the target web, dav or s3; only the operations that have WORD in their names. Ends with 1
// where anything is found, where a server is missing, and where a fault never took place.
#include "lies.hpp"
#include "whole_run.hpp"

#include "remote/server.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace {

using namespace remote_faults;

Target const& named(std::vector<Target> const& targets, std::string const& name) {
    auto const found = std::find_if(targets.begin(), targets.end(),
                                    [&](Target const& target) { return target.name == name; });
    if (found == targets.end()) {
        throw std::runtime_error(name + ": its server does not run, or its provider is not built");
    }
    return *found;
}

int run(Extent extent, std::string const& names, std::string const& word) {
    std::string const command =
        std::filesystem::read_symlink("/proc/self/exe").parent_path() / "vfs";
    std::vector<Target> const targets = allTargets();
    std::vector<Target const*> chosen;
    std::istringstream text(names);
    for (std::string name; text >> name;) {
        chosen.push_back(&named(targets, name));
    }
    if (chosen.empty()) {
        throw std::runtime_error("VFS_TEST_SERVERS names none; with-servers sets it");
    }
    if (char const* const path = std::getenv("VFS_TEST_SECRETS")) {
        std::ofstream file(path, std::ios::app);
        for (Target const* const target : chosen) {
            for (std::string const& secret : target->secrets) {
                file << secret << '\n';
            }
        }
    }
    SweepResult result;
    std::vector<Wanted> wanted;
    for (Target const* const target : chosen) {
        wanted.push_back(runAll(*target, extent, word, command, result));
    }
    std::printf("\n");
    print(result, wanted);
    std::printf("\n-, of no sense there:\n");
    for (Wanted const& one : wanted) {
        for (std::string const& lie : liesWithoutSense(one.target)) {
            std::printf("  %-4s %s\n", one.target.c_str(), lie.c_str());
        }
    }
    std::vector<std::string> const missing = notInjected(result, wanted);
    for (std::string const& line : missing) {
        std::printf("%s\n", line.c_str());
    }
    return result.findings.empty() && missing.empty() ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) try {
    bool const few = argc > 1 && std::strcmp(argv[1], "--few") == 0;
    int const first = few ? 2 : 1;
    auto const word = [&](int i) { return std::string(first + i < argc ? argv[first + i] : ""); };
    std::string const names = foundation::storage::provider::test::told("VFS_TEST_SERVERS");
    return run(few ? Extent::Few : Extent::Full, word(0).empty() ? names : word(0), word(1));
} catch (std::exception const& e) {
    std::fprintf(stderr, "remote_faults: %s\n", e.what());
    std::fflush(stdout);
    // Not exit(3): an operation that does not come back may still be at work.
    std::_Exit(1);
}
