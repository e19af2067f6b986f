#include "zip_fixture.hpp"

#include <gtest/gtest.h>

#include <filesystem>

namespace foundation::storage::provider::zip::test {
namespace {

TEST(ZipArchives, AreReadOrRefusedAsIsWrittenBesideThem) {
    int compared = 0;
    for (auto const& file : std::filesystem::recursive_directory_iterator(archives())) {
        if (file.path().extension() == ".expected") {
            std::string const name =
                std::filesystem::relative(file.path(), archives()).replace_extension().string();
            EXPECT_EQ(view(name), contentOf(file.path())) << name;
            ++compared;
        }
    }
    EXPECT_GE(compared, 200);
}

} // namespace
} // namespace foundation::storage::provider::zip::test
