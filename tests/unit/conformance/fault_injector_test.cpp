#include <foundation/storage/conformance/fault_injector.hpp>

#include "recording_provider.hpp"

#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/provider/memory/memory_factory.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <stdexcept>
#include <thread>

namespace {

using namespace conformance_test;
using enum ErrorCode;

template<class Call>
std::optional<ErrorCode> codeOf(Call const& call) {
    try {
        call();
    } catch (Exception const& e) {
        return e.getErrorCode();
    }
    return std::nullopt;
}

class FaultInjectorTest : public testing::Test {
  protected:
    std::shared_ptr<RecordingProvider> inner = std::make_shared<RecordingProvider>();
    std::shared_ptr<FaultInjector> injector = decorate<FaultInjector>(inner);

    std::optional<ErrorCode> exists() const {
        return codeOf([&] { injector->exists(at(u"/x")); });
    }
    std::optional<ErrorCode> createFile() const {
        return codeOf([&] { injector->createFile(at(u"/x")); });
    }
};

TEST_F(FaultInjectorTest, FailsInNothingUntilTold) {
    EXPECT_EQ(exists(), std::nullopt);
    EXPECT_EQ(injector->countOfFaults(), 0U);
}

TEST_F(FaultInjectorTest, TheCallThatWasNamedFailsOnce) {
    injector->failAt(Operation::Exists, 2, PermissionDenied);
    EXPECT_EQ(exists(), std::nullopt);
    EXPECT_EQ(createFile(), std::nullopt);
    EXPECT_EQ(exists(), PermissionDenied);
    EXPECT_EQ(exists(), std::nullopt);
    EXPECT_EQ(injector->countOfFaults(), 1U);
    EXPECT_EQ(inner->calls.size(), 3U);
}

TEST_F(FaultInjectorTest, AFaultThatLastsStaysUntilItIsCleared) {
    injector->failAt(Operation::Exists, 2, IOError, Faulty::FromThenOn);
    EXPECT_EQ(exists(), std::nullopt);
    EXPECT_EQ(exists(), IOError);
    EXPECT_EQ(exists(), IOError);
    EXPECT_EQ(createFile(), std::nullopt);
    injector->clear();
    EXPECT_EQ(exists(), std::nullopt);
    EXPECT_EQ(injector->countOfFaults(), 2U);
}

TEST_F(FaultInjectorTest, CallsAreCountedFromWhenTheFaultIsAskedFor) {
    EXPECT_EQ(exists(), std::nullopt);
    injector->failAt(Operation::Exists, 1, IOError);
    EXPECT_EQ(exists(), IOError);
}

TEST_F(FaultInjectorTest, AnyCallCanBeTheOneThatFails) {
    injector->failAtAny(2, NoSpaceLeft);
    EXPECT_EQ(exists(), std::nullopt);
    EXPECT_EQ(createFile(), NoSpaceLeft);
    EXPECT_EQ(createFile(), std::nullopt);
}

TEST_F(FaultInjectorTest, OfTwoFaultsTheOneThatWasAskedForFirstIsMet) {
    injector->failAt(Operation::Exists, 1, IOError);
    injector->failAtAny(1, NoSpaceLeft, Faulty::FromThenOn);
    EXPECT_EQ(exists(), IOError);
    EXPECT_EQ(exists(), NoSpaceLeft);
    EXPECT_EQ(injector->countOfFaults(), 2U);
}

TEST_F(FaultInjectorTest, CallsAreCountedFromOne) {
    EXPECT_THROW(injector->failAtAny(0, IOError), std::invalid_argument);
}

TEST_F(FaultInjectorTest, TheFailureNamesTheLocationOfTheCall) {
    injector->failAtAny(1, IOError, Faulty::FromThenOn);
    try {
        injector->moveFile(at(u"/from"), at(u"/to"), ReplacementPolicy::FailIfExists);
        FAIL();
    } catch (Exception const& e) {
        EXPECT_EQ(e.getStorageIRI(), at(u"/from"));
    }
}

TEST_F(FaultInjectorTest, CursorsFailToo) {
    auto const cursor = injector->listAll(at(u"/folder"), u"");
    for (Operation const operation : {Operation::HasNext, Operation::Advance,
                                      Operation::CurrentEntry, Operation::CloneIterator}) {
        injector->failAt(operation, 1, PermissionDenied);
        EXPECT_EQ(codeOf([&] {
                      cursor->hasNext();
                      cursor->advance();
                      cursor->currentEntry();
                      delete cursor->cloneIterator();
                  }),
                  PermissionDenied)
            << operation;
    }
    EXPECT_EQ(injector->countOfFaults(), 4U);
}

TEST_F(FaultInjectorTest, EveryWayToFailIsGoneOneByOne) {
    for (std::uint64_t call = 1;; ++call) {
        ASSERT_LE(call, 4U);
        auto const store = decorate<FaultInjector>(memory::buildMemoryProvider());
        store->failAtAny(call, IOError);
        StorageIRI const folder(u"mem:/folder");
        bool const failed = codeOf([&] {
                                store->createFolder(folder);
                                store->createFile(StorageIRI(folder, u"file"));
                                store->listAll(folder, u"");
                            }).has_value();
        EXPECT_EQ(failed, call < 4);
        EXPECT_EQ(store->countOfFaults(), failed ? 1U : 0U);
        if (!failed) {
            break;
        }
    }
}

TEST(FaultInjector, StrikesOnceAmongManyThreads) {
    class Calm : public IProvider {
        ExistsResult exists(StorageIRI const&) const override { return ExistsResult::Nothing; }
    };
    auto const injector = decorate<FaultInjector>(std::make_shared<Calm>());
    injector->failAt(Operation::Exists, 1500, IOError);
    std::atomic<int> failures{0};
    {
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < 4; ++thread) {
            threads.emplace_back([&] {
                for (int i = 0; i < 1000; ++i) {
                    failures += codeOf([&] { injector->exists(at(u"/x")); }).has_value();
                }
            });
        }
    }
    EXPECT_EQ(failures, 1);
}

TEST(FaultInjector, AFailureToFlushNamesALocationToo) {
    class Flushable : public RecordingProvider, public extensions::IFlushableFilesystem {
        void flushFilesystem() override {}
    };
    auto const injector = decorate<FaultInjector>(std::make_shared<Flushable>());
    injector->failAt(Operation::FlushFilesystem, 1, IOError);
    auto& filesystem = dynamic_cast<extensions::IFlushableFilesystem&>(*injector);
    EXPECT_EQ(codeOf([&] { filesystem.flushFilesystem(); }), IOError);
    EXPECT_EQ(codeOf([&] { filesystem.flushFilesystem(); }), std::nullopt);
}

} // namespace
