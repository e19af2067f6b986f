// Objects that are opened from their end, and further streams of the same version.

#include "provider_fixture.hpp"

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/extensions/i_end_first_streams.hpp>
#include <foundation/storage/provider/extensions/i_pinned_stream.hpp>

#include <atomic>
#include <thread>

namespace foundation::storage::provider::s3 {
namespace {

using http::test::content;

class S3EndFirst : public ProviderOfBucket {
  protected:
    std::unique_ptr<ByteStream> open(ustring const& path) const {
        return dynamic_cast<extensions::IEndFirstStreams&>(*provider_).openEndFirst(at(path));
    }
    static std::unique_ptr<ByteStream> another(ByteStream const& stream) {
        return dynamic_cast<extensions::IPinnedStream const&>(stream).openAnother();
    }
    static std::string bytesAt(ByteStream& stream, std::size_t position, std::size_t count) {
        std::string bytes(count, '\0');
        stream.seek(static_cast<long>(position), std::ios_base::beg);
        long const got = stream.read(bytes.data(), static_cast<long>(count));
        bytes.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
        return bytes;
    }
    static constexpr std::size_t large = 4'000'000;
    static constexpr std::size_t endSize = std::size_t{128} * 1024;
};

TEST_F(S3EndFirst, TheLastBytesComeWithTheOpening) {
    put("a", content(large));
    std::unique_ptr<ByteStream> stream;
    EXPECT_EQ(asked([&] {
                  stream = open(u"a");
                  EXPECT_EQ(stream->seek(0, std::ios_base::cur), 0);
                  EXPECT_EQ(stream->seek(0, std::ios_base::end), static_cast<long>(large));
                  EXPECT_EQ(bytesAt(*stream, large - endSize, endSize + 10),
                            content(large, large - endSize));
              }),
              "GET");
    EXPECT_EQ(server_.countOf("range: bytes=-131072\t"), 1U);
    EXPECT_EQ(asked([&] { EXPECT_EQ(bytesAt(*stream, 5, 100), content(105, 5)); }), "GET");
}

TEST_F(S3EndFirst, ASmallObjectTakesOneRequestInAll) {
    for (std::size_t const size : {std::size_t{1}, std::size_t{100}, endSize - 1, endSize}) {
        put("a", content(size));
        EXPECT_EQ(asked([&] { EXPECT_EQ(readAll(*open(u"a")), content(size)) << size; }), "GET");
    }
}

TEST_F(S3EndFirst, IsReadFromTheStartAsAnyOther) {
    for (std::size_t const size : {endSize + 1, endSize + 65'537, large}) {
        put("a", content(size));
        for (std::size_t const piece : {std::size_t{4096}, std::size_t{1'000'000}}) {
            EXPECT_TRUE(readAll(*open(u"a"), piece) == content(size)) << size << ' ' << piece;
        }
    }
    // What is there is not asked for again, also where much is asked for ahead.
    EXPECT_EQ(server_.countOf("-3999999\t"), 0U);
    EXPECT_GT(server_.countOf("-3868927\t"), 0U);
}

TEST_F(S3EndFirst, AnEmptyOneIsEmpty) {
    put("a", "");
    std::unique_ptr<ByteStream> stream;
    EXPECT_EQ(asked([&] { stream = open(u"a"); }), "GET HEAD"); // as it has no range at all
    EXPECT_EQ(stream->seek(0, std::ios_base::end), 0);
    EXPECT_EQ(readAll(*stream), "");
    EXPECT_EQ(readAll(*another(*stream)), "");
}

TEST_F(S3EndFirst, WhatIsNoFileIsRefusedWhenItIsOpened) {
    put("f/a");
    EXPECT_EQ(codeOf([&] { open(u"missing"); }), refused(ErrorCode::ResourceNotFound));
    EXPECT_EQ(codeOf([&] { open(u"f"); }), refused(ErrorCode::InvalidLocation));
    EXPECT_EQ(codeOf([&] { open(u""); }), refused(ErrorCode::InvalidLocation));
}

TEST_F(S3EndFirst, StoresThatDoNotKnowSuchRangesAreAskedForTheStart) {
    for (std::string const behaviour :
         {"ignores-ends", "refuses-ends", "takes-ends-for-nonsense", "has-no-ends-yet",
          "takes-ends-for-starts", "gives-all-for-ends", "gives-all-for-ends-and-no-size"}) {
        use(options(), behaviour);
        put("a", content(large));
        StorageIRI const location(fl::i18n::to_ustring("s3://" + behaviour + "/a"));
        auto const opened = [&] {
            return dynamic_cast<extensions::IEndFirstStreams&>(*provider_).openEndFirst(location);
        };
        EXPECT_TRUE(readAll(*opened()) == content(large)) << behaviour;
        EXPECT_EQ(bytesAt(*opened(), large - 9, 99), content(large, large - 9)) << behaviour;
        EXPECT_EQ(codeOf([&] {
                      dynamic_cast<extensions::IEndFirstStreams&>(*provider_)
                          .openEndFirst(
                              StorageIRI(fl::i18n::to_ustring("s3://" + behaviour + "/b")));
                  }),
                  refused(ErrorCode::ResourceNotFound))
            << behaviour;
    }
}

TEST_F(S3EndFirst, StoresThatDoNotKnowSuchRangesTakeOneRequestMore) {
    struct Row {
        std::string behaviour;
        std::string asked;
    };
    for (Row const& row :
         {Row{"ignores-ends", "GET GET"}, Row{"takes-ends-for-nonsense", "GET GET"},
          Row{"takes-ends-for-starts", "GET GET"}, Row{"refuses-ends", "GET HEAD GET"}}) {
        use(options(), row.behaviour);
        put("a", content(large));
        EXPECT_EQ(asked([&] {
                      dynamic_cast<extensions::IEndFirstStreams&>(*provider_)
                          .openEndFirst(
                              StorageIRI(fl::i18n::to_ustring("s3://" + row.behaviour + "/a")));
                  }),
                  row.asked)
            << row.behaviour;
    }
}

TEST_F(S3EndFirst, AnotherStreamIsOpenedWithoutARequest) {
    put("a", content(large));
    auto const first = open(u"a");
    std::unique_ptr<ByteStream> second;
    EXPECT_EQ(asked([&] {
                  second = another(*first);
                  EXPECT_EQ(second->seek(0, std::ios_base::cur), 0);
                  EXPECT_EQ(bytesAt(*second, large - 100, 200), content(large, large - 100));
              }),
              "");
    EXPECT_EQ(asked([&] { EXPECT_EQ(bytesAt(*second, 7, 50), content(57, 7)); }), "GET");
    // It stands for itself.
    EXPECT_EQ(first->seek(0, std::ios_base::cur), 0);
    first->close();
    EXPECT_TRUE(readAll(*another(*second)) == content(large));
}

TEST_F(S3EndFirst, AnotherOneOfAStreamFromTheStartHasItsStart) {
    put("a", content(large));
    auto const first = provider_->openReadOnlyStream(at(u"a"));
    EXPECT_EQ(asked([&] { EXPECT_EQ(bytesAt(*another(*first), 3, 500), content(503, 3)); }), "");
}

TEST_F(S3EndFirst, AnotherOneIsOfTheSameVersion) {
    put("a", content(large));
    auto const first = open(u"a");
    put("a", content(large, 1));
    auto const second = another(*first);
    EXPECT_EQ(bytesAt(*second, large - 10, 10), content(large, large - 10)); // it has that
    try {
        bytesAt(*second, 0, 10);
        FAIL() << "bytes of another version";
    } catch (ByteStreamReadFailure const& failure) {
        EXPECT_EQ(failure.getErrorCode(), ErrorCode::IOError);
    }
    EXPECT_TRUE(dynamic_cast<extensions::IPinnedStream const&>(*second).isOutdated());
    EXPECT_FALSE(dynamic_cast<extensions::IPinnedStream const&>(*first).isOutdated());
}

TEST_F(S3EndFirst, ManyReadAtOnce) {
    std::string const bytes = content(large);
    put("a", bytes);
    auto const first = open(u"a");
    std::vector<std::thread> readers;
    std::atomic<int> wrong = 0;
    for (unsigned reader = 0; reader < 4; ++reader) {
        readers.emplace_back([&, reader] {
            for (std::size_t i = 0; i < 20; ++i) {
                std::size_t const position = (reader * 1'000'003 + i * 377'777) % (large - 1000);
                wrong += bytesAt(*another(*first), position, 1000) != bytes.substr(position, 1000);
            }
        });
    }
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(wrong, 0);
}

} // namespace
} // namespace foundation::storage::provider::s3
