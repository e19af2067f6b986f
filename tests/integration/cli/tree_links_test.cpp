#include "command_run.hpp"
#include "storage_run.hpp"

#include <foundation/storage/conformance/feature_hider.hpp>
#include <foundation/storage/provider/memory/memory_provider.hpp>

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace cli_test {
namespace {

namespace conformance = foundation::storage::conformance;
namespace provider = foundation::storage::provider;
namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

// Hides nothing, and has no extension: a storage without links that writes files in place.
class WithoutLinks final : public conformance::FeatureHider {
  public:
    explicit WithoutLinks(std::shared_ptr<provider::IProvider> inner)
        : FeatureHider(std::move(inner), {}) {}
};

class CommandTreeLinks : public ::testing::Test {
  protected:
    CommandTreeLinks() {
        fs::create_directories(folder_ / "a/sub");
        fs::create_directory(folder_ / "outside");
        writeFile(folder_ / "a/file", "content");
        writeFile(folder_ / "outside/deep", "deep");
        fs::create_symlink("file", folder_ / "a/to-file");
        fs::create_symlink("nowhere", folder_ / "a/dangling");
        fs::create_symlink("round", folder_ / "a/round");
        fs::create_symlink("../outside", folder_ / "a/to-folder");
        fs::create_symlink("..", folder_ / "a/sub/up");
    }
    std::string below(std::string const& root) { // kinds and targets
        return shell(folder_, "cd " + root + " && find . -printf '%p %y%l\\n' | sort").out;
    }

    TemporaryFolder folder_;
};

TEST_F(CommandTreeLinks, AreMadeAgainAndNeverEntered) {
    Outcome const outcome = vfs(folder_, {"cp", "-r", "a", "b"});

    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(below("a"), below("b"));
    EXPECT_EQ(vfs(folder_, {"cp", "-rT", "a", "b"}).err, ""); // over themselves
    EXPECT_EQ(below("a"), below("b"));
}

TEST_F(CommandTreeLinks, AreMadeAgainInMemory) {
    Outcome const outcome =
        CommandRun::vfs({"sh"}).in(folder_.path()).input("cp -r a mem:/b\ncp -r mem:/b b\n").run();

    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(below("a"), below("b"));
}

TEST_F(CommandTreeLinks, AreFollowedWhenAskedButNotInCircles) {
    Outcome const outcome = vfs(folder_, {"cp", "-rL", "a", "b"});

    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.err, HasSubstr("vfs: cp: a/dangling: is a link that leads nowhere\n"));
    EXPECT_THAT(outcome.err, HasSubstr("vfs: cp: a/round: is a link that leads nowhere\n"));
    EXPECT_THAT(outcome.err, HasSubstr("vfs: cp: a/sub/up: is a link to a folder that it is in; it "
                                       "is not followed\n"));
    EXPECT_EQ(below("b"),
              ". d\n./file f\n./sub d\n./to-file f\n./to-folder d\n./to-folder/deep f\n");
    EXPECT_EQ(readFile(folder_ / "b/to-file"), "content");
}

TEST_F(CommandTreeLinks, ThatLeadRoundThroughOtherFoldersAreRefused) {
    fs::create_directories(folder_ / "x/y");
    fs::create_directories(folder_ / "z");
    fs::create_symlink("../../z", folder_ / "x/y/to-z");
    fs::create_symlink("../x", folder_ / "z/to-x");

    Outcome const outcome = vfs(folder_, {"cp", "-rL", "x", "copy"});

    EXPECT_EQ(outcome.err, "vfs: cp: x/y/to-z/to-x: is a link to a folder that it is in; it is not "
                           "followed\n"
                           "vfs: cp: 0 files and 3 folders copied, 1 failed: x/y/to-z/to-x\n");
    EXPECT_EQ(below("copy"), ". d\n./y d\n./y/to-z d\n");
}

TEST_F(CommandTreeLinks, ThatLeadToTheCopyAreRefused) {
    fs::create_directory(folder_ / "x");
    fs::create_symlink("../copy", folder_ / "x/to-copy");
    fs::create_symlink("..", folder_ / "x/to-all");

    Outcome const outcome = vfs(folder_, {"cp", "-rL", "x", "copy"});

    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.err, HasSubstr("x/to-copy: is a link to a folder that holds the copy"));
    EXPECT_THAT(outcome.err, HasSubstr("x/to-all: is a link to a folder that holds the copy"));
    EXPECT_EQ(below("copy"), ". d\n");
}

TEST_F(CommandTreeLinks, AsSourcesAreCopiedAsLinksUnlessASlashOrAnOptionFollowsThem) {
    fs::create_symlink("a", folder_ / "link");

    EXPECT_EQ(vfs(folder_, {"cp", "-r", "link", "b"}).err, "");
    EXPECT_EQ(fs::read_symlink(folder_ / "b"), "a");
    EXPECT_EQ(vfs(folder_, {"cp", "-r", "link/", "c"}).err, "");
    EXPECT_EQ(below("a"), below("c"));
    EXPECT_THAT(vfs(folder_, {"cp", "-rL", "link", "d"}).err,
                HasSubstr("3 files and 3 folders copied"));
    EXPECT_TRUE(fs::is_directory(fs::symlink_status(folder_ / "d")));
    EXPECT_EQ(vfs(folder_, {"cp", "-L", "a/to-file", "e"}).err, "");
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(folder_ / "e")));
    EXPECT_EQ(vfs(folder_, {"cp", "-L", "a/dangling", "f"}).err,
              "vfs: cp: a/dangling: is a link that leads nowhere\n");
}

