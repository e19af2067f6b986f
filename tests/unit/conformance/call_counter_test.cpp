#include <foundation/storage/conformance/call_counter.hpp>

#include "recording_provider.hpp"

#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/provider/memory/memory_factory.hpp>

#include <gtest/gtest.h>

#include <thread>

namespace {

using namespace conformance_test;

TEST(CallCounter, CountsEachOperationByItself) {
    auto const counter = decorate<CallCounter>(std::make_shared<RecordingProvider>());
    counter->exists(at(u"/x"));
    counter->exists(at(u"/y"));
    counter->fileExists(at(u"/x"));
    auto const cursor = counter->listAll(at(u"/"), u"");
    while (cursor->hasNext()) {
        cursor->advance();
    }
    EXPECT_EQ(counter->countOf(Operation::Exists), 2U);
    EXPECT_EQ(counter->countOf(Operation::FileExists), 1U);
    EXPECT_EQ(counter->countOf(Operation::FolderExists), 0U);
    EXPECT_EQ(counter->countOf(Operation::ListAll), 1U);
    EXPECT_EQ(counter->countOf(Operation::HasNext), 4U);
    EXPECT_EQ(counter->countOf(Operation::Advance), 3U);
    EXPECT_EQ(counter->countOfAll(), 11U);
}

TEST(CallCounter, CountsWhatFailsToo) {
    class Refusing : public IProvider {
        ExistsResult exists(StorageIRI const& location) const override {
            throw Exception(ErrorCode::IOError, location);
        }
    };
    auto const counter = decorate<CallCounter>(std::make_shared<Refusing>());
    EXPECT_THROW(counter->exists(at(u"/x")), Exception);
    EXPECT_EQ(counter->countOf(Operation::Exists), 1U);
}

TEST(CallCounter, BeginsAgainAfterAReset) {
    auto const counter = decorate<CallCounter>(std::make_shared<RecordingProvider>());
    counter->exists(at(u"/x"));
    counter->reset();
    EXPECT_EQ(counter->countOfAll(), 0U);
    counter->exists(at(u"/x"));
    EXPECT_EQ(counter->countOf(Operation::Exists), 1U);
}

TEST(CallCounter, CountsTheBytesThatStreamsReadAndWrite) {
    auto const counter = decorate<CallCounter>(memory::buildMemoryProvider());
    StorageIRI const file(u"mem:/file");
    auto const writer = counter->openStream(file, {});
    writer->write("12345", 5);
    writer->close();
    auto const reader = counter->openReadOnlyStream(file);
    char buffer[8];
    while (reader->read(buffer, 3) > 0) {
    }
    EXPECT_EQ(counter->bytesWritten(), 5U);
    EXPECT_EQ(counter->bytesRead(), 5U);
    counter->reset();
    EXPECT_EQ(counter->bytesWritten() + counter->bytesRead(), 0U);
}

TEST(CallCounter, LosesNoCallOfManyThreads) {
    class Calm : public IProvider {
        ExistsResult exists(StorageIRI const&) const override { return ExistsResult::Nothing; }
    };
    auto const counter = decorate<CallCounter>(std::make_shared<Calm>());
    {
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < 4; ++thread) {
            threads.emplace_back([&] {
                for (int i = 0; i < 1000; ++i) {
                    counter->exists(at(u"/x"));
                }
            });
        }
    }
    EXPECT_EQ(counter->countOf(Operation::Exists), 4000U);
}

} // namespace
