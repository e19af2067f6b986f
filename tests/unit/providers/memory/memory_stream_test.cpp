#include "memory_store.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace {

using namespace memory_test;
using std::ios_base;

constexpr long block = 64 * 1024;

ByteStreamOpenOptions readWrite() {
    return {ByteStreamAccess::ReadWrite, ByteStreamCreation::OpenOrCreate, 1, 1};
}
ByteStreamOpenOptions appending() {
    return {ByteStreamAccess::ReadWrite, ByteStreamCreation::OpenOrCreate, 1, 0};
}

std::string pattern(std::size_t size, unsigned salt = 0) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>(i * 7 + i / 251 + salt);
    }
    return bytes;
}

TEST(MemoryStream, ReadsWhatWasWrittenWhateverTheSizes) {
    for (long const piece : {1L, 63L, 64L, 65L, 4095L, block - 1, block, block + 1, 3 * block}) {
        Store store;
        std::string const bytes = pattern(static_cast<std::size_t>(3 * block + 17));
        auto const stream = store->openStream(at(u"/file"), readWrite());
        for (long done = 0; done < static_cast<long>(bytes.size()); done += piece) {
            long const count = std::min(piece, static_cast<long>(bytes.size()) - done);
            ASSERT_EQ(stream->write(bytes.data() + done, count), count);
            if (piece < 64 && done > 2000) {
                // Byte by byte the start is enough.
                stream->write(bytes.data() + done + count,
                              static_cast<long>(bytes.size()) - done - count);
                break;
            }
        }
        EXPECT_TRUE(Store::contentOf(*stream) == bytes) << piece;
        EXPECT_EQ(store->getFileAttributes(at(u"/file")).values().size, bytes.size());
    }
}

TEST(MemoryStream, AtTheEndThereIsNothing) {
    Store store;
    store.put(u"/file", "0123456789");
    auto const stream = store->openReadOnlyStream(at(u"/file"));
    char buffer[100];
    EXPECT_EQ(stream->read(buffer, 0), 0);
    EXPECT_EQ(stream->read(buffer, 100), 10);
    EXPECT_EQ(stream->read(buffer, 100), -1);
    EXPECT_EQ(stream->read(buffer, 0), 0);
    EXPECT_EQ(stream->seek(1000, ios_base::beg), 1000);
    EXPECT_EQ(stream->read(buffer, 1), -1);
}

TEST(MemoryStream, SeeksFromThreePlaces) {
    Store store;
    store.put(u"/file", "0123456789");
    auto const stream = store->openReadOnlyStream(at(u"/file"));
    char c = 0;
    EXPECT_EQ(stream->seek(3, ios_base::beg), 3);
    EXPECT_EQ(stream->seek(2, ios_base::cur), 5);
    stream->read(&c, 1);
    EXPECT_EQ(c, '5');
    EXPECT_EQ(stream->seek(-1, ios_base::end), 9);
    stream->read(&c, 1);
    EXPECT_EQ(c, '9');
}

TEST(MemoryStream, APositionOutsideIsRefusedAndTheOldOneStays) {
    Store store;
    store.put(u"/file", "0123456789");
    auto const stream = store->openReadOnlyStream(at(u"/file"));
    stream->seek(4, ios_base::beg);
    struct Row {
        long offset;
        ios_base::seekdir way;
    };
    for (Row const& row : {Row{-1, ios_base::beg}, Row{-5, ios_base::cur}, Row{-11, ios_base::end},
                           Row{std::numeric_limits<long>::max(), ios_base::cur},
                           Row{std::numeric_limits<long>::min(), ios_base::end}}) {
        EXPECT_EQ(
            streamFailureOf<ByteStreamSeekFailure>([&] { stream->seek(row.offset, row.way); }),
            ErrorCode::InvalidLocation);
    }
    EXPECT_EQ(stream->seek(0, ios_base::cur), 4);
}

TEST(MemoryStream, AHoleReadsAsZerosAndCostsNothing) {
    Store store({.maximumBytes = 8, .maximumEntries = std::nullopt});
    auto const stream = store->openStream(at(u"/file"), readWrite());
    stream->write("ab", 2);
    constexpr long far = 1L << 40;
    EXPECT_EQ(stream->seek(far, ios_base::beg), far);
    stream->write("cd", 2);
    EXPECT_EQ(store->getFileAttributes(at(u"/file")).values().size, far + 2U);
    std::string buffer(8, 'x');
    stream->seek(0, ios_base::beg);
    stream->read(buffer.data(), 8);
    EXPECT_EQ(buffer, std::string("ab\0\0\0\0\0\0", 8));
    stream->seek(far - 3, ios_base::beg);
    EXPECT_EQ(stream->read(buffer.data(), 8), 5);
    EXPECT_EQ(buffer.substr(0, 5), std::string("\0\0\0cd", 5));
}

TEST(MemoryStream, AHoleWithinABlockReadsAsZeros) {
    Store store;
    auto const stream = store->openStream(at(u"/file"), readWrite());
    stream->seek(100, ios_base::beg);
    stream->write("a", 1);
    stream->seek(5000, ios_base::beg);
    stream->write("b", 1);
    std::string expected(5001, '\0');
    expected[100] = 'a';
    expected[5000] = 'b';
    EXPECT_EQ(Store::contentOf(*stream), expected);
}

