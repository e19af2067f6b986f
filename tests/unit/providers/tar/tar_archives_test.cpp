#include "tar_fixture.hpp"

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>

namespace foundation::storage::provider::tar::test {
namespace {

TEST(TarArchives, AreReadOrRefusedAsIsWrittenBesideThem) {
    int compared = 0;
    for (auto const& file : std::filesystem::recursive_directory_iterator(archives())) {
        if (file.path().extension() == ".expected") {
            std::string const name =
                std::filesystem::relative(file.path(), archives()).replace_extension().string();
            std::clock_t const begin = std::clock();
            EXPECT_EQ(view(name), contentOf(file.path())) << name;
            EXPECT_LT(std::clock() - begin, CLOCKS_PER_SEC) << name;
            ++compared;
        }
    }
    EXPECT_GE(compared, 100);
}

TEST(TarArchives, ThatEndTooSoonAreRefusedOrHaveWhatStandsBeforeTheEnd) {
    std::string const whole = "a=some text, some more text, and some text again\nd/\nd/b=2\n";
    int refused = 0;
    int read = 0;
    for (auto const& file : std::filesystem::directory_iterator(archives() + "/cut")) {
        std::string const name = "cut/" + file.path().stem().string();
        std::string const seen = view(name);
        if (seen == "!9\n") {
            ++refused;
        } else {
            EXPECT_TRUE(whole.starts_with(seen)) << name << ": " << seen;
            ++read;
        }
    }
    EXPECT_GE(refused, 1'000);
    EXPECT_GE(read, 80);
}

} // namespace
} // namespace foundation::storage::provider::tar::test
