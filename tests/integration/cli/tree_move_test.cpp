#include "command_run.hpp"
#include "listed_trees.hpp"
#include "storage_run.hpp"

#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/conformance/provider_decorator.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/extensions/i_flushable_filesystem.hpp>
#include <foundation/storage/provider/memory/memory_provider.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

namespace cli_test {
namespace {

namespace conformance = foundation::storage::conformance;
namespace provider = foundation::storage::provider;
namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

void makeTree(fs::path const& root) {
    fs::create_directories(root / "sub/empty");
    writeFile(root / "1", "one");
    writeFile(root / "sub/2", "two");
    fs::create_symlink("1", root / "link");
    fs::create_symlink("nowhere", root / "sub/dangling");
}

std::string factsBelow(TemporaryFolder const& folder, std::string const& root) {
    return shell(folder, "cd " + root + " && find . -printf '%p %y %m %T@ %l\\n' | sort").out;
}

TEST(CommandTreeMove, RenamesWithinAStorage) {
    TemporaryFolder folder;
    makeTree(folder / "a");
    struct stat before {};
    ::stat((folder / "a/sub/2").c_str(), &before);

    EXPECT_EQ(vfs(folder, {"mv", "-v", "a", "b"}).out, "a -> b\n");

    struct stat after {};
    ::stat((folder / "b/sub/2").c_str(), &after);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_THAT(folder.names(), ElementsAre("b"));

    fs::create_directory(folder / "c");
    EXPECT_EQ(vfs(folder, {"mv", "b", "c"}).err, "");
    EXPECT_TRUE(fs::exists(folder / "c/b/sub/2"));
}

TEST(CommandTreeMove, ReplacesAnEmptyFolderAndRefusesAFullOne) {
    TemporaryFolder folder;
    makeTree(folder / "a");
    fs::create_directories(folder / "b/a");

    EXPECT_EQ(vfs(folder, {"mv", "a", "b"}).err, "");
    EXPECT_TRUE(fs::exists(folder / "b/a/sub/2"));

    makeTree(folder / "a");
    writeFile(folder / "b/a/own", "own");
    Outcome const outcome = vfs(folder, {"mv", "a", "b"});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.err, HasSubstr("vfs: mv: b/a: folder not empty (-f merges into it)\n"));
    EXPECT_TRUE(fs::exists(folder / "a/sub/2"));

    EXPECT_EQ(vfs(folder, {"mv", "-f", "a", "b"}).err, "");
    EXPECT_EQ(readFile(folder / "b/a/own"), "own");
    EXPECT_THAT(folder.names(), ElementsAre("b"));
}

TEST(CommandTreeMove, GoesToMemoryAndBackWithTimesToTheMicrosecond) {
    TemporaryFolder folder;
    makeTree(folder / "a");
    shell(folder, "find a -exec touch -h -d '2001-02-03 04:05:06.123456' {} +");
    std::string const before = shell(folder, "cd a && find . ! -type l -printf '%p %T@\\n' | "
                                             "sort; readlink link sub/dangling")
                                   .out;

    Outcome const outcome = CommandRun::vfs({"sh"})
                                .in(folder.path())
                                .input("mv a mem:/b\nexists -v a\nmv mem:/b back\nls mem:/\n")
                                .run();

    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.out, "a: nothing\n");
    EXPECT_EQ(shell(folder, "cd back && find . ! -type l -printf '%p %T@\\n' | sort; "
                            "readlink link sub/dangling")
                  .out,
              before);
    EXPECT_THAT(folder.names(), ElementsAre("back"));
}

TEST(CommandTreeMove, BetweenDisksKeepsModesAndTimesToTheNanosecond) {
    TemporaryFolder folder;
    std::string const rights = ::geteuid() == 0 ? "-m" : "-rm";
    fs::create_directory(folder / "other");
    makeTree(folder / "a");
    shell(folder, "chmod 700 a/sub; chmod 600 a/1; "
                  "touch -d '2001-02-03 04:05:06.123456789' a/1 a/sub a");
    std::string const before = factsBelow(folder, "a");

    Outcome const outcome =
        CommandRun::shell("exec unshare " + rights +
                          " bash -c 'mount -t tmpfs none other && { vfs mv a other/; echo $?; "
                          "cd other/a && find . -printf \"%p %y %m %T@ %l\\n\" | sort; }'")
            .in(folder.path())
            .run();
    if (outcome.out.empty()) {
        GTEST_SKIP() << "mounting a file system of one's own is refused here";
    }

    EXPECT_EQ(outcome.out, "0\n" + before) << outcome.err;
    EXPECT_THAT(folder.names(), ElementsAre("other"));
}

