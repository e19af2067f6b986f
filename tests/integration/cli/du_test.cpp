#include "listed_trees.hpp"
#include "storage_run.hpp"

#include <foundation/storage/conformance/call_counter.hpp>
#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/conformance/fault_injector.hpp>
#include <foundation/storage/conformance/feature_hider.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/memory/memory_provider.hpp>

#include <gmock/gmock.h>

#include <map>
#include <memory>
#include <sstream>
#include <utility>

namespace cli_test {
namespace {

namespace conformance = foundation::storage::conformance;
namespace fs = std::filesystem;
namespace provider = foundation::storage::provider;

using conformance::Operation;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;

// docs with a file of 10 bytes, and docs/2024 with one of 1,500 and an empty one.
void makeDocs(TemporaryFolder const& folder) {
    fs::create_directories(folder / "docs/2024");
    writeFile(folder / "docs/notes.txt", "Buy milk.\n");
    writeFile(folder / "docs/2024/old.txt", std::string(1500, 'x'));
    writeFile(folder / "docs/2024/none", "");
}

TEST(CommandDu, PrintsEachFolderBehindWhatIsInIt) {
    TemporaryFolder folder;
    makeDocs(folder);

    Outcome const outcome = vfs(folder, {"du", "docs", "docs/2024/"});

    EXPECT_EQ(outcome.out, "1500\tdocs/2024\n1510\tdocs\n1500\tdocs/2024/\n");
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.code, 0);
    std::string const iri = "file://" + folder.path().string();
    EXPECT_EQ(vfs(folder, {"du", iri + "/docs"}).out,
              "1500\t" + iri + "/docs/2024\n1510\t" + iri + "/docs\n");
}

TEST(CommandDu, TakesTheWorkingDirectoryWhereNothingIsNamed) {
    TemporaryFolder folder;
    makeDocs(folder);

    EXPECT_EQ(vfs(folder, {"du"}).out, "1500\t./docs/2024\n1510\t./docs\n1510\t.\n");
}

TEST(CommandDu, PrintsNoMoreLevelsThanAskedForAndCountsAll) {
    TemporaryFolder folder;
    makeDocs(folder);

    EXPECT_EQ(vfs(folder, {"du", "-s", "."}).out, "1510\t.\n");
    EXPECT_EQ(vfs(folder, {"du", "-s", "-d", "0", "."}).out, "1510\t.\n");
    EXPECT_EQ(vfs(folder, {"du", "-d1", "."}).out, "1510\t./docs\n1510\t.\n");
    EXPECT_EQ(vfs(folder, {"du", "-d", "2"}).out, vfs(folder, {"du"}).out);
    EXPECT_THAT(linesOf(vfs(folder, {"du", "-a", "-d", "1", "docs"}).out),
                UnorderedElementsAre("10\tdocs/notes.txt", "1500\tdocs/2024", "1510\tdocs"));
}

TEST(CommandDu, PrintsFilesWhereAskedAndEachOneThatIsNamed) {
    TemporaryFolder folder;
    makeDocs(folder);

    EXPECT_THAT(linesOf(vfs(folder, {"du", "-a", "docs"}).out),
                UnorderedElementsAre("10\tdocs/notes.txt", "1500\tdocs/2024/old.txt",
                                     "0\tdocs/2024/none", "1500\tdocs/2024", "1510\tdocs"));
    EXPECT_EQ(vfs(folder, {"du", "docs/notes.txt"}).out, "10\tdocs/notes.txt\n");
    Outcome const slash = vfs(folder, {"du", "docs/notes.txt/"});
    EXPECT_EQ(slash.err, "vfs: du: docs/notes.txt/: is not a folder\n");
    EXPECT_EQ(slash.code, 1);
}

TEST(CommandDu, PrintsSizesForPeople) {
    TemporaryFolder folder;
    makeDocs(folder);

    EXPECT_EQ(vfs(folder, {"du", "-h", "docs", "docs/notes.txt"}).out,
              "1.5 KiB\tdocs/2024\n1.5 KiB\tdocs\n10 B\tdocs/notes.txt\n");
}

TEST(CommandDu, PrintsFactsForPrograms) {
    TemporaryFolder folder;
    makeDocs(folder);
    writeFile(folder / "docs/2024/\xff", "12345");
    std::string const iri = "file://" + folder.path().string();

    Outcome const outcome = vfs(folder, {"du", "-a", "--json", "docs"});

    EXPECT_THAT(
        linesOf(outcome.out),
        UnorderedElementsAre(
            R"({"path":"notes.txt","location":")" + iri +
                R"(/docs/notes.txt","kind":"file","size":10,"complete":true})",
            R"({"path":"2024/old.txt","location":")" + iri +
                R"(/docs/2024/old.txt","kind":"file","size":1500,"complete":true})",
            R"({"path":"2024/none","location":")" + iri +
                R"(/docs/2024/none","kind":"file","size":0,"complete":true})",
            R"({"path":{"hex":"323032342fff"},"location":")" + iri +
                R"(/docs/2024/%FF","kind":"file","size":5,"complete":true})",
            R"({"path":"2024","location":")" + iri +
                R"(/docs/2024","kind":"folder","size":1505,"files":3,"folders":0,"complete":true})",
            R"({"path":"","location":")" + iri +
                R"(/docs","kind":"folder","size":1515,"files":4,"folders":1,"complete":true})"));
}