TEST(MemoryStream, AFileThatWouldBecomeTooLargeIsRefused) {
    Store store;
    auto const stream = store->openStream(at(u"/file"), readWrite());
    stream->seek(std::numeric_limits<long>::max() - 1, ios_base::beg);
    EXPECT_EQ(streamFailureOf<ByteStreamWriteFailure>([&] { stream->write("abc", 3); }),
              ErrorCode::FileTooLarge);
    EXPECT_EQ(store->getFileAttributes(at(u"/file")).values().size, 0U);
}

TEST(MemoryStream, OpensAsTheOptionsSay) {
    struct Row {
        ByteStreamOpenOptions options;
        char const* afterwards; // "0123" with "ab" written
    };
    using enum ByteStreamAccess;
    using enum ByteStreamCreation;
    for (Row const& row :
         {Row{{WriteOnly, OpenExisting, 1, 1}, "ab23"}, Row{{WriteOnly, OpenOrCreate, 0, 1}, "ab"},
          Row{{WriteOnly, OpenOrCreate, 1, 0}, "0123ab"},
          Row{{ReadWrite, OpenOrCreate, 0, 0}, "ab"}}) {
        Store store;
        store.put(u"/file", "0123");
        auto const stream = store->openStream(at(u"/file"), row.options);
        stream->write("ab", 2);
        stream->close();
        EXPECT_EQ(store.get(u"/file"), row.afterwards);
    }
}

TEST(MemoryStream, AppendsToTheEndWhereverThePositionIs) {
    Store store;
    store.put(u"/file", "0123");
    auto const one = store->openStream(at(u"/file"), appending());
    auto const other = store->openStream(at(u"/file"), appending());
    one->write("a", 1);
    other->write("b", 1);
    one->seek(0, ios_base::beg);
    one->write("", 0);
    EXPECT_EQ(one->seek(0, ios_base::cur), 0);
    one->write("c", 1);
    EXPECT_EQ(one->seek(0, ios_base::cur), 7);
    EXPECT_EQ(store.get(u"/file"), "0123abc");
}

TEST(MemoryStream, WritingToAReadOnlyStreamPoisonsIt) {
    Store store;
    store.put(u"/file", "0123");
    auto const stream = store->openReadOnlyStream(at(u"/file"));
    char c = 0;
    EXPECT_EQ(streamFailureOf<ByteStreamWriteFailure>([&] { stream->write("a", 1); }),
              ErrorCode::PermissionDenied);
    EXPECT_EQ(streamFailureOf<ByteStreamReadFailure>([&] { stream->read(&c, 1); }),
              ErrorCode::PermissionDenied);
    EXPECT_EQ(streamFailureOf<ByteStreamSeekFailure>([&] { stream->seek(0, ios_base::beg); }),
              ErrorCode::PermissionDenied);
    EXPECT_EQ(streamFailureOf<ByteStreamCloseFailure>([&] { stream->close(); }),
              ErrorCode::PermissionDenied);
}

TEST(MemoryStream, ReadingAWriteOnlyStreamFailsAndLosesNothing) {
    Store store;
    auto const stream = store->openStream(at(u"/file"), {});
    char c = 0;
    EXPECT_EQ(streamFailureOf<ByteStreamReadFailure>([&] { stream->read(&c, 1); }),
              ErrorCode::PermissionDenied);
    stream->write("a", 1);
    stream->close();
    EXPECT_EQ(store.get(u"/file"), "a");
}

TEST(MemoryStream, IsOfNoMoreUseOnceClosed) {
    Store store;
    auto const stream = store->openStream(at(u"/file"), readWrite());
    stream->close();
    char c = 0;
    EXPECT_THROW(stream->close(), ByteStreamCloseFailure);
    EXPECT_THROW(stream->read(&c, 1), ByteStreamReadFailure);
    EXPECT_THROW(stream->write(&c, 1), ByteStreamWriteFailure);
    EXPECT_THROW(stream->seek(0, ios_base::beg), ByteStreamSeekFailure);
}

TEST(MemoryStream, NegativeCountsAreRefused) {
    Store store;
    auto const stream = store->openStream(at(u"/file"), readWrite());
    char c = 0;
    EXPECT_THROW(stream->read(&c, -1), ByteStreamReadFailure);
    EXPECT_THROW(stream->write(&c, -1), ByteStreamWriteFailure);
}

TEST(MemoryStream, KeepsWorkingOnAFileThatWasRemoved) {
    Store store;
    store.put(u"/file", "old");
    auto const stream = store->openStream(at(u"/file"), appending());
    store->removeFile(at(u"/file"));
    store.put(u"/file", "new");
    stream->write("er", 2);
    EXPECT_EQ(Store::contentOf(*stream), "older");
    EXPECT_EQ(store.get(u"/file"), "new");
}

