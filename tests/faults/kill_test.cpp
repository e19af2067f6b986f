#include "flush_kills.hpp"
#include "kill_rounds.hpp"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <unistd.h>

namespace fault_sweep {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;

// As scripts/faults does, a thousand times.
TEST(KilledCommand, LosesNothingAndIsCompletedByRunningItAgain) {
    std::string const own = "/kills-test-" + std::to_string(::getpid());
    std::uint64_t const seed = std::random_device{}();
    std::size_t told = 0;
    for (KillResult const& result :
         killAtRandom({VFS_COMMAND, testing::TempDir() + own, "/dev/shm" + own, 40, seed})) {
        EXPECT_THAT(result.findings, testing::IsEmpty()) << result.name << ", seed " << seed;
        EXPECT_GT(result.kills, 0U) << result.name << ", seed " << seed;
        told += result.told;
    }
    EXPECT_GT(told, 0U) << "seed " << seed;
}

TEST(KilledCommand, LeavesTheOldArchiveOrTheNewOne) {
    std::uint64_t const seed = std::random_device{}();
    std::string const own = testing::TempDir() + "/flush-kills-" + std::to_string(::getpid());
    for (KillResult const& result : killFlushes({VFS_COMMAND, own, "", 30, seed})) {
        EXPECT_THAT(result.findings, testing::IsEmpty()) << result.name << ", seed " << seed;
        EXPECT_GT(result.kills, 0U) << result.name << ", seed " << seed;
    }
}

// Tells before it has done, takes the old away first, and takes its time.
constexpr char carelessCommand[] = R"(#!/usr/bin/env python3
import os, shutil, sys, time
source, destination = sys.argv[-2], sys.argv[-1]
print(source + " -> " + destination, flush=True)
time.sleep(0.05)
if os.path.isdir(source):
    shutil.rmtree(destination, ignore_errors=True)
    time.sleep(0.15)
    shutil.copytree(source, destination, symlinks=True)
else:
    shutil.copyfile(source, destination)
if sys.argv[1] == "mv":
    shutil.rmtree(source)
)";

TEST(KilledCommand, IsFoundOutWhereItIsCareless) {
    namespace fs = std::filesystem;
    std::string const own = "/kills-careless-" + std::to_string(::getpid());
    fs::path const command = testing::TempDir() + own + ".py";
    std::ofstream(command) << carelessCommand;
    fs::permissions(command, fs::perms::owner_all);

    // Where it is killed is a matter of chance, and of what else the machine does.
    auto const incomplete = Contains(HasSubstr(": is not complete after it was told of"));
    auto const gone = Contains(HasSubstr("which was to be replaced, is gone"));
    std::vector<std::string> findings;
    for (std::uint64_t seed = 1;
         seed <= 6 && !testing::Matches(testing::AllOf(incomplete, gone))(findings); ++seed) {
        KillOptions options{command.string(), testing::TempDir() + own, "/dev/shm" + own, 40, seed};
        options.only = "over a tree";
        std::vector<KillResult> const results = killAtRandom(options);
        ASSERT_THAT(results, testing::SizeIs(1));
        findings.insert(findings.end(), results[0].findings.begin(), results[0].findings.end());
    }
    fs::remove(command);

    EXPECT_THAT(findings, incomplete);
    EXPECT_THAT(findings, gone);
}

} // namespace
} // namespace fault_sweep
