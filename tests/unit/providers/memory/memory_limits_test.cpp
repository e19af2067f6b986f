#include "memory_store.hpp"

#include <gtest/gtest.h>

#include <functional>

namespace {

using namespace memory_test;

memory::MemoryOptions bytes(std::uint64_t maximum) {
    return {.maximumBytes = maximum, .maximumEntries = std::nullopt};
}
memory::MemoryOptions entries(std::uint64_t maximum) {
    return {.maximumBytes = std::nullopt, .maximumEntries = maximum};
}

TEST(MemoryLimits, AsManyBytesFitAsTheHostAllows) {
    for (std::size_t const limit : {10UL, 100UL, 65536UL, 65537UL, 300'000UL}) {
        Store store(bytes(limit));
        store.put(u"/file", std::string(limit, 'a'));
        EXPECT_EQ(store.get(u"/file").size(), limit);
        store->removeFile(at(u"/file"));
        EXPECT_EQ(streamFailureOf<ByteStreamWriteFailure>(
                      [&] { store.put(u"/file", std::string(limit + 1, 'a')); }),
                  ErrorCode::NoSpaceLeft);
    }
}

TEST(MemoryLimits, AFileGrowsByteByByteUpToTheLimit) {
    Store store(bytes(1000));
    auto const stream = store->openStream(at(u"/file"), {});
    for (int i = 0; i < 1000; ++i) {
        stream->write("x", 1);
    }
    EXPECT_EQ(streamFailureOf<ByteStreamWriteFailure>([&] { stream->write("x", 1); }),
              ErrorCode::NoSpaceLeft);
    EXPECT_EQ(store.get(u"/file"), std::string(1000, 'x'));
}

TEST(MemoryLimits, AWriteThatDidNotFitPoisonsTheStream) {
    Store store(bytes(10));
    auto const stream = store->openStream(at(u"/file"), {});
    EXPECT_THROW(stream->write("0123456789a", 11), ByteStreamWriteFailure);
    store->removeFile(at(u"/file"));
    EXPECT_EQ(streamFailureOf<ByteStreamCloseFailure>([&] { stream->close(); }),
              ErrorCode::NoSpaceLeft);
}

TEST(MemoryLimits, RemovingAndTruncatingMakeRoomAgain) {
    Store store(bytes(100));
    for (int i = 0; i < 10; ++i) {
        store.put(u"/file", std::string(100, 'a')); // truncates what was there
    }
    store->removeFile(at(u"/file"));
    store.put(u"/other", std::string(100, 'a'));
}

TEST(MemoryLimits, ARemovedFileTakesSpaceUntilItsLastStreamIsGone) {
    Store store(bytes(100));
    store.put(u"/file", std::string(100, 'a'));
    auto stream = store->openReadOnlyStream(at(u"/file"));
    store->removeFile(at(u"/file"));
    EXPECT_EQ(failureOf([&] { store->createFile(at(u"/other")); }),
              failure(ErrorCode::NoSpaceLeft, u"/other"));
    stream.reset();
    store.put(u"/other", std::string(100, 'a'));
}

TEST(MemoryLimits, NothingCanBeCreatedInAFullStore) {
    Store store(bytes(4));
    store.put(u"/file", "full");
    using Call = std::function<void()>;
    for (Call const& call :
         {Call([&] { store->createFile(at(u"/new")); }),
          Call([&] { store->createFolder(at(u"/new")); }),
          Call([&] { store->createFolderRecursive(at(u"/new")); }),
          Call([&] { store->createLink(at(u"/new"), u"file"); }),
          Call([&] { store->openStream(at(u"/new"), {}); }),
          Call([&] { store->openReplacement(at(u"/new"), ReplacementPolicy::FailIfExists); }),
          Call([&] { store.copy(u"/file", u"/new"); })}) {
        EXPECT_EQ(failureOf(call), failure(ErrorCode::NoSpaceLeft, u"/new"));
        EXPECT_FALSE(store.isThere(u"/new"));
    }
    EXPECT_EQ(store.get(u"/file"), "full");
}

TEST(MemoryLimits, AsManyEntriesFitAsTheHostAllows) {
    Store store(entries(3));
    store->createFolderRecursive(at(u"/a/b"));
    store->createLink(at(u"/c"), u"a");
    EXPECT_EQ(failureOf([&] { store->createFile(at(u"/d")); }),
              failure(ErrorCode::NoSpaceLeft, u"/d"));
    store->removeFile(at(u"/c"));
    store->createFile(at(u"/d"));
    store->moveFile(at(u"/d"), at(u"/a/d"), ReplacementPolicy::FailIfExists);
    EXPECT_EQ(failureOf([&] { store.copy(u"/a/d", u"/e"); }),
              failure(ErrorCode::NoSpaceLeft, u"/e"));
}

TEST(MemoryLimits, AFailedCopyThatDidNotFitLeavesNoTrace) {
    Store source;
    Store full(bytes(1'000'000));
    source.put(u"/file", std::string(2'000'000, 'a'));
    EXPECT_EQ(streamFailureOf<ByteStreamWriteFailure>(
                  [&] { source->copyFile(at(u"/file"), full.item(u"/file"), {}); }),
              ErrorCode::NoSpaceLeft);
    EXPECT_FALSE(full.isThere(u"/file"));
    full.put(u"/file", std::string(1'000'000, 'a'));
}

} // namespace