TEST(CommandDu, CountsALinkAsItselfUnlessASlashFollows) {
    TemporaryFolder folder;
    makeDocs(folder);
    fs::create_symlink("docs", folder / "link");
    fs::create_symlink("nowhere", folder / "dangling");
    fs::create_directory(folder / "links");
    fs::create_symlink("../docs", folder / "links/docs");
    fs::create_symlink(".", folder / "links/loop");

    EXPECT_EQ(vfs(folder, {"du", "link", "dangling", "links"}).out,
              "4\tlink\n7\tdangling\n8\tlinks\n");
    EXPECT_EQ(vfs(folder, {"du", "link/"}).out, "1500\tlink/2024\n1510\tlink/\n");
}

TEST(CommandDu, ReportsWhatIsMissingAndGoesOn) {
    TemporaryFolder folder;
    makeDocs(folder);

    Outcome const outcome = vfs(folder, {"du", "-s", "missing", "nothing:/x", "docs"});

    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.err, HasSubstr("vfs: du: missing: no such file or folder\n"));
    EXPECT_EQ(outcome.out, "1510\tdocs\n");
}

TEST(CommandDu, NamesFoldersThatItCannotReadAndCountsTheRest) {
    TemporaryFolder folder;
    makeDocs(folder);
    fs::create_directories(folder / "docs/closed/inner");
    fs::create_directory(folder / "docs/empty");
    fs::permissions(folder / "docs/closed", fs::perms::none);

    Outcome const outcome =
        CommandRun::vfs({"du", "--json", "docs"}).in(folder.path()).unprivileged().run();
    Outcome const itself =
        CommandRun::vfs({"du", "docs/closed"}).in(folder.path()).unprivileged().run();
    fs::permissions(folder / "docs/closed", fs::perms::all);

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "vfs: du: docs/closed: permission denied\n");
    EXPECT_THAT(outcome.out, HasSubstr("docs/2024\",\"kind\":\"folder\",\"size\":1500,\"files\":2,"
                                       "\"folders\":0,\"complete\":true}"));
    EXPECT_THAT(outcome.out, HasSubstr("docs/empty\",\"kind\":\"folder\",\"size\":0,\"files\":0,"
                                       "\"folders\":0,\"complete\":true}"));
    EXPECT_THAT(outcome.out, HasSubstr("docs/closed\",\"kind\":\"folder\",\"size\":0,\"files\":0,"
                                       "\"folders\":0,\"complete\":false}"));
    EXPECT_THAT(outcome.out, HasSubstr("docs\",\"kind\":\"folder\",\"size\":1510,\"files\":3,"
                                       "\"folders\":3,\"complete\":false}"));
    EXPECT_EQ(itself.code, 1);
    EXPECT_EQ(itself.err, "vfs: du: docs/closed: permission denied\n");
}

TEST(CommandDu, ShowsOddNamesOnOneLine) {
    TemporaryFolder folder;
    fs::create_directory(folder / "a\nb\x1b[31m\xff");

    EXPECT_EQ(vfs(folder, {"du", "."}).out, "0\t./a\\nb\\x1b[31m\\xff\n0\t.\n");
}

TEST(CommandDu, RefusesOptionsThatContradictEachOther) {
    TemporaryFolder folder;
    for (std::vector<std::string> const& words : {std::vector<std::string>{"du", "-s", "-a"},
                                                  {"du", "-s", "-d", "1"},
                                                  {"du", "-d", "-1"},
                                                  {"du", "-d", "x"},
                                                  {"du", "-d", ""},
                                                  {"du", "-d"}}) {
        EXPECT_EQ(vfs(folder, words).code, 2) << words[1];
    }
}

