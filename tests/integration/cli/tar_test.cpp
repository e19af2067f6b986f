#include "command_run.hpp"

#include <gmock/gmock.h>

namespace cli_test {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;

class CommandTar : public ::testing::Test {
  protected:
    CommandTar() {
        fs::create_directories(folder_ / "a/sub");
        writeFile(folder_ / "a/file", "content");
        writeFile(folder_ / "a/sub/deep", "deep");
        fs::create_symlink("sub/deep", folder_ / "a/link");
    }
    std::string below(std::string const& root) { // kinds and targets
        return shell(folder_, "cd " + root + " && find . -printf '%p %y%l\\n' | sort").out;
    }

    TemporaryFolder folder_;
};

TEST_F(CommandTar, ListsACompressedArchive) {
    ASSERT_EQ(shell(folder_, "tar czf a.tar.gz a").code, 0);

    EXPECT_EQ(vfs(folder_, {"ls", "-R", "tar:a.tar.gz!/a"}).out,
              "tar:a.tar.gz!/a:\nfile\nlink\nsub/\n\ntar:a.tar.gz!/a/sub:\ndeep\n");
    EXPECT_EQ(vfs(folder_, {"cat", "tar:a.tar.gz!/a/sub/deep"}).out, "deep");
}

TEST_F(CommandTar, CopiesATreeOutOfAnArchiveWithItsLinks) {
    ASSERT_EQ(shell(folder_, "tar c --format=pax --zstd -f a.tar.zst a").code, 0);

    Outcome const outcome = vfs(folder_, {"cp", "-r", "tar:a.tar.zst!/a", "b"});

    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(below("b"), below("a"));
    EXPECT_EQ(shell(folder_, "diff -r a b").out, "");
}

TEST_F(CommandTar, ReadsArchivesInArchives) {
    ASSERT_EQ(shell(folder_, "tar cf a.tar a && zip -qr a.zip a && tar czf outer.tar.gz a.zip &&"
                             " zip -q outer.zip a.tar")
                  .code,
              0);

    EXPECT_EQ(vfs(folder_, {"cat", "zip:tar:outer.tar.gz!/a.zip!/a/file"}).out, "content");
    EXPECT_EQ(vfs(folder_, {"cat", "tar:zip:outer.zip!/a.tar!/a/link"}).out, "deep");
    EXPECT_EQ(vfs(folder_, {"ls", "tar:zip:outer.zip!/a.tar!/a"}).out, "file\nlink\nsub/\n");
    EXPECT_EQ(vfs(folder_, {"cp", "-r", "tar:zip:outer.zip!/a.tar!/a", "b"}).err, "");
    EXPECT_EQ(shell(folder_, "diff -r a b").out, "");
}

TEST_F(CommandTar, RefusesToWrite) {
    ASSERT_EQ(shell(folder_, "tar cf a.tar a").code, 0);

    Outcome const outcome = vfs(folder_, {"rm", "tar:a.tar!/a/file"});

    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.err, ::testing::HasSubstr("read-only"));
}

/// None of them leads a copy to what is not below its destination.
TEST_F(CommandTar, CopiesHostileArchivesNowhereElse) {
    std::string const copyAll = "mkdir -p w/in; cd w/in; n=0; for f in '" TAR_ARCHIVES
                                "'/*.tar; do test $(stat -c %s \"$f\") -lt 100000 || continue;"
                                " vfs cp -r \"tar:$f!/\" \"out$n\" 2> /dev/null;"
                                " n=$((n + 1)); done; echo $n";
    Outcome const outcome = shell(folder_, copyAll);

    EXPECT_GT(std::stoi(outcome.out), 100);
    EXPECT_EQ(shell(folder_, "ls -A w").out, "in\n");
    EXPECT_EQ(shell(folder_, "ls -A w/in | grep -v '^out[0-9]*$'").out, "");
    EXPECT_THAT(folder_.names(), ElementsAre("a", "w"));
    EXPECT_FALSE(fs::exists("/x"));
    EXPECT_FALSE(fs::exists("/tmp/b")); // behind a link of one of them
}

} // namespace
} // namespace cli_test