TEST(MemoryStream, KeepsWorkingWhenTheProviderIsGone) {
    std::unique_ptr<ByteStream> stream;
    {
        Store store;
        store.put(u"/file", "content");
        stream = store->openStream(at(u"/file"), appending());
    }
    stream->write("!", 1);
    EXPECT_EQ(Store::contentOf(*stream), "content!");
}

TEST(MemoryStream, ACopyAndItsSourceGoTheirOwnWays) {
    Store store;
    std::string const bytes = pattern(static_cast<std::size_t>(2 * block + 100));
    store.put(u"/file", bytes);
    store.copy(u"/file", u"/copy");
    auto const original = store->openStream(at(u"/file"), readWrite());
    original->seek(block + 5, ios_base::beg);
    original->write("changed", 7);
    auto const copy = store->openStream(at(u"/copy"), appending());
    copy->write("longer", 6);

    std::string changed = bytes;
    changed.replace(static_cast<std::size_t>(block + 5), 7, "changed");
    EXPECT_TRUE(store.get(u"/file") == changed);
    EXPECT_TRUE(store.get(u"/copy") == bytes + "longer");
}

TEST(MemoryReplacement, StandsUnderItsNameOnlyWhenItIsComplete) {
    Store store;
    store.put(u"/file", "old");
    auto const stream = store->openReplacement(at(u"/file"), ReplacementPolicy::ReplaceExisting);
    stream->write("new", 3);
    EXPECT_EQ(store.get(u"/file"), "old");
    stream->close();
    EXPECT_EQ(store.get(u"/file"), "new");
    EXPECT_THROW(stream->close(), ByteStreamCloseFailure);
}

TEST(MemoryReplacement, LeavesNoTraceWithoutClose) {
    Store store({.maximumBytes = 10, .maximumEntries = 1});
    store->openReplacement(at(u"/file"), ReplacementPolicy::FailIfExists)->write("0123456789", 10);
    EXPECT_FALSE(store.isThere(u"/file"));
    store.put(u"/file", "0123456789");
}

TEST(MemoryReplacement, ChecksThePolicyAtOnceAndAgainWhenPublishing) {
    Store store;
    auto const stream = store->openReplacement(at(u"/file"), ReplacementPolicy::FailIfExists);
    stream->write("mine", 4);
    store.put(u"/file", "theirs");
    EXPECT_EQ(
        failureOf([&] { store->openReplacement(at(u"/file"), ReplacementPolicy::KeepExisting); }),
        failure(ErrorCode::ResourceAlreadyExists, u"/file"));
    EXPECT_EQ(streamFailureOf<ByteStreamCloseFailure>([&] { stream->close(); }),
              ErrorCode::ResourceAlreadyExists);
    EXPECT_EQ(store.get(u"/file"), "theirs");
    store->removeFile(at(u"/file"));
    stream->close(); // tried again
    EXPECT_EQ(store.get(u"/file"), "mine");
}

TEST(MemoryReplacement, KeepsTheModeOfTheFileThatItReplaces) {
    Store store;
    store.put(u"/file", "old");
    auto const stream = store->openReplacement(at(u"/file"), ReplacementPolicy::ReplaceExisting);
    store->setWritable(at(u"/file"), false);
    EXPECT_EQ(streamFailureOf<ByteStreamCloseFailure>([&] { stream->close(); }),
              ErrorCode::PermissionDenied);
    store->setWritable(at(u"/file"), true);
    stream->close();
    EXPECT_EQ(store->getExtendedAttributes(at(u"/file")).at("posix.mode"), "0644");
}

TEST(MemoryReplacement, TakesThePlaceOfALinkAndNotOfWhatItLeadsTo) {
    Store store;
    store.put(u"/target", "kept");
    store->createLink(at(u"/link"), u"target");
    store->openReplacement(at(u"/link"), ReplacementPolicy::ReplaceExisting)->close();
    EXPECT_EQ(store->existsExtended(at(u"/link")), ExtendedExistsResult::File);
    EXPECT_EQ(store.get(u"/target"), "kept");
}

TEST(MemoryReplacement, GoesWithItsFolderWhenThatIsMoved) {
    Store store;
    store->createFolder(at(u"/folder"));
    auto const stream =
        store->openReplacement(at(u"/folder/file"), ReplacementPolicy::FailIfExists);
    store->moveFolder(at(u"/folder"), at(u"/moved"), ReplacementPolicy::FailIfExists);
    stream->close();
    EXPECT_TRUE(store.isThere(u"/moved/file"));
}

TEST(MemoryReplacement, FailsWhereItsFolderIsGone) {
    Store store;
    store->createFolderRecursive(at(u"/a/folder"));
    auto const stream =
        store->openReplacement(at(u"/a/folder/file"), ReplacementPolicy::FailIfExists);
    store->removeFolder(at(u"/a/folder"));
    store->createFolder(at(u"/a/folder"));
    EXPECT_EQ(streamFailureOf<ByteStreamCloseFailure>([&] { stream->close(); }),
              ErrorCode::ResourceNotFound);
    EXPECT_FALSE(store.isThere(u"/a/folder/file"));
}

} // namespace
