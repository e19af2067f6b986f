#include "storage_run.hpp"

#include <foundation/storage/conformance/call_counter.hpp>
#include <foundation/storage/conformance/call_delayer.hpp>
#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/conformance/fault_injector.hpp>
#include <foundation/storage/conformance/feature_hider.hpp>
#include <foundation/storage/provider/memory/memory_provider.hpp>

#include <gmock/gmock.h>

#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace cli_test {
namespace {

namespace conformance = foundation::storage::conformance;
namespace provider = foundation::storage::provider;

using conformance::Operation;
using provider::memory::MemoryProvider;
using ::testing::HasSubstr;

/// Standard input is at its end meanwhile, which answers every question with no.
class NoAnswers {
  public:
    NoAnswers() : before_(::dup(STDIN_FILENO)) {
        int const nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        EXPECT_EQ(::dup2(nothing, STDIN_FILENO), STDIN_FILENO);
        ::close(nothing);
    }
    ~NoAnswers() {
        ::dup2(before_, STDIN_FILENO);
        ::close(before_);
    }
    NoAnswers(NoAnswers const&) = delete;
    NoAnswers& operator=(NoAnswers const&) = delete;

  private:
    int const before_;
};

class RmOverAStorage : public ::testing::Test {
  protected:
    RmOverAStorage() { fill(); }
    void fill() {
        memory_ = std::make_shared<MemoryProvider>();
        memory_->createFolderRecursive(oddLocation("t/a/deep"));
        memory_->createFolder(oddLocation("t/b"));
        memory_->createFolder(oddLocation("kept"));
        for (std::string const path : {"t/a/deep/x", "t/a/y", "t/b/z", "kept/in"}) {
            memory_->createFile(oddLocation(path));
        }
        memory_->createLink(oddLocation("t/link"), u"/kept");
    }
    bool isThere(std::string const& path) const {
        return memory_->exists(oddLocation(path)) != provider::ExistsResult::Nothing;
    }

    std::shared_ptr<MemoryProvider> memory_;
};

TEST_F(RmOverAStorage, LeavesTheTreeToAStorageThatRemovesTrees) {
    auto const counter = conformance::decorate<conformance::CallCounter>(memory_);

    EXPECT_EQ(runOver(counter, {"rm", "-r", "odd:/t"}).code, 0);

    EXPECT_FALSE(isThere("t"));
    EXPECT_TRUE(isThere("kept/in"));
    EXPECT_EQ(counter->countOf(Operation::RemoveFolderRecursively), 1u);
    EXPECT_EQ(counter->countOf(Operation::RemoveFile), 0u);
}

TEST_F(RmOverAStorage, WalksWhereTheStorageDoesNotRemoveTreesOrItemsAreNamed) {
    for (bool const hidden : {true, false}) {
        fill();
        auto const counter = conformance::decorate<conformance::CallCounter>(memory_);
        std::shared_ptr<provider::IProvider> storage = counter;
        if (hidden) {
            storage = conformance::decorate<conformance::FeatureHider>(counter);
        }

        EXPECT_EQ(runOver(storage, {"rm", hidden ? "-r" : "-rv", "odd:/t"}).err, "");

        EXPECT_FALSE(isThere("t"));
        EXPECT_TRUE(isThere("kept/in"));
        EXPECT_EQ(counter->countOf(Operation::RemoveFolderRecursively), 0u);
        EXPECT_EQ(counter->countOf(Operation::RemoveFile), 4u);
        EXPECT_EQ(counter->countOf(Operation::RemoveFolder), 4u);
    }
}

TEST_F(RmOverAStorage, DoesNotAskAStorageWhatItWillNotBeLeftTo) {
    auto const asked = [this](cli::Words const& words) {
        auto const counter = conformance::decorate<conformance::CallCounter>(memory_);
        EXPECT_EQ(runOver(counter, words).code, 0);
        return counter->countOf(Operation::HasFeature);
    };
    EXPECT_EQ(asked({"rm", "-r", "--dry-run", "odd:/t"}), 0u);
    EXPECT_EQ(asked({"rm", "-ri", "--dry-run", "odd:/t"}), 0u);
    {
        NoAnswers const none;
        EXPECT_EQ(asked({"rm", "-ri", "odd:/t"}), 0u);
    }
    EXPECT_TRUE(isThere("t"));
    EXPECT_GT(asked({"rm", "-r", "odd:/t"}), 0u);
    EXPECT_FALSE(isThere("t"));
}

// What somebody else makes in the folder while it is removed is not lost sight of.
TEST_F(RmOverAStorage, SaysThatAFolderIsNotEmptyWhereItFillsAgain) {
    auto const filling = conformance::decorate<conformance::CallDelayer>(
        memory_,
        [this](Operation, provider::StorageIRI const* location) {
            if (*location == oddLocation("t/b")) {
                memory_->createFile(oddLocation("t/b/new"));
            }
        },
        conformance::CallDelayer::Operations{Operation::RemoveFolder});

    Outcome const outcome = runOver(filling, {"rm", "-rv", "odd:/t"});

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "vfs: rm: odd:/t/b: folder not empty\n"
                           "vfs: rm: 0 of 1 location removed, 1 failed: odd:/t/b\n");
    EXPECT_TRUE(isThere("t/b/new"));
    EXPECT_FALSE(isThere("t/a"));
}

