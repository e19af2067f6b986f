#include <cli/work_tally.hpp>

#include <gtest/gtest.h>

namespace cli_test {
namespace {

TEST(CommandWorkTally, CountsWithoutSayingWhatThereIsNoneOf) {
    EXPECT_EQ((cli::WorkTally{0, 0, 0, 0}.inWords("removed")), "0 files removed");
    EXPECT_EQ((cli::WorkTally{1, 1, 0, 0}.inWords("removed")), "1 file and 1 folder removed");
    EXPECT_EQ((cli::WorkTally{12, 3, 1572864, 2}.inWords("copied")),
              "12 files and 3 folders copied (1.5 MiB), 2 kept");
}

TEST(CommandWorkTally, NamesTheFirstFailuresAndCountsTheOthers) {
    cli::FailureTally failures;
    failures.add("a/b");
    EXPECT_EQ(failures.inWords(), "1 failed: a/b");
    for (int i = 1; i < 25; ++i) {
        failures.add(std::to_string(i));
    }
    EXPECT_EQ(failures.inWords(), "25 failed: a/b, 1, 2, 3, 4, 5, 6, 7, 8, 9 and 15 more");
}

} // namespace
} // namespace cli_test