TEST(CommandTreeMove, LeavesWhatWasKept) {
    TemporaryFolder folder;
    makeTree(folder / "a");
    fs::create_directories(folder / "b/sub");
    writeFile(folder / "b/sub/2", "other");

    Outcome const outcome = vfs(folder, {"mv", "-nT", "a", "b"});

    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(readFile(folder / "b/sub/2"), "other");
    EXPECT_EQ(shell(folder, "find a | sort").out, "a\na/sub\na/sub/2\n");
    EXPECT_EQ(fs::read_symlink(folder / "b/link"), "1");
}

TEST(CommandTreeMove, KeepsOddNamesAndGoesDeep) {
    TemporaryFolder folder;
    fs::create_directory(folder / "a");
    makeOddTree(folder / "a");
    makeChain(folder / "a", 300);
    std::string const before = shell(folder, "cd a && find . -print0 | sort -z | sha256sum").out;

    Outcome const outcome =
        CommandRun::vfs({"sh"}).in(folder.path()).input("mv a mem:/b\nmv mem:/b b\n").run();

    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(shell(folder, "cd b && find . -print0 | sort -z | sha256sum").out, before);
    EXPECT_FALSE(fs::exists(folder / "a"));
}

// A storage that stores other bytes than it was given, and says nothing.
class Corrupting : public conformance::ProviderDecorator {
  protected:
    explicit Corrupting(std::shared_ptr<provider::IProvider> inner)
        : ProviderDecorator(std::move(inner)) {}

  public:
    std::unique_ptr<provider::ByteStream>
    openReadOnlyStream(provider::StorageIRI const& location) const override {
        if (location.getName() == u"bad") {
            getInner()->removeFile(location);
            getInner()->createFile(location);
        }
        return ProviderDecorator::openReadOnlyStream(location);
    }
};

void write(provider::memory::MemoryProvider& storage, std::string const& path) {
    auto const stream =
        storage.openReplacement(oddLocation(path), provider::ReplacementPolicy::ReplaceExisting);
    stream->write("content", 7);
    stream->close();
}

TEST(CommandTreeMove, RemovesNothingWhoseCopyDiffers) {
    auto const memory = std::make_shared<provider::memory::MemoryProvider>();
    memory->createFolderRecursive(oddLocation("a/sub"));
    write(*memory, "a/good");
    write(*memory, "a/sub/bad");
    auto const target = std::make_shared<provider::memory::MemoryProvider>();

    Outcome const outcome =
        runOver(memory, {"mv", "odd:/a", "other:/b"}, conformance::decorate<Corrupting>(target));

    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.err, HasSubstr("vfs: mv: odd:/a/sub/bad: the copy differs from the source; "
                                       "both are kept\n"));
    EXPECT_EQ(runOver(memory, {"find", "odd:/a"}).out, "sub\nsub/bad\n");
    EXPECT_EQ(runOver(memory, {"cat", "odd:/a/sub/bad"}).out, "content");
}

// A storage that keeps changes back, and cannot write them out.
class Unflushable final : public conformance::ProviderDecorator,
                          public provider::extensions::IFlushableFilesystem {
  public:
    explicit Unflushable(std::shared_ptr<provider::IProvider> inner)
        : ProviderDecorator(std::move(inner)) {}
    void flushFilesystem() override {
        throw provider::Exception(provider::ErrorCode::IOError, oddLocation("b"));
    }
};

