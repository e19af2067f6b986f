#include "command_run.hpp"
#include "storage_run.hpp"

#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/conformance/fault_injector.hpp>
#include <foundation/storage/conformance/provider_decorator.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/memory/memory_provider.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <csignal>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

namespace cli_test {
namespace {

namespace conformance = foundation::storage::conformance;
namespace provider = foundation::storage::provider;
namespace fs = std::filesystem;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;

std::string filesIn(TemporaryFolder const& folder, std::string const& root) {
    return shell(folder, "find " + root + " -type f | sort").out;
}

TEST(CommandTreeTrouble, OneUnreadableFileAndFolderAreNamedAndTheRestIsCopied) {
    TemporaryFolder folder;
    for (std::string const name : {"a/closed", "a/sub"}) {
        fs::create_directories(folder / name);
    }
    writeFile(folder / "a/secret", "s");
    writeFile(folder / "a/closed/inside", "i");
    writeFile(folder / "a/sub/file", "f");
    ::chmod((folder / "a/secret").c_str(), 0);
    ::chmod((folder / "a/closed").c_str(), 0300);

    Outcome const outcome =
        CommandRun::vfs({"cp", "-r", "a", "b"}).in(folder.path()).unprivileged().run();

    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.err, HasSubstr("vfs: cp: a/secret: permission denied\n"));
    EXPECT_THAT(outcome.err, HasSubstr("vfs: cp: a/closed: permission denied\n"));
    EXPECT_THAT(outcome.err, HasSubstr("vfs: cp: 1 file and 3 folders copied (1 B), 2 failed: a/"));
    ::chmod((folder / "a/closed").c_str(), 0755);
    ::chmod((folder / "b/closed").c_str(), 0755);
    EXPECT_EQ(filesIn(folder, "b"), "b/sub/file\n");
}

TEST(CommandTreeTrouble, AMoveLeavesWhatFailedAndItsFolders) {
    TemporaryFolder folder;
    for (std::string const name : {"a/closed", "a/sub", "a/fine"}) {
        fs::create_directories(folder / name);
    }
    writeFile(folder / "a/fine/file", "f");
    writeFile(folder / "a/sub/secret", "s");
    writeFile(folder / "a/sub/file", "f");
    writeFile(folder / "a/closed/inside", "i");
    ::chmod((folder / "a/sub/secret").c_str(), 0);
    ::chmod((folder / "a/closed").c_str(), 0300);

    Outcome const outcome = CommandRun::vfs({"sh"})
                                .in(folder.path())
                                .input("mv a mem:/b\nfind mem:/b\n")
                                .unprivileged()
                                .run();
    ::chmod((folder / "a/closed").c_str(), 0755);

    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.err, HasSubstr("vfs: mv: a/sub/secret: permission denied\n"));
    EXPECT_THAT(outcome.err, HasSubstr("vfs: mv: a/closed: permission denied\n"));
    EXPECT_THAT(outcome.err, HasSubstr(", 2 failed: "));
    EXPECT_EQ(outcome.out, "closed\nfine\nfine/file\nsub\nsub/file\n");
    EXPECT_EQ(filesIn(folder, "a"), "a/closed/inside\na/sub/secret\n");
    EXPECT_FALSE(fs::exists(folder / "a/fine"));
}

// Runs a line in which ./small is a file system of one MiB that nobody else sees.
Outcome onSmallDisk(TemporaryFolder const& folder, std::string const& line) {
    std::string const rights = ::geteuid() == 0 ? "-m" : "-rm";
    fs::create_directories(folder / "small");
    return CommandRun::shell("exec unshare " + rights +
                             " bash -c 'mount -t tmpfs -o size=1m none small && { " + line + "\n}'")
        .in(folder.path())
        .run();
}