TEST_F(RmOverAStorage, DoesNotEnterALinkThatTookThePlaceOfAFolder) {
    bool exchanged = false;
    auto const exchanging = conformance::decorate<conformance::CallDelayer>(
        memory_,
        [&](Operation, provider::StorageIRI const* location) {
            if (*location == oddLocation("t/a") && !exchanged) {
                exchanged = true;
                memory_->removeFolderRecursively(oddLocation("t/b"));
                memory_->createLink(oddLocation("t/b"), u"/kept");
            }
        },
        conformance::CallDelayer::Operations{Operation::ListFoldersNamesOnly});

    Outcome const outcome = runOver(exchanging, {"rm", "-rv", "odd:/t"});

    EXPECT_TRUE(exchanged);
    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.err, HasSubstr("vfs: rm: odd:/t/b: is not a folder any more\n"));
    EXPECT_TRUE(isThere("t/b"));
    EXPECT_TRUE(isThere("kept/in"));
}

TEST_F(RmOverAStorage, EveryFailureIsToldUnlessAllIsGone) {
    for (std::string const option : {"-r", "-rv"}) {
        for (bool const hidden : {true, false}) {
            std::size_t failures = 0;
            for (std::uint64_t call = 1;; ++call) {
                fill();
                auto const faulty = conformance::decorate<conformance::FaultInjector>(memory_);
                faulty->failAtAny(call, provider::ErrorCode::IOError);
                std::shared_ptr<provider::IProvider> storage = faulty;
                if (hidden) {
                    storage = conformance::decorate<conformance::FeatureHider>(faulty);
                }
                Outcome const outcome = runOver(storage, {"rm", option, "odd:/t"});
                EXPECT_TRUE(isThere("kept/in"));
                EXPECT_EQ(isThere("t"), outcome.code != 0) << option << ' ' << call;
                if (faulty->countOfFaults() == 0) {
                    EXPECT_EQ(outcome.code, 0);
                    break;
                }
                ASSERT_LT(++failures, 10'000u);
                if (outcome.code != 0) {
                    EXPECT_THAT(outcome.err, HasSubstr("input or output failed")) << call;
                }
            }
            EXPECT_GT(failures, 1u);
        }
    }
}

TEST_F(RmOverAStorage, WhatIsGoneAlreadyIsNotMissed) {
    auto const racing = conformance::decorate<conformance::CallDelayer>(
        memory_,
        [this](Operation operation, provider::StorageIRI const* location) {
            if (operation == Operation::RemoveFile) {
                memory_->removeFile(*location);
            } else {
                memory_->removeFolder(*location);
            }
        },
        conformance::CallDelayer::Operations{Operation::RemoveFile, Operation::RemoveFolder});

    Outcome const outcome = runOver(racing, {"rm", "-rv", "odd:/t"});

    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.out, ""); // others removed it
    EXPECT_FALSE(isThere("t"));
}

} // namespace
} // namespace cli_test
