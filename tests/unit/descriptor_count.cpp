#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <thread>

namespace {

/// Whatever the tests of a program do, it has as many descriptors open afterwards as before. A
/// thread that a storage ended from within its own callback closes its descriptors behind it.
class DescriptorCount : public testing::Environment {
  public:
    void SetUp() override { before_ = count(); }
    void TearDown() override {
        using namespace std::chrono;
        auto const deadline = steady_clock::now() + seconds(20);
        while (count() != before_ && steady_clock::now() < deadline) {
            std::this_thread::sleep_for(milliseconds(1));
        }
        EXPECT_EQ(count(), before_) << "descriptors were left open, or closed by somebody else";
    }

  private:
    // The one that reads the folder counts both times.
    static std::size_t count() {
        std::filesystem::directory_iterator const open("/proc/self/fd");
        return static_cast<std::size_t>(std::distance(begin(open), end(open)));
    }

    std::size_t before_ = 0;
};

testing::Environment* const added = testing::AddGlobalTestEnvironment(new DescriptorCount);

} // namespace
