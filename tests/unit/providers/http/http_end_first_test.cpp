// Files that are opened from their end, and further streams of the same version.

#include "http_fixture.hpp"

#include <foundation/storage/provider/extensions/i_end_first_streams.hpp>
#include <foundation/storage/provider/extensions/i_pinned_stream.hpp>

#include <atomic>
#include <thread>
#include <vector>

namespace foundation::storage::provider::http::test {
namespace {

/// Twice the first range.
constexpr std::size_t endSize = 2000;

class HttpEndFirst : public Http {
  protected:
    std::unique_ptr<ByteStream> openEndFirst(std::string const& path) const {
        auto const provider = this->provider();
        return dynamic_cast<extensions::IEndFirstStreams&>(*provider).openEndFirst(at(path));
    }
    static std::unique_ptr<ByteStream> another(ByteStream const& stream) {
        return dynamic_cast<extensions::IPinnedStream const&>(stream).openAnother();
    }
    static bool isOutdated(ByteStream const& stream) {
        return dynamic_cast<extensions::IPinnedStream const&>(stream).isOutdated();
    }
    static std::string allOf(ByteStream& stream) {
        std::string bytes;
        char buffer[777];
        for (long got = 0; (got = stream.read(buffer, sizeof buffer)) > 0;) {
            bytes.append(buffer, static_cast<std::size_t>(got));
        }
        return bytes;
    }
    /// What a read throws, else the bytes.
    static std::string outcomeOf(ByteStream& stream, long position, std::size_t count) try {
        return readAt(stream, position, count);
    } catch (ByteStreamReadFailure const& failure) {
        return "code " + std::to_string(static_cast<int>(failure.getErrorCode()));
    }
    std::size_t asked() const { return server_.requests().size(); }
};

TEST_F(HttpEndFirst, ReadsTheSameBytesInEveryWayInWhichServersSendThem) {
    for (std::string const behaviour :
         {"good", "dated", "unmarked", "weak", "whole", "in-chunks", "hints-first", "ignores-ends",
          "redirected-until-it-expires", "short", "reset-at-every-tenth-byte",
          "stalls-in-the-first-body"}) {
        bool const isSlow = behaviour.starts_with("reset");
        for (std::size_t const size : {1, 999, 1999, 2000, 2001, 30'000}) {
            if (isSlow && size > 999) {
                continue;
            }
            std::string const path = '/' + behaviour + '/' + std::to_string(size);
            auto const provider = buildHttpProvider(at("/"), impatientOptions());
            auto const stream =
                dynamic_cast<extensions::IEndFirstStreams&>(*provider).openEndFirst(at(path));
            std::size_t const some = std::min<std::size_t>(size, 100);
            EXPECT_EQ(stream->seek(-static_cast<long>(some), std::ios_base::end),
                      static_cast<long>(size - some));
            EXPECT_EQ(allOf(*stream), content(size, size - some)) << path;
            stream->seek(0, std::ios_base::beg);
            EXPECT_EQ(allOf(*stream), content(size)) << path;
            EXPECT_EQ(allOf(*another(*stream)), content(size)) << path;
        }
    }
}

TEST_F(HttpEndFirst, ReadsWhatHasNoEndThatIsTold) {
    for (std::string const behaviour :
         {"whole-without-length", "whole-in-chunks", "of-unknown-size"}) {
        for (std::size_t const size : {0, 1, 30'000}) {
            auto const stream = openEndFirst('/' + behaviour + '/' + std::to_string(size));
            EXPECT_EQ(allOf(*stream), content(size)) << behaviour << ' ' << size;
            EXPECT_EQ(allOf(*another(*stream)), content(size)) << behaviour << ' ' << size;
        }
    }
}

TEST_F(HttpEndFirst, TheLastBytesComeWithTheOpening) {
    auto const stream = openEndFirst("/good/300000");
    EXPECT_EQ(stream->seek(0, std::ios_base::cur), 0);
    EXPECT_EQ(stream->seek(0, std::ios_base::end), 300'000);
    EXPECT_EQ(readAt(*stream, 298'000, 5000), content(300'000, 298'000));
    EXPECT_EQ(asked(), 1U);
    EXPECT_EQ(server_.countOf("range: bytes=-2000\t"), 1U);
    EXPECT_EQ(readAt(*stream, 10, 50), content(60, 10));
    EXPECT_EQ(asked(), 2U);
}

TEST_F(HttpEndFirst, WhatIsThereIsNotAskedForAgain) {
    HttpOptions greedy = quickOptions();
    greedy.largestRange = 3000;
    auto const provider = this->provider(greedy);
    auto const stream =
        dynamic_cast<extensions::IEndFirstStreams&>(*provider).openEndFirst(at("/good/300000"));
    EXPECT_EQ(allOf(*stream), content(300'000));
    EXPECT_EQ(server_.countOf("range: bytes=0-999\t"), 1U);
    EXPECT_EQ(server_.countOf("range: bytes=1000-297999\t"), 1U);
    EXPECT_EQ(asked(), 3U);
}

TEST_F(HttpEndFirst, ASmallFileTakesOneRequestInAll) {
    for (std::string const behaviour : {"good", "whole", "ignores-ends"}) {
        std::size_t const before = asked();
        auto const stream = openEndFirst('/' + behaviour + "/2000");
        EXPECT_EQ(allOf(*stream), content(endSize));
        EXPECT_EQ(allOf(*another(*stream)), content(endSize));
        EXPECT_EQ(asked() - before, 1U) << behaviour;
    }
}

TEST_F(HttpEndFirst, AServerWithoutRangesIsReadOnceToTheEnd) {
    auto const stream = openEndFirst("/whole/50000");
    EXPECT_EQ(readAt(*stream, 49'000, 1000), content(50'000, 49'000));
    EXPECT_EQ(asked(), 1U);
}

TEST_F(HttpEndFirst, OneThatKnowsOtherRangesIsAskedForThese) {
    auto const stream = openEndFirst("/ignores-ends/90000");
    EXPECT_EQ(readAt(*stream, 89'000, 1000), content(90'000, 89'000));
    EXPECT_EQ(server_.countOf("range: bytes=89000-89999\t"), 1U);
    for (std::string const status : {"400", "416", "501"}) {
        auto const refused = openEndFirst("/refuses-ends/90000?" + status);
        EXPECT_EQ(server_.countOf("?" + status + "\trange"), 0U);
        EXPECT_EQ(readAt(*refused, 89'000, 1000), content(90'000, 89'000)) << status;
        EXPECT_EQ(allOf(*another(*refused)), content(90'000)) << status;
    }
}

TEST_F(HttpEndFirst, OneThatTakesThisRangeForAnotherIsAskedForTheStart) {
    for (std::string const behaviour : {"takes-ends-for-starts", "takes-ends-for-everything",
                                        "ignores-ends-in-chunks", "ignores-ends-until-it-closes"}) {
        for (std::size_t const size : {1, 1999, 2000, 2001, 90'000}) {
            std::size_t const before = asked();
            auto const stream = openEndFirst('/' + behaviour + '/' + std::to_string(size));
            EXPECT_LE(asked() - before, 3U) << behaviour << ' ' << size;
            EXPECT_EQ(stream->seek(-1, std::ios_base::end), static_cast<long>(size - 1))
                << behaviour << ' ' << size;
            EXPECT_EQ(allOf(*stream), content(size, size - 1)) << behaviour << ' ' << size;
            EXPECT_EQ(allOf(*another(*stream)), content(size)) << behaviour << ' ' << size;
        }
    }
}

TEST_F(HttpEndFirst, NoMoreIsKeptOfTheEndWhateverIsAskedForFirst) {
    HttpOptions greedy = quickOptions();
    for (std::uint64_t const range :
         {std::uint64_t{1} << 30, std::uint64_t{1} << 63, ~std::uint64_t{0}}) {
        greedy.firstRange = range;
        auto const provider = this->provider(greedy);
        auto const stream =
            dynamic_cast<extensions::IEndFirstStreams&>(*provider).openEndFirst(at("/good/300000"));
        EXPECT_EQ(readAt(*stream, 299'000, 1000), content(300'000, 299'000));
    }
    EXPECT_EQ(server_.countOf("range: bytes=-131072\t"), 3U);
    EXPECT_EQ(asked(), 3U);
}

TEST_F(HttpEndFirst, AnEmptyFileTakesOneRequestToo) {
    for (std::string const behaviour : {"good", "whole", "of-unknown-size"}) {
        std::size_t const before = asked();
        auto const stream = openEndFirst('/' + behaviour + "/0");
        EXPECT_EQ(stream->seek(0, std::ios_base::end), 0) << behaviour;
        EXPECT_EQ(allOf(*stream), "") << behaviour;
        EXPECT_EQ(asked() - before, 1U) << behaviour;
    }
}

TEST_F(HttpEndFirst, FailsWhenItIsOpenedWhereThereIsNothingToRead) {
    EXPECT_EQ(codeOf([&] { openEndFirst("/missing"); }), 4);
    EXPECT_EQ(codeOf([&] { openEndFirst("/status/401"); }), 2);
    EXPECT_EQ(codeOf([&] { openEndFirst("/status/400"); }), 9);
    EXPECT_EQ(codeOf([&] { openEndFirst("/refused-range/1000"); }), 9);
}

TEST_F(HttpEndFirst, TakesNoAnswerThatIsNotTheEndAskedFor) {
    for (std::string const behaviour :
         {"shifted-range", "longer-than-its-range", "range-unsaid", "range-of-nonsense",
          "extra-bytes", "extra-bytes-in-one-piece", "several-parts", "two-ranges",
          "nothing-but-heads", "smaller-ranges-than-the-end"}) {
        EXPECT_EQ(codeOf([&] { openEndFirst('/' + behaviour + "/5000"); }), 9) << behaviour;
    }
}

TEST_F(HttpEndFirst, AnotherStreamIsOpenedWithoutARequest) {
    auto const first = openEndFirst("/good/300000");
    auto const second = another(*first);
    EXPECT_EQ(second->seek(0, std::ios_base::cur), 0);
    EXPECT_EQ(readAt(*second, 299'990, 20), content(300'000, 299'990));
    EXPECT_EQ(asked(), 1U);
    EXPECT_EQ(readAt(*second, 7, 10), content(17, 7));
    EXPECT_EQ(asked(), 2U);
    EXPECT_EQ(server_.countOf("if-range: \"one\""), 1U);
    // It stands for itself.
    EXPECT_EQ(first->seek(0, std::ios_base::cur), 0);
    first->close();
    EXPECT_EQ(readAt(*another(*second), 100'000, 10), content(100'010, 100'000));
}

TEST_F(HttpEndFirst, AnotherOneGoesWhereRedirectsHaveLed) {
    auto const first = openEndFirst("/to/1?/good/300000");
    EXPECT_EQ(asked(), 2U);
    EXPECT_EQ(readAt(*another(*first), 7, 10), content(17, 7));
    EXPECT_EQ(asked(), 3U);
}

TEST_F(HttpEndFirst, WhereRedirectsLeadByNowOneLearnsForAll) {
    auto const first = openEndFirst("/redirected-until-it-expires/5000");
    EXPECT_EQ(readAt(*another(*first), 7, 10), content(17, 7));
    EXPECT_EQ(asked(), 3U); // and what it led to has expired
    EXPECT_EQ(readAt(*another(*first), 7, 10), content(17, 7));
    EXPECT_EQ(asked(), 6U);
    EXPECT_EQ(readAt(*another(*first), 7, 10), content(17, 7));
    EXPECT_EQ(asked(), 7U);
}

TEST_F(HttpEndFirst, APlaceThatFailsIsNotLearnt) {
    HttpOptions once = quickOptions();
    once.web.attempts = 1;
    auto const provider = this->provider(once);
    auto const first = dynamic_cast<extensions::IEndFirstStreams&>(*provider).openEndFirst(
        at("/redirected-to-one-that-fails/5000"));
    EXPECT_EQ(readAt(*another(*first), 7, 10), content(17, 7));
    EXPECT_THROW(readAt(*another(*first), 7, 10), ByteStreamReadFailure);
    EXPECT_EQ(readAt(*another(*first), 7, 10), content(17, 7));
    EXPECT_EQ(server_.countOf("/status/500"), 1U);
}

TEST_F(HttpEndFirst, NeverMixesTwoVersions) {
    for (std::string const behaviour :
         {"changes", "changes-and-ignores-conditions", "changes-its-date", "changes-its-size",
          "changes-to-something-whole", "forgets-its-tag", "weakens-its-tag",
          "says-that-it-changed"}) {
        for (bool const isAnother : {false, true}) {
            std::string const path = '/' + behaviour + "/5" + (isAnother ? "1" : "0") + "00";
            auto stream = openEndFirst(path);
            if (isAnother) {
                stream = another(*stream);
            }
            EXPECT_FALSE(isOutdated(*stream)) << path;
            EXPECT_EQ(outcomeOf(*stream, 0, 10), "code 9") << path;
            EXPECT_TRUE(isOutdated(*stream)) << path;
        }
    }
}

TEST_F(HttpEndFirst, AFailureThatMayPassIsNoOtherVersion) {
    auto const stream = openEndFirst("/vanishes/5000");
    EXPECT_EQ(outcomeOf(*stream, 0, 10), "code 4");
    EXPECT_FALSE(isOutdated(*stream));
}

TEST_F(HttpEndFirst, AStreamThatRestsGoesOn) {
    HttpOptions greedy = quickOptions();
    greedy.largestRange = 3000;
    auto const provider = this->provider(greedy);
    for (std::string const path : {"/good/1200000", "/whole/1200000"}) {
        auto const stream = provider->openReadOnlyStream(at(path));
        std::string bytes;
        for (int i = 0; i < 4; ++i) {
            std::size_t const before = bytes.size();
            bytes += readAt(*stream, static_cast<long>(before), 5000);
            dynamic_cast<extensions::IPinnedStream&>(*stream).rest();
        }
        EXPECT_EQ(bytes, content(20'000)) << path;
        dynamic_cast<extensions::IPinnedStream&>(*another(*stream)).rest();
    }
    EXPECT_GT(server_.countOf("/good/"), 2U);
    EXPECT_EQ(server_.countOf("/whole/"), 1U); // which would have to come from its start again
}

TEST_F(HttpEndFirst, ManyReadAtOnce) {
    auto const first = openEndFirst("/good/40000");
    std::string const bytes = content(40'000);
    std::vector<std::thread> readers;
    std::atomic<int> wrong = 0;
    for (unsigned reader = 0; reader < 4; ++reader) {
        readers.emplace_back([&, reader] {
            for (std::size_t i = 0; i < 20; ++i) {
                std::size_t const position = (reader * 7'003 + i * 3'777) % 39'000;
                wrong += readAt(*another(*first), static_cast<long>(position), 1000) !=
                         bytes.substr(position, 1000);
            }
        });
    }
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(wrong, 0);
}

} // namespace
} // namespace foundation::storage::provider::http::test
