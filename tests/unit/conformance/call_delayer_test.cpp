#include <foundation/storage/conformance/call_delayer.hpp>

#include "recording_provider.hpp"

#include <foundation/storage/conformance/decorate.hpp>

#include <gtest/gtest.h>

#include <latch>
#include <stdexcept>
#include <thread>
#include <utility>

namespace {

using namespace conformance_test;

TEST(CallDelayer, WaitsBeforeEachCall) {
    using std::chrono::milliseconds;
    auto const inner = std::make_shared<RecordingProvider>();
    auto const delayer = decorate<CallDelayer>(inner, milliseconds(10));
    auto const start = std::chrono::steady_clock::now();
    delayer->exists(at(u"/x"));
    delayer->listAll(at(u"/x"), u"")->hasNext();
    EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(30));
    EXPECT_EQ(inner->calls.size(), 2U);
}

TEST(CallDelayer, RunsWhatItIsGivenBeforeTheCall) {
    auto const inner = std::make_shared<RecordingProvider>();
    std::vector<std::pair<Operation, std::size_t>> runs;
    auto const delayer =
        decorate<CallDelayer>(inner, [&](Operation operation, StorageIRI const* location) {
            EXPECT_EQ(*location, at(u"/x"));
            runs.emplace_back(operation, inner->calls.size());
        });
    delayer->exists(at(u"/x"));
    delayer->createFile(at(u"/x"));
    EXPECT_EQ(runs, (std::vector{std::pair(Operation::Exists, std::size_t{0}),
                                 std::pair(Operation::CreateFile, std::size_t{1})}));
}

TEST(CallDelayer, LeavesTheOtherOperationsAlone) {
    int runs = 0;
    auto const delayer = decorate<CallDelayer>(
        std::make_shared<RecordingProvider>(), [&](Operation, StorageIRI const*) { ++runs; },
        CallDelayer::Operations{Operation::CreateFile, Operation::HasNext});
    delayer->exists(at(u"/x"));
    auto const cursor = delayer->listAll(at(u"/x"), u"");
    EXPECT_EQ(runs, 0);
    delayer->createFile(at(u"/x"));
    cursor->hasNext();
    EXPECT_EQ(runs, 2);
}

TEST(CallDelayer, WhatTheActionThrowsReachesTheCallerAlone) {
    auto const inner = std::make_shared<RecordingProvider>();
    auto const delayer = decorate<CallDelayer>(
        inner, [](Operation, StorageIRI const*) { throw std::runtime_error("no"); });
    EXPECT_THROW(delayer->exists(at(u"/x")), std::runtime_error);
    EXPECT_TRUE(inner->calls.empty());
}

TEST(CallDelayer, CallsWaitBesideEachOther) {
    class Calm : public IProvider {
        ExistsResult exists(StorageIRI const&) const override { return ExistsResult::Nothing; }
    };
    constexpr int together = 4;
    std::latch gate(together); // opens when all stand at it
    auto const delayer = decorate<CallDelayer>(
        std::make_shared<Calm>(), [&](Operation, StorageIRI const*) { gate.arrive_and_wait(); });
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < together; ++thread) {
        threads.emplace_back([&] { delayer->exists(at(u"/x")); });
    }
}

} // namespace
