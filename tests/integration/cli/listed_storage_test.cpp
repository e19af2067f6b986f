#include "listed_trees.hpp"
#include "storage_run.hpp"

#include <cli/location.hpp>
#include <cli/output.hpp>

#include <foundation/storage/conformance/call_counter.hpp>
#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/conformance/fault_injector.hpp>
#include <foundation/storage/conformance/feature_hider.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/memory/memory_provider.hpp>
#include <foundation/storage/provider/wildcard.hpp>

#include <fl/i18n/conversion.hpp>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace cli_test {
namespace {

namespace conformance = foundation::storage::conformance;
namespace provider = foundation::storage::provider;

using conformance::Operation;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;

// Hides nothing, and has no extension: a storage without links.
class WithoutLinks final : public conformance::FeatureHider {
  public:
    explicit WithoutLinks(std::shared_ptr<provider::IProvider> inner)
        : FeatureHider(std::move(inner), {}) {}
};

// A listing that was made before; where it has no entry, it fails, and goes on behind that.
class PreparedCursor final : public provider::IFolderEntryIterator {
  public:
    using Steps = std::vector<std::optional<provider::FolderEntry>>;

    PreparedCursor(Steps steps, provider::StorageIRI broken)
        : steps_(std::make_shared<Steps const>(std::move(steps))),
          broken_(std::move(broken)) {}

    provider::FolderEntry currentEntry() const override { return *steps_->at(next_ - 1); }
    bool hasNext() const override { return next_ < steps_->size(); }
    void advance() override {
        if (!steps_->at(next_++)) {
            throw provider::Exception(provider::ErrorCode::IOError, broken_);
        }
    }
    PreparedCursor* cloneIterator() const override { return new PreparedCursor(*this); }

  private:
    std::shared_ptr<Steps const> steps_;
    provider::StorageIRI broken_;
    std::size_t next_ = 0;
};

// One folder of this storage cannot be read, as on a disk with a bad sector.
class WithABrokenFolder : public conformance::ProviderDecorator {
  protected:
    WithABrokenFolder(std::shared_ptr<provider::IProvider> inner, provider::StorageIRI broken)
        : ProviderDecorator(std::move(inner)),
          broken_(std::move(broken)) {}

    std::unique_ptr<provider::IFolderEntryIterator>
    doList(Operation operation, Listing listing, provider::StorageIRI const& location,
           provider::ustring const& filter) const override {
        if (location == broken_) {
            throw provider::Exception(provider::ErrorCode::IOError, broken_);
        }
        if (operation != Operation::ListAllRecursive &&
            operation != Operation::ListAllRecursiveNamesOnly) {
            return ProviderDecorator::doList(operation, listing, location, filter);
        }
        PreparedCursor::Steps steps;
        auto const all = ProviderDecorator::doList(operation, listing, location, {});
        while (all->hasNext()) {
            all->advance();
            provider::StorageIRI const item(location, all->currentEntry().getName());
            if (broken_.isAncestorOf(item)) {
                continue;
            }
            if (filter.empty() || provider::matchesWildcard(filter, item.getName())) {
                steps.emplace_back(all->currentEntry());
            }
            if (item == broken_) {
                steps.emplace_back(std::nullopt);
            }
        }
        return std::make_unique<PreparedCursor>(std::move(steps), broken_);
    }

  private:
    provider::StorageIRI broken_;
};

// The commands in this process, over storages that a disk never is.
class CommandOverAStorage : public ::testing::Test {
  protected:
    CommandOverAStorage() {
        memory_->createFolderRecursive(at("a/deep"));
        memory_->createFolder(at("b"));
        memory_->createFile(at("a/deep/x.txt"));
        memory_->createFile(at("a/y.md"));
        memory_->createFile(at("b/z.txt"));
        memory_->createLink(at("link"), u"a");
    }

    static provider::StorageIRI at(std::string const& path) { return oddLocation(path); }
    static Outcome run(std::shared_ptr<provider::IProvider> const& storage,
                       cli::Words const& words) {
        return runOver(storage, words);
    }