TEST(CommandTreeTrouble, AFullDiskEndsTheCopyAndLeavesNoPartOfAFile) {
    TemporaryFolder folder;
    if (onSmallDisk(folder, "true").code != 0) {
        GTEST_SKIP() << "mounting a file system of one's own is refused here";
    }
    shell(folder, "mkdir -p a/1 a/2; for i in $(seq 40); do head -c 50000 /dev/urandom > a/1/$i; "
                  "head -c 50000 /dev/urandom > a/2/$i; done");

    Outcome const outcome = onSmallDisk(
        folder, "vfs cp -r a small/b; echo $?; find small -type f ! -size 50000c | wc -l; "
                "find small -type f -size 50000c | wc -l; "
                "cd small/b && find . -type f -exec cmp {} ../../a/{} \\;");

    EXPECT_THAT(outcome.out, ::testing::StartsWith("1\n0\n"));
    EXPECT_THAT(outcome.out, Not(HasSubstr("differ")));
    EXPECT_THAT(outcome.err, HasSubstr(": no space left\n"
                                       "vfs: cp: stopped, because the destination has no space "
                                       "left\nvfs: cp: "));
    EXPECT_THAT(outcome.err, ContainsRegex(", [1-9] failed: small/b/"));

    Outcome const moved = onSmallDisk(folder, "vfs mv a small/b; echo $?; find a -type f | wc -l");
    EXPECT_EQ(moved.out, "1\n80\n");
}

// Files and folders that are listed, and gone when they are to be read.
class Vanishing : public conformance::ProviderDecorator {
  protected:
    explicit Vanishing(std::shared_ptr<provider::IProvider> inner)
        : ProviderDecorator(std::move(inner)) {}

    std::unique_ptr<provider::IFolderEntryIterator>
    doList(conformance::Operation operation, Listing listing, provider::StorageIRI const& location,
           provider::ustring const& filter) const override {
        if (location.getName() == u"fading") {
            getInner()->removeFolderRecursively(location);
        }
        return ProviderDecorator::doList(operation, listing, location, filter);
    }
    provider::CopyStatus copyFile(provider::StorageIRI const& source,
                                  provider::StorageItem const& destination,
                                  provider::CopyFileOptions const& options) override {
        if (source.getName() == u"1") {
            getInner()->removeFile(source);
        }
        return ProviderDecorator::copyFile(source, destination, options);
    }
};

TEST(CommandTreeTrouble, WhatVanishesMeanwhileIsNamedAndTheRestIsCopied) {
    auto const memory = std::make_shared<provider::memory::MemoryProvider>();
    for (std::string const name : {"a/fading", "a/sub"}) {
        memory->createFolderRecursive(oddLocation(name));
    }
    for (std::string const name : {"a/1", "a/fading/2", "a/sub/3", "a/z"}) {
        memory->createFile(oddLocation(name));
    }
    auto const target = std::make_shared<provider::memory::MemoryProvider>();

    Outcome const outcome = runOver(conformance::decorate<Vanishing>(memory),
                                    {"cp", "-r", "odd:/a", "other:/b"}, target);

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "vfs: cp: odd:/a/1: no such file or folder\n"
                           "vfs: cp: odd:/a/fading: no such file or folder\n"
                           "vfs: cp: 2 files and 3 folders copied, 2 failed: odd:/a/1, "
                           "odd:/a/fading\n");
    EXPECT_EQ(runOver(target, {"find", "odd:/b"}).out, "fading\nsub\nsub/3\nz\n");
}

// Fails at the n-th call, for every n, and asserts what must hold whatever failed: no wrong bytes,
// and of a move every file on one side at least.
class CommandUnderFaults : public ::testing::TestWithParam<bool> {
  protected:
    static std::shared_ptr<provider::memory::MemoryProvider> filled() {
        auto memory = std::make_shared<provider::memory::MemoryProvider>();
        memory->createFolderRecursive(oddLocation("a/sub"));
        for (std::string const name : {"a/1", "a/sub/2"}) {
            auto const stream = memory->openReplacement(
                oddLocation(name), provider::ReplacementPolicy::ReplaceExisting);
            stream->write("content", 7);
            stream->close();
        }
        memory->createLink(oddLocation("a/link"), u"1");
        return memory;
    }
    static std::string contentOf(std::shared_ptr<provider::IProvider> const& storage,
                                 std::string const& path) {
        Outcome const outcome = runOver(storage, {"cat", "odd:/" + path});
        return outcome.code == 0 ? outcome.out : "nothing";
    }
};