// What du(1) counts for each folder below `root`, without what the folders take up themselves.
std::map<std::string, std::uint64_t> countedByDu(fs::path const& root) {
    std::map<std::string, std::uint64_t> sums;
    std::istringstream all(
        CommandRun::shell("cd '" + root.string() + "' && du -0 -l -b .").run().out);
    for (std::string line; std::getline(all, line, '\0');) {
        sums[line.substr(line.find('\t') + 1)] = std::stoull(line);
    }
    std::istringstream folders(
        CommandRun::shell("cd '" + root.string() + "' && find . -type d -printf '%s %p\\0'")
            .run()
            .out);
    for (std::string line; std::getline(folders, line, '\0');) {
        std::uint64_t const own = std::stoull(line);
        fs::path path = line.substr(line.find(' ') + 1);
        sums[path] -= own;
        while (path != ".") {
            path = path.parent_path();
            sums[path] -= own;
        }
    }
    return sums;
}

std::map<std::string, std::uint64_t> countedByVfs(fs::path const& root) {
    std::map<std::string, std::uint64_t> sums;
    for (std::string const& line : linesOf(CommandRun::vfs({"du", "."}).in(root).run().out)) {
        sums[line.substr(line.find('\t') + 1)] = std::stoull(line);
    }
    return sums;
}

TEST(CommandDu, AgreesWithDuOnATreeOfTheSystem) {
    std::map<std::string, std::uint64_t> const expected = countedByDu("/usr/include");
    ASSERT_GT(expected.size(), 100u);

    EXPECT_EQ(countedByVfs("/usr/include"), expected);
}