    std::shared_ptr<provider::memory::MemoryProvider> memory_ =
        std::make_shared<provider::memory::MemoryProvider>();
};

TEST_F(CommandOverAStorage, FindWalksWhereTheStorageDoesNot) {
    auto const flat = conformance::decorate<conformance::FeatureHider>(memory_);

    EXPECT_THAT(
        linesOf(run(flat, {"find", "odd:/"}).out),
        UnorderedElementsAre("a", "a/deep", "a/deep/x.txt", "a/y.md", "b", "b/z.txt", "link"));
    EXPECT_THAT(linesOf(run(flat, {"find", "odd:/", "*.txt"}).out),
                UnorderedElementsAre("a/deep/x.txt", "b/z.txt"));
    EXPECT_THAT(linesOf(run(flat, {"find", "odd:/a"}).out),
                UnorderedElementsAre("deep", "deep/x.txt", "y.md"));
    EXPECT_THAT(linesOf(run(flat, {"find", "-td", "odd:/"}).out),
                UnorderedElementsAre("a", "a/deep", "b"));
    EXPECT_THAT(run(flat, {"find", "--json", "odd:/a", "x*"}).out,
                HasSubstr("\"path\":\"deep/x.txt\",\"location\":\"odd:/a/deep/x.txt\""));
}

TEST_F(CommandOverAStorage, FindDoesNotAskForEachEntryWhereTheStorageDoesNotWalk) {
    auto const counter = conformance::decorate<conformance::CallCounter>(
        conformance::decorate<conformance::FeatureHider>(memory_));

    run(counter, {"find", "odd:/"});

    EXPECT_EQ(counter->countOf(Operation::Exists), 0u);
    EXPECT_EQ(counter->countOf(Operation::ExistsExtended), 1u); // of the folder itself
    EXPECT_EQ(counter->countOf(Operation::GetFileAttributes), 0u);
}

TEST_F(CommandOverAStorage, FindTakesNamesAloneFromAStorageThatWalks) {
    auto const counter = conformance::decorate<conformance::CallCounter>(memory_);

    run(counter, {"find", "odd:/", "*.txt"});

    EXPECT_EQ(counter->countOf(Operation::ListAllRecursiveNamesOnly), 1u);
    EXPECT_EQ(counter->countOf(Operation::ListAllRecursive), 0u);
    EXPECT_EQ(counter->countOf(Operation::ExistsExtended), 1u);
}

TEST_F(CommandOverAStorage, FactsCostNoCallForEachEntryWhereThereAreNoLinks) {
    auto const counter =
        conformance::decorate<conformance::CallCounter>(std::make_shared<WithoutLinks>(memory_));

    Outcome const details = run(counter, {"ls", "-l", "odd:/a"});
    run(counter, {"find", "--json", "odd:/"});
    run(counter, {"tree", "odd:/"});

    EXPECT_THAT(details.out, HasSubstr("  y.md\n"));
    EXPECT_EQ(counter->countOf(Operation::ExistsExtended), 3u); // of the folders themselves
    EXPECT_EQ(counter->countOf(Operation::GetFileAttributes), 0u);
    EXPECT_EQ(counter->countOf(Operation::GetFolderAttributes), 0u);
}

TEST_F(CommandOverAStorage, ListingsEndWithAnErrorWhereTheStorageFailsOnTheWay) {
    for (cli::Words const& words :
         {cli::Words{"find", "odd:/"}, cli::Words{"find", "-td", "odd:/"},
          cli::Words{"find", "--json", "odd:/"}, cli::Words{"ls", "--json", "odd:/"},
          cli::Words{"ls", "odd:/"}, cli::Words{"ls", "-l", "odd:/"}}) {
        auto const faulty = conformance::decorate<conformance::FaultInjector>(memory_);
        faulty->failAt(Operation::Advance, 3, provider::ErrorCode::IOError,
                       conformance::Faulty::FromThenOn);

        Outcome const outcome = run(faulty, words);

        EXPECT_EQ(outcome.code, 1) << words.at(1);
        EXPECT_EQ(outcome.err, "vfs: " + words.front() + ": odd:/: input or output failed\n");
        std::vector<std::string> const lines = linesOf(outcome.out);
        EXPECT_GE(lines.size(), 1u) << words.at(1);
        EXPECT_LE(lines.size(), 2u) << words.at(1);
    }
}

TEST_F(CommandOverAStorage, FindGoesOnBehindAFolderThatFails) {
    auto const broken = conformance::decorate<WithABrokenFolder>(memory_, at("a"));
    std::string const failure = "vfs: find: odd:/a: input or output failed\n";

    Outcome const names = run(broken, {"find", "odd:/"});
    Outcome const files = run(broken, {"find", "-tf", "odd:/"});
    Outcome const facts = run(broken, {"find", "--json", "odd:/"});

    EXPECT_THAT(linesOf(names.out), UnorderedElementsAre("a", "b", "b/z.txt", "link"));
    EXPECT_THAT(linesOf(files.out), UnorderedElementsAre("b/z.txt", "link"));
    EXPECT_EQ(linesOf(facts.out).size(), 4u);
    for (Outcome const& outcome : {names, files, facts}) {
        EXPECT_EQ(outcome.code, 1);
        EXPECT_EQ(outcome.err, failure);
    }
}

TEST_F(CommandOverAStorage, FindFindsMatchesThatAllLieBehindAFolderThatFails) {
    auto const broken = conformance::decorate<WithABrokenFolder>(memory_, at("a"));
    std::string const failure = "vfs: find: odd:/a: input or output failed\n";

    Outcome const names = run(broken, {"find", "odd:/", "z*"});
    Outcome const files = run(broken, {"find", "-tf", "odd:/", "*.t?t"});
    Outcome const facts = run(broken, {"find", "--json", "odd:/", "z.txt"});

    EXPECT_EQ(names.out, "b/z.txt\n");
    EXPECT_EQ(files.out, "b/z.txt\n");
    EXPECT_THAT(facts.out, HasSubstr("\"path\":\"b/z.txt\""));
    EXPECT_EQ(linesOf(facts.out).size(), 1u);
    for (Outcome const& outcome : {names, files, facts}) {
        EXPECT_EQ(outcome.code, 1);
        EXPECT_EQ(outcome.err, failure);
    }
}

TEST_F(CommandOverAStorage, FindEndsAtAFolderThatFailsWhereTheStorageDoesNotWalk) {
    auto const flat = conformance::decorate<conformance::FeatureHider>(
        conformance::decorate<WithABrokenFolder>(memory_, at("b")));
    for (cli::Words const& words :
         {cli::Words{"find", "odd:/"}, cli::Words{"find", "--json", "odd:/"},
          cli::Words{"find", "-tf", "odd:/", "*.txt"}}) {
        Outcome const outcome = run(flat, words);

        EXPECT_EQ(outcome.code, 1) << words.at(1);
        EXPECT_EQ(outcome.err, "vfs: find: odd:/b: input or output failed\n") << words.at(1);
        EXPECT_THAT(outcome.out, HasSubstr("a/deep/x.txt")) << words.at(1);
    }
}

TEST_F(CommandOverAStorage, AFailureBelowIsNamedAsTheFolderWasTyped) {
    provider::StorageIRI const top = cli::parseLocation("top").iri.toStorageIRI();
    memory_->createFolderRecursive(provider::StorageIRI(top, u"in/bad"));
    auto const broken =
        conformance::decorate<WithABrokenFolder>(memory_, provider::StorageIRI(top, u"in/bad"));
    std::string const iri = fl::i18n::toDisplayString(top.toString());
    for (std::string const& typed : {std::string("top"), std::string("./top"), iri}) {
        for (std::string const command : {"find", "ls"}) {
            Outcome const outcome = run(broken, command == "ls" ? cli::Words{"ls", "-R", typed}
                                                                : cli::Words{"find", typed});

            EXPECT_EQ(outcome.code, 1);
            EXPECT_EQ(outcome.err,
                      "vfs: " + command + ": " + typed + "/in/bad: input or output failed\n");
        }
    }
}

TEST_F(CommandOverAStorage, TreeDrawsWhatItGotBeforeAFailure) {
    auto const faulty = conformance::decorate<conformance::FaultInjector>(memory_);
    faulty->failAt(Operation::Advance, 3, provider::ErrorCode::IOError);
    Outcome const atTheTop = run(faulty, {"tree", "-L1", "odd:/"});
    faulty->clear();
    faulty->failAt(Operation::Advance, 5, provider::ErrorCode::IOError);
    Outcome const below = run(faulty, {"tree", "odd:/"});

    EXPECT_EQ(atTheTop.code, 1);
    EXPECT_EQ(atTheTop.err, "vfs: tree: odd:/: input or output failed\n");
    EXPECT_THAT(atTheTop.out, EndsWith("2 folders, 0 files\n"));
    EXPECT_EQ(below.code, 1);
    EXPECT_EQ(below.err, "");
    EXPECT_THAT(below.out, HasSubstr("a/ [input or output failed]\n"));
    EXPECT_THAT(below.out, HasSubstr("z.txt\n"));
    EXPECT_THAT(below.out, EndsWith(", 1 unreadable\n"));
}

TEST_F(CommandOverAStorage, EveryFailureOfAListingEndsTheCommandWithAWord) {
    for (cli::Words const& words :
         {cli::Words{"find", "odd:/"}, cli::Words{"find", "--json", "odd:/"},
          cli::Words{"ls", "-lR", "odd:/"}, cli::Words{"ls", "-R", "--json", "odd:/"},
          cli::Words{"tree", "odd:/"}}) {
        auto const faulty = conformance::decorate<conformance::FaultInjector>(memory_);
        std::size_t failures = 0;
        for (std::uint64_t call = 1;; ++call) {
            faulty->clear();
            std::uint64_t const before = faulty->countOfFaults();
            faulty->failAtAny(call, provider::ErrorCode::IOError);
            Outcome const outcome = run(faulty, words);
            if (faulty->countOfFaults() == before) {
                EXPECT_EQ(outcome.code, 0);
                break;
            }
            ASSERT_LT(++failures, 10'000u);
            EXPECT_EQ(outcome.code, 1) << words.front() << ' ' << call;
            EXPECT_THAT(outcome.out + outcome.err, HasSubstr("input or output failed"))
                << words.front() << ' ' << call;
        }
        EXPECT_GT(failures, 10u) << words.front();
    }
}

TEST_F(CommandOverAStorage, WhatVanishesWhileItIsListedIsLeftOut) {
    for (cli::Words const& words :
         {cli::Words{"ls", "-l", "odd:/a"}, cli::Words{"ls", "--json", "odd:/a"},
          cli::Words{"find", "--json", "-tf", "odd:/a", "y*"}}) {
        auto const faulty = conformance::decorate<conformance::FaultInjector>(memory_);
        // The first question is about the folder, the second about the file y.md.
        faulty->failAt(Operation::ExistsExtended, 2, provider::ErrorCode::ResourceNotFound);

        Outcome const outcome = run(faulty, words);

        EXPECT_EQ(faulty->countOfFaults(), 1u);
        EXPECT_EQ(outcome.code, 0) << outcome.err;
        EXPECT_THAT(outcome.out, ::testing::Not(HasSubstr("y.md"))) << words.front();
    }
}

// Standard output of this process, for the time of a test.
class StandardOutput {
  public:
    explicit StandardOutput(int descriptor) : before_(::dup(STDOUT_FILENO)) {
        ::dup2(descriptor, STDOUT_FILENO);
    }
    ~StandardOutput() {
        ::dup2(before_, STDOUT_FILENO);
        ::close(before_);
    }
    StandardOutput(StandardOutput const&) = delete;
    StandardOutput& operator=(StandardOutput const&) = delete;

  private:
    int before_;
};

int waitingIn(int descriptor) {
    int count = -1;
    ::ioctl(descriptor, FIONREAD, &count);
    return count;
}

TEST(CommandOutput, WritesToAPipeInBlocks) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    {
        StandardOutput const redirected(ends[1]);
        cli::Output output;
        output.print(std::string(65'000, 'x'));
        output.flushBlock();
        EXPECT_EQ(waitingIn(ends[0]), 0);
        output.print(std::string(536, 'x'));
        output.flushBlock();
        EXPECT_EQ(waitingIn(ends[0]), 65'536);
    }
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST(CommandOutput, WritesToATerminalAtOnce) {
    int master = -1;
    int slave = -1;
    ASSERT_EQ(::openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
    {
        StandardOutput const redirected(slave);
        cli::Output output;
        output.print("one");
        EXPECT_EQ(waitingIn(master), 0);
        output.flushBlock();
    }
    char buffer[16];
    EXPECT_EQ(::read(master, buffer, sizeof buffer), 3);
    ::close(slave);
    ::close(master);
}

} // namespace
} // namespace cli_test
