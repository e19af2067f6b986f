// What is left of a stream that nobody reads for a while: little memory, and no old failure.

#include "trouble_fixture.hpp"

#include <foundation/storage/provider/extensions/i_pinned_stream.hpp>

#include <algorithm>
#include <malloc.h>

namespace foundation::storage::provider::s3 {
namespace {

using http::test::content;

class S3Resting : public TroubledBucket {
  protected:
    static void rest(ByteStream& stream) {
        dynamic_cast<extensions::IPinnedStream&>(stream).rest();
    }
    static std::string readOn(ByteStream& stream, std::size_t count) {
        std::string bytes(count, '\0');
        std::size_t done = 0;
        while (done < count) {
            long const got =
                stream.read(bytes.data() + done, static_cast<long>(std::min(count - done, step)));
            if (got <= 0) {
                break;
            }
            done += static_cast<std::size_t>(got);
        }
        bytes.resize(done);
        return bytes;
    }
    static std::size_t inUse() {
        struct mallinfo2 const info = ::mallinfo2();
        return info.uordblks + info.hblkhd;
    }
    /// Soon, as what is on its way ends first.
    static void expectAMebibyteMore(std::size_t before) {
        constexpr std::size_t ofConnections = mebibyte; // that wait for further requests
        auto const limit = std::chrono::steady_clock::now() + std::chrono::seconds(15);
        while (inUse() > before + mebibyte + ofConnections &&
               std::chrono::steady_clock::now() < limit) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_LE(inUse(), before + mebibyte + ofConnections) << "before: " << before;
    }
    /// Up to the last moment at which what comes later is only asked for ahead, and has failed.
    std::unique_ptr<ByteStream> readUpToAnOutage() {
        S3Options impatient = smallOptions();
        impatient.web.attempts = 1;
        useStore("is-down-beyond-a-mebibyte", impatient);
        put("a", content(2 * mebibyte));
        auto stream = provider_->openReadOnlyStream(in(u"a"));
        EXPECT_TRUE(readOn(*stream, beforeOutage) == content(beforeOutage));
        while (!isAskedBeyondAMebibyte()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        put("up");
        return stream;
    }
    bool isAskedBeyondAMebibyte() const {
        for (std::string const& request : server_.requests()) {
            std::size_t const range = request.find("bytes=");
            if (range != std::string::npos && std::stoul(request.substr(range + 6)) >= mebibyte) {
                return true;
            }
        }
        return false;
    }
    static constexpr std::size_t step = 100'000;
    static constexpr std::size_t beforeOutage = 900'000;
};

TEST_F(S3Resting, WhatFailedAheadIsAskedForAgainByWhoNeedsIt) {
    auto const stream = readUpToAnOutage();
    EXPECT_TRUE(readOn(*stream, 2 * mebibyte) == content(2 * mebibyte, beforeOutage));
}

TEST_F(S3Resting, WhatFailedAheadIsNotKept) {
    auto const stream = readUpToAnOutage();
    rest(*stream);
    EXPECT_TRUE(readOn(*stream, 2 * mebibyte) == content(2 * mebibyte, beforeOutage));
}

TEST_F(S3Resting, AnOutageThatLastsIsAFailure) {
    S3Options impatient = smallOptions();
    impatient.web.attempts = 1;
    useStore("is-down-beyond-a-mebibyte", impatient);
    put("a", content(2 * mebibyte));
    auto const stream = provider_->openReadOnlyStream(in(u"a"));
    EXPECT_THROW(readOn(*stream, 2 * mebibyte), ByteStreamReadFailure);
}

TEST_F(S3Resting, WaitingForWhatWasAskedForAheadCountsForTheTimeThatAReadMayTake) {
    using Clock = std::chrono::steady_clock;
    S3Options hasty = options();
    hasty.web.operationTimeout = std::chrono::seconds(4);
    useStore("stalls-beyond-24-mebibytes", hasty);
    put("a", std::string(60 * mebibyte, 'a'));
    auto const stream = provider_->openReadOnlyStream(in(u"a"));
    auto start = Clock::now();
    std::string bytes(step, '\0');
    EXPECT_THROW(
        while (stream->read(bytes.data(), static_cast<long>(step)) > 0) { start = Clock::now(); },
        ByteStreamReadFailure);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(7)); // not twice
}

TEST_F(S3Resting, WhatNobodyWantsAnyMoreIsEndedOnItsWay) {
    useStore("stalls-beyond-24-mebibytes", options()); // and would be waited for half a minute
    put("a", std::string(60 * mebibyte, 'a'));
    auto const stream = provider_->openReadOnlyStream(in(u"a"));
    readOn(*stream, step);
    std::size_t const before = inUse();
    if (before == 0) {
        GTEST_SKIP() << "this allocator does not tell what is in use";
    }
    EXPECT_EQ(readOn(*stream, 20 * mebibyte).size(), 20 * mebibyte);
    EXPECT_GT(inUse(), before + 8 * mebibyte);
    rest(*stream);
    expectAMebibyteMore(before);
}

TEST_F(S3Resting, AMebibyteStays) {
    std::string const bytes = content(60 * mebibyte);
    useStore("good", options());
    put("a", bytes);
    auto const stream = provider_->openReadOnlyStream(in(u"a"));
    readOn(*stream, step);
    std::size_t const before = inUse();
    if (before == 0) {
        GTEST_SKIP() << "this allocator does not tell what is in use";
    }
    std::size_t position = step;
    for (std::size_t const on : {std::size_t{700'000}, 3 * mebibyte, 17 * mebibyte}) {
        EXPECT_TRUE(readOn(*stream, on) == bytes.substr(position, on));
        position += on;
        rest(*stream);
        expectAMebibyteMore(before);
    }
    EXPECT_TRUE(readOn(*stream, bytes.size()) == bytes.substr(position));
}

TEST_F(S3Resting, NoMoreThanAMebibyteIsReadWithoutTheStore) {
    std::string const bytes = content(60 * mebibyte);
    useStore("good", options());
    put("a", bytes);
    auto const stream = provider_->openReadOnlyStream(in(u"a"));
    std::size_t const begin = 20 * mebibyte + step;
    readOn(*stream, begin);
    rest(*stream);
    put("a"); // from now on each request fails
    std::string got;
    try {
        while (got.size() < bytes.size()) {
            got += readOn(*stream, 1000);
        }
        FAIL() << "all of it was kept";
    } catch (ByteStreamReadFailure const&) {
        EXPECT_GT(got.size(), 0U);
        EXPECT_LE(got.size(), mebibyte);
        EXPECT_TRUE(got == bytes.substr(begin, got.size()));
    }
}

TEST_F(S3Resting, WhoRestsOftenAsksForNothingTwice) {
    std::string const bytes = content(6 * mebibyte);
    useStore("good", options());
    put("a", bytes);
    auto const stream = provider_->openReadOnlyStream(in(u"a"));
    std::size_t const requests = countAsked("GET", [&] {
        for (std::size_t position = 0; position < bytes.size(); position += 3 * step) {
            EXPECT_TRUE(readOn(*stream, 3 * step) == bytes.substr(position, 3 * step));
            rest(*stream);
        }
    });
    EXPECT_LE(requests, 48U); // of 128 KiB each
}

} // namespace
} // namespace foundation::storage::provider::s3