TEST(CommandDu, AgreesWithDuOnTheSumOfATreeOfOddNames) {
    TemporaryFolder folder;
    makeOddTree(folder.path());
    shell(folder, "find . -type f -size 0 -exec sh -c "
                  "'for f; do printf %s \"$f\" > \"$f\"; done' sh {} +; "
                  "ln -s plain link; ln plain/plain plain/again; mkfifo fifo");
    std::map<std::string, std::uint64_t> const expected = countedByDu(folder.path());
    ASSERT_GT(expected.at("."), 10'000u);

    EXPECT_EQ(countedByVfs(folder.path()).at("."), expected.at("."));
    EXPECT_EQ(countedByVfs(folder.path()).size(), expected.size());
}

TEST(CommandDu, CountsTreesOfAnyDepthInLittleMemory) {
    TemporaryFolder folder;
    makeChain(folder.path(), 20'000);

    Outcome const outcome = vfs(folder, {"du", "-s", "."});
    Outcome const first = vfs(folder, {"du", "--json", "-d", "0", "."});
    removeTree(folder / "folder");

    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_EQ(outcome.out, "0\t.\n");
    EXPECT_THAT(first.out, HasSubstr("\"files\":1,\"folders\":20000,\"complete\":true"));
    if (VFS_SANITIZED == 0) {
        EXPECT_LT(outcome.peakKiB, 64 * 1024);
    }
}

TEST(CommandDu, MemoryDoesNotGrowWithTheFiles) {
    if (VFS_SANITIZED != 0) {
        GTEST_SKIP() << "a sanitizer's own memory hides that of the command";
    }
    TemporaryFolder few;
    TemporaryFolder many;
    makeFiles(few.path(), 10);
    makeFiles(many.path(), 100'000);

    long const least = vfs(few, {"du", "."}).peakKiB;
    long const most = vfs(many, {"du", "."}).peakKiB;

    EXPECT_LT(most, least + 2048);
}

// A listing without the sizes of files.
class SizelessCursor final : public provider::IFolderEntryIterator {
  public:
    explicit SizelessCursor(std::unique_ptr<provider::IFolderEntryIterator> inner)
        : inner_(std::move(inner)) {}

    provider::FolderEntry currentEntry() const override {
        provider::FolderEntry const entry = inner_->currentEntry();
        return entry.isFile() ? provider::FolderEntry(entry.getName(), provider::FileAttributes({}))
                              : entry;
    }
    bool hasNext() const override { return inner_->hasNext(); }
    void advance() override { inner_->advance(); }
    SizelessCursor* cloneIterator() const override {
        return new SizelessCursor(
            std::unique_ptr<provider::IFolderEntryIterator>(inner_->cloneIterator()));
    }

  private:
    std::unique_ptr<provider::IFolderEntryIterator> inner_;
};

class WithoutSizes : public conformance::ProviderDecorator {
  protected:
    using ProviderDecorator::ProviderDecorator;

    std::unique_ptr<provider::IFolderEntryIterator>
    doList(Operation operation, Listing listing, provider::StorageIRI const& location,
           provider::ustring const& filter) const override {
        return std::make_unique<SizelessCursor>(
            ProviderDecorator::doList(operation, listing, location, filter));
    }
};

class DuOverAStorage : public ::testing::Test {
  protected:
    DuOverAStorage() {
        memory_->createFolderRecursive(oddLocation("a/deep"));
        memory_->createFolder(oddLocation("b"));
        for (std::string const path : {"a/deep/x.txt", "a/y.md", "b/z.txt"}) {
            auto const stream = memory_->openStream(oddLocation(path), {});
            stream->write("12345", 5);
            stream->close();
        }
        memory_->createLink(oddLocation("link"), u"abc");
    }

    std::shared_ptr<provider::memory::MemoryProvider> memory_ =
        std::make_shared<provider::memory::MemoryProvider>();
};

TEST_F(DuOverAStorage, AddsUpTheSameWhetherTheStorageListsTreesOrNot) {
    auto const flat = conformance::decorate<conformance::FeatureHider>(memory_);

    for (std::shared_ptr<provider::IProvider> const& storage :
         {std::shared_ptr<provider::IProvider>(memory_),
          std::shared_ptr<provider::IProvider>(flat)}) {
        EXPECT_EQ(runOver(storage, {"du", "odd:/"}).out,
                  "5\todd:/a/deep\n10\todd:/a\n5\todd:/b\n18\todd:/\n");
        EXPECT_EQ(runOver(storage, {"du", "-s", "odd:/", "odd:/link"}).out,
                  "18\todd:/\n3\todd:/link\n");
        EXPECT_THAT(linesOf(runOver(storage, {"du", "-a", "odd:/a"}).out),
                    UnorderedElementsAre("5\todd:/a/deep/x.txt", "5\todd:/a/deep", "5\todd:/a/y.md",
                                         "10\todd:/a"));
    }
}

TEST_F(DuOverAStorage, AsksForNoEntryByItself) {
    auto const counter = conformance::decorate<conformance::CallCounter>(memory_);

    runOver(counter, {"du", "odd:/"});

    EXPECT_EQ(counter->countOf(Operation::ListAllRecursive), 1u);
    EXPECT_EQ(counter->countOf(Operation::ExistsExtended), 1u); // of the folder itself
    EXPECT_EQ(counter->countOf(Operation::GetFileAttributes), 0u);
}

TEST_F(DuOverAStorage, SaysWhereTheStorageDoesNotTellSizes) {
    auto const sizeless = conformance::decorate<WithoutSizes>(memory_);

    Outcome const outcome = runOver(sizeless, {"du", "--json", "odd:/a"});

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "vfs: du: odd:/a: the storage does not tell the size of 2 files, which "
                           "count as nothing\n");
    EXPECT_THAT(outcome.out, EndsWith("\"size\":0,\"files\":2,\"folders\":1,"
                                      "\"complete\":false}\n"));
}

TEST_F(DuOverAStorage, EveryFailureEndsTheCommandWithAWord) {
    auto const faulty = conformance::decorate<conformance::FaultInjector>(memory_);
    auto const flat = conformance::decorate<conformance::FeatureHider>(faulty);
    for (std::shared_ptr<provider::IProvider> const& storage :
         {std::shared_ptr<provider::IProvider>(faulty),
          std::shared_ptr<provider::IProvider>(flat)}) {
        std::size_t failures = 0;
        for (std::uint64_t call = 1;; ++call) {
            faulty->clear();
            std::uint64_t const before = faulty->countOfFaults();
            faulty->failAtAny(call, provider::ErrorCode::IOError);
            Outcome const outcome = runOver(storage, {"du", "--json", "odd:/"});
            if (faulty->countOfFaults() == before) {
                EXPECT_EQ(outcome.code, 0);
                EXPECT_THAT(outcome.out, EndsWith("\"folders\":3,\"complete\":true}\n"));
                break;
            }
            ASSERT_LT(++failures, 10'000u);
            EXPECT_EQ(outcome.code, 1) << call;
            EXPECT_THAT(outcome.err, HasSubstr("input or output failed")) << call;
            EXPECT_EQ(linesOf(outcome.err).size(), 1u) << outcome.err;
            EXPECT_THAT(outcome.out, ::testing::Not(EndsWith("\"complete\":true}\n"))) << call;
        }
        EXPECT_GT(failures, 5u);
    }
}

} // namespace
} // namespace cli_test