TEST_P(CommandUnderFaults, NothingIsLostAndNothingIsHalf) {
    bool const sourceFails = GetParam();
    for (std::string const command : {"cp", "mv"}) {
        bool failed = true;
        for (std::uint64_t call = 1; failed; ++call) {
            ASSERT_LT(call, 1000u);
            auto const source = filled();
            auto const target = std::make_shared<provider::memory::MemoryProvider>();
            auto const faulty =
                conformance::decorate<conformance::FaultInjector>(sourceFails ? source : target);
            faulty->failAtAny(call, provider::ErrorCode::IOError);
            cli::Words words{command, "odd:/a", "other:/b"};
            if (command == "cp") {
                words.emplace_back("-r");
            }

            Outcome const outcome =
                sourceFails ? runOver(faulty, words, target) : runOver(source, words, faulty);

            failed = faulty->countOfFaults() > 0;
            for (std::string const name : {"1", "sub/2", "link"}) {
                std::string const there = contentOf(target, "b/" + name);
                std::string const here = contentOf(source, "a/" + name);
                EXPECT_TRUE(there == "content" || there == "nothing") << there;
                EXPECT_TRUE(here == "content" ||
                            (command == "mv" && (there == "content" || name == "link")))
                    << command << " at call " << call << ": " << name << '\n'
                    << outcome.err;
                if (outcome.code == 0) {
                    EXPECT_EQ(there, "content") << call << name;
                }
            }
            if (!failed) {
                EXPECT_EQ(outcome.code, 0) << outcome.err;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(OfEitherSide, CommandUnderFaults, ::testing::Bool(),
                         [](auto const& side) { return side.param ? "Source" : "Destination"; });

// Enough files for several threads.
TEST(CommandTreeTrouble, EachFailureAmongManyFilesIsToldOnceAndInOrder) {
    auto const memory = std::make_shared<provider::memory::MemoryProvider>();
    memory->createFolder(oddLocation("a"));
    memory->createFolder(oddLocation("b"));
    std::string expected;
    for (int i = 1000; i < 1500; ++i) {
        std::string const name = std::to_string(i);
        memory->createFile(oddLocation("a/" + name));
        if (i % 7 == 0) {
            memory->createFolder(oddLocation("b/" + name));
            expected += "vfs: cp: odd:/b/" + name + ": is a folder\n";
        }
        if (i % 5 == 0 && i % 7 != 0) {
            memory->createFile(oddLocation("b/" + name));
            memory->setWritable(oddLocation("b/" + name), false);
            expected += "vfs: cp: odd:/b/" + name + ": is read-only (-f replaces it)\n";
        }
    }

    Outcome const outcome = runOver(memory, {"cp", "-rT", "odd:/a", "odd:/b"});

    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.err, ::testing::StartsWith(expected + "vfs: cp: 342 files copied, 158 "
                                                              "failed: odd:/b/1000, odd:/b/1001"));
    EXPECT_THAT(outcome.err, ::testing::EndsWith(" and 148 more\n"));
}

TEST(CommandTreeTrouble, AStorageThatFillsUpEndsTheCopy) {
    auto const memory = std::make_shared<provider::memory::MemoryProvider>();
    memory->createFolder(oddLocation("a"));
    for (std::string const name : {"a/1", "a/2", "a/3"}) {
        memory->createFile(oddLocation(name));
    }
    auto const full = conformance::decorate<conformance::FaultInjector>(
        std::make_shared<provider::memory::MemoryProvider>());
    full->failAt(conformance::Operation::OpenReplacement, 2, provider::ErrorCode::NoSpaceLeft);

    Outcome const outcome = runOver(memory, {"cp", "-r", "odd:/a", "other:/b"}, full);

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "vfs: cp: other:/b/2: no space left\n"
                           "vfs: cp: stopped, because the destination has no space left\n"
                           "vfs: cp: 1 file and 1 folder copied, 1 failed: other:/b/2\n");
}

} // namespace
} // namespace cli_test