TEST_F(CommandTreeLinks, InThePlaceOfAFolderAreNotWrittenThrough) {
    fs::create_directory(folder_ / "b");
    fs::create_symlink("../outside", folder_ / "b/sub");
    std::string const before = below("outside");

    Outcome const outcome = vfs(folder_, {"cp", "-rT", "a", "b"});

    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.err,
                HasSubstr("vfs: cp: b/sub: is a link; nothing is copied through it\n"));
    EXPECT_EQ(below("outside"), before);
    EXPECT_EQ(readFile(folder_ / "b/file"), "content");

    fs::create_symlink("outside", folder_ / "c");
    EXPECT_THAT(vfs(folder_, {"cp", "-rT", "a", "c"}).err,
                HasSubstr("vfs: cp: c: is a link; nothing is copied through it\n"));
    EXPECT_EQ(below("outside"), before);
    EXPECT_EQ(vfs(folder_, {"cp", "-r", "a", "c"}).err, ""); // named, it stands for its folder
    EXPECT_EQ(below("a"), below("outside/a"));
}

TEST_F(CommandTreeLinks, InThePlaceOfAFileAreReplacedAndNotWrittenThrough) {
    fs::create_directory(folder_ / "b");
    writeFile(folder_ / "canary", "sings");
    fs::create_symlink("../canary", folder_ / "b/file");

    EXPECT_EQ(vfs(folder_, {"cp", "-rT", "a", "b"}).err, "");

    EXPECT_EQ(readFile(folder_ / "canary"), "sings");
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(folder_ / "b/file")));
}

TEST_F(CommandTreeLinks, ToSpecialFilesAndTheseThemselvesAreNamed) {
    ASSERT_EQ(::mkfifo((folder_ / "a/pipe").c_str(), 0600), 0);
    shell(folder_, "python3 -c \"import socket; socket.socket(socket.AF_UNIX).bind('a/sub/s')\"");

    Outcome const outcome = vfs(folder_, {"cp", "-r", "a", "b"});

    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.err, HasSubstr("vfs: cp: a/pipe: is not a regular file\n"));
    EXPECT_THAT(outcome.err, HasSubstr("vfs: cp: a/sub/s: is not a regular file\n"));
    EXPECT_THAT(outcome.err, HasSubstr(", 2 failed: a/"));
    EXPECT_EQ(readFile(folder_ / "b/file"), "content");
}

// From a storage with links to one without.
class CommandTreeLinksElsewhere : public ::testing::Test {
  protected:
    CommandTreeLinksElsewhere() {
        linked_->createFolderRecursive(oddLocation("a/sub"));
        linked_->createFile(oddLocation("a/file"));
        linked_->createLink(oddLocation("a/to-file"), u"file");
        linked_->createLink(oddLocation("a/to-folder"), u"sub");
        linked_->createLink(oddLocation("a/dangling"), u"nowhere");
    }

    std::shared_ptr<provider::memory::MemoryProvider> linked_ =
        std::make_shared<provider::memory::MemoryProvider>();
    std::shared_ptr<provider::IProvider> plain_ =
        std::make_shared<WithoutLinks>(std::make_shared<provider::memory::MemoryProvider>());
};

TEST_F(CommandTreeLinksElsewhere, BecomeFilesWhereTheyLeadToOneAndAreNamedOtherwise) {
    Outcome const outcome = runOver(linked_, {"cp", "-r", "odd:/a", "other:/b"}, plain_);

    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.err, HasSubstr("vfs: cp: odd:/a/dangling: is a link, and the destination "
                                       "has no links (-L follows it)\n"));
    EXPECT_THAT(outcome.err, HasSubstr("vfs: cp: odd:/a/to-folder: is a link, and the destination "
                                       "has no links (-L follows it)\n"));
    EXPECT_THAT(outcome.err,
                HasSubstr("vfs: cp: 2 files and 2 folders copied (4 B), 2 failed: odd:/a/"));
    EXPECT_EQ(runOver(plain_, {"find", "odd:/b"}).out, "file\nsub\nto-file\n");
}

TEST_F(CommandTreeLinksElsewhere, AreFollowedThereToo) {
    linked_->removeFile(oddLocation("a/dangling"));

    Outcome const outcome = runOver(linked_, {"cp", "-rL", "odd:/a", "other:/b"}, plain_);

    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_EQ(runOver(plain_, {"find", "odd:/b"}).out, "file\nsub\nto-file\nto-folder\n");
}

} // namespace
} // namespace cli_test
