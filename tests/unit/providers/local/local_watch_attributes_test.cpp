#include "watch_fixture.hpp"

#include <foundation/storage/provider/local/detail/file_descriptor.hpp>

#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/stat.h>

namespace foundation::storage::provider::local::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class LocalWatchAttributes : public LocalWatchTest {
  protected:
    /// As touch(1) -m does.
    void setModificationTimeAlone(std::string_view name) const {
        timespec const times[] = {{0, UTIME_OMIT}, {1'000'000'000, 0}};
        ASSERT_EQ(::utimensat(AT_FDCWD, path(name).c_str(), times, 0), 0);
    }
};

TEST_F(LocalWatchAttributes, AModificationTimeThatIsSetAloneIsAnAttributeOfAFolder) {
    makeFolder("w/sub");
    publish("w", {Kind::Created, Kind::AttributesChanged});

    setModificationTimeAlone("w/sub");
    setModificationTimeAlone("w");

    EXPECT_THAT(reports(), ElementsAre("~ folder w/sub", "~ folder w"));
}

TEST_F(LocalWatchAttributes, AModificationTimeThatIsSetAloneReadsLikeAWriteOfAFile) {
    makeFile("w/file");
    publish();

    setModificationTimeAlone("w/file");

    settle();
    EXPECT_EQ(log_.lines().front(), "* file w/file");
}

TEST_F(LocalWatchAttributes, AFileIsNotToldBeforeItHasAName) {
    publish();
    detail::FileDescriptor const file(
        ::open(path("w").c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600));
    if (!file) {
        GTEST_SKIP() << "no unnamed files here";
    }

    ASSERT_EQ(::fchmod(file.get(), 0640), 0);
    ASSERT_EQ(::futimens(file.get(), nullptr), 0);
    settle();
    std::vector<std::string> const before = log_.lines();
    std::string const source = "/proc/self/fd/" + std::to_string(file.get());
    ASSERT_EQ(
        ::linkat(AT_FDCWD, source.c_str(), AT_FDCWD, path("w/file").c_str(), AT_SYMLINK_FOLLOW), 0);

    EXPECT_THAT(before, IsEmpty());
    EXPECT_TRUE(log_.waitForEntry(Kind::Created, "w/file"));
}

TEST_F(LocalWatchAttributes, ANameThatLooksLikeThatOfAnUnnamedFileIsTold) {
    makeFile("w/#123");
    publish("w", {Kind::Created, Kind::AttributesChanged});

    ASSERT_EQ(::chmod(path("w/#123").c_str(), 0600), 0);

    EXPECT_THAT(reports(), ElementsAre("~ file w/#123"));
}

TEST_F(LocalWatchAttributes, AFolderUnderTheNameOfAWatchedFileIsNone) {
    makeFile("w/file");
    makeFolder("folder");
    publish("w", {Kind::Created});
    publishFile("w/file", namesOnly);

    remove("w/file");
    rename("folder", "w/file");
    ASSERT_EQ(::chmod(path("w/file").c_str(), 0700), 0);
    rename("w/file", "folder");
    makeFile("w/file");
    settle();

    EXPECT_THAT(log_.lines(),
                ElementsAre("- file w/file", "+ folder w/file", "+ file w/file", "+ file w/file"));
}

} // namespace

} // namespace foundation::storage::provider::local::test