TEST(CommandTreeMove, RemovesNothingBeforeTheCopyIsWrittenOut) {
    for (std::string const source : {"odd:/a", "odd:/a/file"}) {
        auto const memory = std::make_shared<provider::memory::MemoryProvider>();
        memory->createFolder(oddLocation("a"));
        write(*memory, "a/file");
        auto const target =
            std::make_shared<Unflushable>(std::make_shared<provider::memory::MemoryProvider>());

        Outcome const outcome = runOver(memory, {"mv", source, "other:/b"}, target);

        EXPECT_EQ(outcome.code, 1);
        EXPECT_THAT(outcome.err, HasSubstr("input or output failed"));
        EXPECT_EQ(runOver(memory, {"cat", "odd:/a/file"}).out, "content");
    }
}

// A storage in whose source a folder appears between the copy and the removal.
class LateFolder final : public conformance::ProviderDecorator,
                         public provider::extensions::IFlushableFilesystem {
  public:
    LateFolder(std::shared_ptr<provider::IProvider> inner,
               std::shared_ptr<provider::IProvider> source)
        : ProviderDecorator(std::move(inner)),
          source_(std::move(source)) {}
    void flushFilesystem() override {
        if (source_->folderExists(oddLocation("a"))) {
            source_->createFolderRecursive(oddLocation("a/late"));
        }
    }

  private:
    std::shared_ptr<provider::IProvider> source_;
};

TEST(CommandTreeMove, RemovesNoFolderThatHasNoCopy) {
    auto const memory = std::make_shared<provider::memory::MemoryProvider>();
    memory->createFolderRecursive(oddLocation("a/empty"));
    write(*memory, "a/file");
    auto const target =
        std::make_shared<LateFolder>(std::make_shared<provider::memory::MemoryProvider>(), memory);

    Outcome const outcome = runOver(memory, {"mv", "odd:/a", "other:/b"}, target);

    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.err, HasSubstr("a/late: has no copy; it stays\n"));
    EXPECT_EQ(runOver(memory, {"find", "odd:/a"}).out, "late\n");
}

TEST(CommandTreeMove, SaysWhatIsOnlyCopied) {
    auto const memory = std::make_shared<provider::memory::MemoryProvider>();
    memory->createFolder(oddLocation("a"));
    write(*memory, "a/file");
    auto const target =
        std::make_shared<Unflushable>(std::make_shared<provider::memory::MemoryProvider>());

    Outcome const outcome = runOver(memory, {"mv", "odd:/a", "other:/b"}, target);

    EXPECT_THAT(outcome.err, HasSubstr("vfs: mv: 0 files moved, 1 file copied and still at the "
                                       "source, 1 failed: "));
}

TEST(CommandTreeMove, ForceUnlocksNothingThatALinkLeadsTo) {
    TemporaryFolder folder;
    writeFile(folder / "target", "bystander");
    fs::permissions(folder / "target", fs::perms(0444));
    fs::create_symlink("target", folder / "link");
    writeFile(folder / "new", "new");

    EXPECT_EQ(vfs(folder, {"mv", "-f", "new", "link"}).err, "");

    EXPECT_EQ(readFile(folder / "link"), "new");
    EXPECT_EQ(readFile(folder / "target"), "bystander");
    EXPECT_EQ(fs::status(folder / "target").permissions(), fs::perms(0444));
}

// One folder that is mounted in two places.
TEST(CommandTreeMove, AFolderUnderItsOtherMountIsTheSameFolder) {
    TemporaryFolder folder;
    fs::create_directory(folder / "bind");
    fs::create_directories(folder / "orig/d/empty");
    writeFile(folder / "orig/d/file", "content");
    std::string const inside = std::string("unshare ") + (::geteuid() == 0 ? "-m" : "-Urm") +
                               " sh -c 'mount --bind orig bind 2>/dev/null";
    if (shell(folder, inside + "'").code != 0) {
        GTEST_SKIP() << "no mount is permitted here";
    }
    for (std::string const command : {"cp -r bind/d orig/d/empty/in", "cp -rT bind/d orig/d",
                                      "mv -fT bind/d orig/d", "mv -f bind/d orig/d/empty/in"}) {
        Outcome const outcome = shell(folder, inside + " && vfs " + command + "'");
        EXPECT_EQ(outcome.code, 1) << command;
        EXPECT_EQ(shell(folder, "find orig | sort").out,
                  "orig\norig/d\norig/d/empty\norig/d/file\n")
            << command;
    }
}

} // namespace
} // namespace cli_test
