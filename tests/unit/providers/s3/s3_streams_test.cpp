// What is read and written through streams, and what it costs.

#include "provider_fixture.hpp"

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/s3/detail/object_time.hpp>

namespace foundation::storage::provider::s3 {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class S3Streams : public ProviderOfBucket {
  protected:
    static constexpr std::size_t mebibyte = std::size_t{1024} * 1024;

    void SetUp() override {
        S3Options small = options();
        small.partSize = 5 * mebibyte;
        use(small);
    }
    std::unique_ptr<ByteStream> openToAppend(ustring const& path) const {
        return provider_->openStream(
            at(path), {ByteStreamAccess::WriteOnly, ByteStreamCreation::OpenOrCreate, 1, 0});
    }
    std::unique_ptr<ByteStream> openToChange(ustring const& path) const {
        return provider_->openStream(
            at(path), {ByteStreamAccess::ReadWrite, ByteStreamCreation::OpenExisting, 1, 1});
    }
    static void write(ByteStream& stream, std::string const& bytes) {
        stream.write(bytes.data(), static_cast<long>(bytes.size()));
    }
};

TEST_F(S3Streams, ASmallFileTakesOneRequest) {
    put("a", http::test::content(60'000));
    EXPECT_EQ(asked([&] { EXPECT_EQ(read(u"a"), http::test::content(60'000)); }), "GET");
}

TEST_F(S3Streams, ALargeFileIsReadInGrowingParts) {
    std::string const bytes = http::test::content(12 * mebibyte + 17);
    put("a", bytes);
    for (std::size_t const piece : {std::size_t{4096}, std::size_t{131'072}, 3 * mebibyte}) {
        std::size_t const requests = countAsked("GET", [&] {
            EXPECT_TRUE(readAll(*provider_->openReadOnlyStream(at(u"a")), piece) == bytes);
        });
        EXPECT_LE(requests, 45U) << piece;
    }
}

TEST_F(S3Streams, OneRequestAtATimeIsForAWholePart) {
    S3Options one = options();
    one.concurrency = 1;
    use(one);
    put("a", http::test::content(40 * mebibyte));
    EXPECT_LE(countAsked("GET", [&] { EXPECT_EQ(read(u"a").size(), 40 * mebibyte); }), 14U);
}

TEST_F(S3Streams, JumpsReadWhatIsThere) {
    std::string const bytes = http::test::content(4 * mebibyte);
    put("a", bytes);
    auto const stream = provider_->openReadOnlyStream(at(u"a"));
    std::string buffer(1000, '\0');
    for (std::size_t const offset : {3 * mebibyte, std::size_t{10}, 2 * mebibyte,
                                     2 * mebibyte + 5000, 4 * mebibyte - 500, std::size_t{0}}) {
        stream->seek(static_cast<long>(offset), std::ios_base::beg);
        long const got = stream->read(buffer.data(), 1000);
        ASSERT_EQ(got, static_cast<long>(std::min<std::size_t>(1000, bytes.size() - offset)));
        EXPECT_EQ(buffer.substr(0, static_cast<std::size_t>(got)),
                  bytes.substr(offset, static_cast<std::size_t>(got)));
    }
}

TEST_F(S3Streams, AFewBytesAtTheEndTakeTwoRequests) {
    put("a", http::test::content(4 * mebibyte));
    EXPECT_EQ(asked([&] {
                  auto const stream = provider_->openReadOnlyStream(at(u"a"));
                  stream->seek(-22, std::ios_base::end);
                  EXPECT_EQ(readAll(*stream), http::test::content(4 * mebibyte, 4 * mebibyte - 22));
              }),
              "GET GET");
}

TEST_F(S3Streams, AnObjectThatChangesIsAFailingRead) {
    put("a", std::string(mebibyte, 'a'));
    auto const stream = provider_->openReadOnlyStream(at(u"a"));
    put("a", std::string(mebibyte, 'b'));
    stream->seek(500'000, std::ios_base::beg);
    char byte = 0;
    try {
        stream->read(&byte, 1);
        FAIL() << "read " << byte;
    } catch (ByteStreamReadFailure const& failure) {
        EXPECT_EQ(failure.getErrorCode(), ErrorCode::IOError);
    }
    EXPECT_THROW(stream->close(), ByteStreamCloseFailure);
}

TEST_F(S3Streams, ALargeFileIsSentInParts) {
    std::string const bytes = http::test::content(12 * mebibyte);
    EXPECT_EQ(countAsked("PUT", [&] { ProviderOfBucket::write(u"a", bytes); }), 3U);
    EXPECT_TRUE(read(u"a") == bytes);
    EXPECT_EQ(uploadsIn(*bucket_), 0U);
}

TEST_F(S3Streams, ADroppedStreamLeavesNothing) {
    {
        auto const stream = provider_->openReplacement(at(u"a"), ReplacementPolicy::FailIfExists);
        write(*stream, std::string(11 * mebibyte, 'x'));
        EXPECT_EQ(uploadsIn(*bucket_), 1U);
    }
    EXPECT_EQ(uploadsIn(*bucket_), 0U);
    EXPECT_THAT(keys(), IsEmpty());
}

TEST_F(S3Streams, WhatIsSentCannotBeWrittenAgain) {
    auto const stream = provider_->openReplacement(at(u"a"), ReplacementPolicy::FailIfExists);
    write(*stream, std::string(6 * mebibyte, 'x'));
    stream->seek(0, std::ios_base::beg);
    try {
        write(*stream, "y");
        FAIL();
    } catch (ByteStreamWriteFailure const& failure) {
        EXPECT_EQ(failure.getErrorCode(), ErrorCode::UnsupportedOperation);
    }
    EXPECT_THROW(stream->close(), ByteStreamCloseFailure);
    EXPECT_EQ(provider_->exists(at(u"a")), ExistsResult::Nothing);
}

TEST_F(S3Streams, AnAppendToALargeFileLeavesItsBytesInTheStore) {
    std::string const bytes = http::test::content(6 * mebibyte);
    put("a", bytes);
    auto const stream = openToAppend(u"a");
    EXPECT_EQ(countAsked("GET",
                         [&] {
                             write(*stream, "end");
                             stream->close();
                         }),
              0U);
    EXPECT_TRUE(read(u"a") == bytes + "end");
}

TEST_F(S3Streams, AppendsOfSeveralStreamsComeOneBehindTheOther) {
    put("a", "old ");
    auto const one = openToAppend(u"a");
    auto const two = openToAppend(u"a");
    write(*one, "one ");
    write(*two, "two ");
    two->close();
    one->close();
    EXPECT_EQ(read(u"a"), "old two one ");
}

TEST_F(S3Streams, AChangeInPlaceKeepsTheRest) {
    std::string bytes = http::test::content(6 * mebibyte);
    put("a", bytes);
    auto const stream = openToChange(u"a");
    stream->seek(5 * mebibyte, std::ios_base::beg);
    write(*stream, "changed");
    stream->close();
    bytes.replace(5 * mebibyte, 7, "changed");
    EXPECT_TRUE(read(u"a") == bytes);
}

TEST_F(S3Streams, AChangeInPlaceIsRefusedWhereSomebodyElseChangedTheFile) {
    put("a", "old");
    auto const stream = openToChange(u"a");
    write(*stream, "mine");
    put("a", "theirs");
    try {
        stream->close();
        FAIL();
    } catch (ByteStreamCloseFailure const& failure) {
        EXPECT_EQ(failure.getErrorCode(), ErrorCode::ResourceInUse);
    }
    EXPECT_EQ(read(u"a"), "theirs");
}

TEST_F(S3Streams, WhatIsOnlyReadIsNotWrittenBack) {
    put("a", "bytes");
    auto const stream = openToChange(u"a");
    EXPECT_EQ(readAll(*stream), "bytes");
    EXPECT_EQ(asked([&] { stream->close(); }), "");
}

TEST_F(S3Streams, AReplacementTakesATime) {
    for (std::size_t const size : {std::size_t{5}, 6 * mebibyte}) {
        auto const stream =
            provider_->openReplacement(at(u"a"), ReplacementPolicy::ReplaceExisting);
        dynamic_cast<extensions::INewFileAttributes&>(*stream).setNewFileAttributes(
            {0644, Timestamp{1'000'000'000, 500}});
        write(*stream, std::string(size, 'x'));
        stream->close();
        EXPECT_EQ(provider_->getFileAttributes(at(u"a")).values().lastModified,
                  (Timestamp{1'000'000'000, 500}));
    }
}

TEST(UploadParts, AreEnoughForAnyObjectAndFitIntoMemory) {
    using detail::Upload;
    constexpr std::uint64_t mebibyte = std::uint64_t{1024} * 1024;
    for (std::uint64_t const usual : {5 * mebibyte, 8 * mebibyte, 64 * mebibyte, 5120 * mebibyte}) {
        std::uint64_t all = 0;
        for (unsigned parts = 0; parts < Upload::mostParts; ++parts) {
            std::uint64_t const size = Upload::partSizeBehind(parts, usual);
            ASSERT_GE(size, usual);
            ASSERT_LE(size, std::max(usual, 1024 * mebibyte));
            ASSERT_TRUE(parts >= 1000 || size == usual) << "some stores want parts of one size";
            all += size;
        }
        EXPECT_GE(all, 5 * mebibyte * mebibyte) << usual;
    }
}

TEST(ObjectTime, IsDecimalSeconds) {
    using namespace detail;
    EXPECT_EQ(timeText({1'700'000'000, 0}), "1700000000");
    EXPECT_EQ(timeText({1'700'000'000, 120'000'000}), "1700000000.120000000");
    EXPECT_EQ(timeText({-1, 500'000'000}), "-0.500000000");
    EXPECT_EQ(timeText({-86'400, 0}), "-86400");
    for (Timestamp const time :
         {Timestamp{0, 0}, {0, 1}, {-1, 999'999'999}, {-2, 1}, {4'000'000'000, 5}}) {
        EXPECT_EQ(parseTimeText(timeText(time)), time);
    }
    EXPECT_EQ(parseTimeText("1700000000.5"), (Timestamp{1'700'000'000, 500'000'000}));
    for (char const* text : {"", "x", "1x", "1.x", ".5", "99999999999999999999"}) {
        EXPECT_EQ(parseTimeText(text), std::nullopt) << text;
    }
}

} // namespace
} // namespace foundation::storage::provider::s3
