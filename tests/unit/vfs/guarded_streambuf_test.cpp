#include <foundation/storage/vfs/streams/detail/guarded_streambuf.hpp>

#include "fake_stream.hpp"

#include <foundation/storage/provider/byte_stream_device.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

namespace provider = foundation::storage::provider;
using foundation::storage::vfs::detail::deviceBufferSize;
using vfs_test::FakeStream;
using vfs_test::StreamScript;
using Calls = std::vector<std::string>;
using Device = provider::ByteStreamDevice;
using Chain = boost::iostreams::filtering_streambuf<boost::iostreams::seekable>;
using Guarded = foundation::storage::vfs::detail::GuardedStreambuf<Device>;

Device deviceOf(std::shared_ptr<StreamScript> const& script) {
    std::unique_ptr<provider::ByteStream> stream = std::make_unique<FakeStream>(script);
    return Device(stream);
}

std::string patternOf(std::size_t size) {
    std::string text(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        text[i] = static_cast<char>(i * 7 + i / 131);
    }
    return text;
}

/// A buffer on a device, and what the device is asked.
template<class Streambuf>
struct Stage {
    explicit Stage(std::string const& content) {
        script->content = content;
        buffer.push(deviceOf(script), deviceBufferSize);
    }
    std::string read(std::streamsize count) {
        std::string text(static_cast<std::size_t>(count), '\0');
        std::streamsize const got = buffer.sgetn(text.data(), count);
        text.resize(static_cast<std::size_t>(got));
        return text;
    }

    std::shared_ptr<StreamScript> script = std::make_shared<StreamScript>();
    Streambuf buffer;
};

TEST(GuardedStreambuf, LargeReadsReachTheDeviceInTheCallsOfTheChain) {
    std::string const content = patternOf(1000000);
    Stage<Guarded> stage(content);
    EXPECT_EQ(stage.read(10), content.substr(0, 10));
    EXPECT_EQ(stage.read(400000), content.substr(10, 400000));
    EXPECT_EQ(stage.script->calls, Calls(4, "read 131072"));
    EXPECT_EQ(stage.read(700000), content.substr(400010));
    EXPECT_EQ(stage.read(700000), "");
}

TEST(GuardedStreambuf, LastBytesOfALargeReadCanBePutBack) {
    std::string const content = patternOf(500000);
    Stage<Guarded> stage(content);
    stage.read(1);
    EXPECT_EQ(stage.read(131071 + 2 * deviceBufferSize).size(), 131071U + 2 * 131072U);
    std::size_t position = 3 * 131072;
    for (int i = 0; i < 4; ++i) {
        --position;
        EXPECT_EQ(stage.buffer.sungetc(), static_cast<unsigned char>(content[position])) << i;
    }
    EXPECT_EQ(stage.read(100), content.substr(position, 100));
}

TEST(GuardedStreambuf, DeviceThatGivesLittleLosesAndRepeatsNothing) {
    std::string const content = patternOf(400000);
    for (std::size_t step : {1U, 3U, 4U, 1000U}) {
        Stage<Guarded> stage(content);
        stage.read(1);
        stage.read(deviceBufferSize - 1);
        // The device ends after a step, again and again: what follows appears when it is asked.
        std::size_t end = 131072;
        stage.script->content.resize(end);
        std::string got;
        while (end < 133000) {
            end += step;
            stage.script->content = content.substr(0, end);
            std::string const part = stage.read(deviceBufferSize);
            ASSERT_EQ(part.size(), step);
            got += part;
        }
        EXPECT_EQ(got, content.substr(131072, got.size())) << step;
        for (std::size_t i = 1; i <= 4; ++i) {
            EXPECT_EQ(stage.buffer.sungetc(), static_cast<unsigned char>(content[end - i])) << step;
        }
    }
}

TEST(GuardedStreambuf, FailureInALargeReadLeavesTheBufferUsable) {
    std::string const content = patternOf(600000);
    Stage<Guarded> stage(content);
    stage.read(10);
    int reads = 0;
    stage.script->onRead = [&] {
        if (++reads == 2) {
            throw provider::ByteStreamReadFailure("no", provider::ErrorCode::IOError);
        }
    };
    EXPECT_THROW(stage.read(500000), provider::ByteStreamReadFailure);
    EXPECT_EQ(stage.read(100), content.substr(2 * 131072, 100));
}

TEST(GuardedStreambuf, BytesOfAWriteAreNotLostWhenTheDeviceIsTakenOff) {
    Stage<Guarded> stage("");
    EXPECT_EQ(stage.buffer.sputn("0123456789", 10), 10);
    EXPECT_EQ(stage.buffer.sputn("abc", 3), 3);
    stage.buffer.popDevice();
    EXPECT_EQ(stage.script->calls, (Calls{"write 13", "close"}));
    EXPECT_EQ(stage.script->content, "0123456789abc");
}

/// One step on both buffers; gives what it answered.
template<class Streambuf>
std::string stepOn(Stage<Streambuf>& stage, unsigned kind, std::streamsize size) {
    auto const text = [](std::streamoff value) { return std::to_string(value); };
    switch (kind) {
    case 0:
    case 1:
    case 2:
        return stage.read(size);
    case 3:
        return text(stage.buffer.sbumpc());
    case 4:
        return text(stage.buffer.sputn(patternOf(200000).data(), size % 200000));
    case 5:
        return text(stage.buffer.sputc(static_cast<char>(size)));
    case 6: { // back over a part of what was just read, so never to before the start
        auto const part = static_cast<std::streamoff>(stage.read(size % 1000).size());
        return text(stage.buffer.pubseekoff(-part / 2, std::ios_base::cur, std::ios_base::in));
    }
    case 7:
        return text(stage.buffer.pubseekoff(size, std::ios_base::beg));
    case 8:
        return text(stage.buffer.pubsync());
    default: {
        std::string const before = stage.read(4);
        return before.size() < 4
                   ? before
                   : text(stage.buffer.sungetc()) + ' ' + text(stage.buffer.sungetc()) + ' ' +
                         text(stage.buffer.sputbackc(before[1]));
    }
    }
}

TEST(GuardedStreambuf, AnswersAndAsksAsThePlainChain) {
    std::streamsize const sizes[] = {0,      1,      5,      16,     4096,   131071,
                                     131072, 131073, 131076, 200000, 262144, 400000};
    for (unsigned seed = 0; seed < 100; ++seed) {
        std::minstd_rand random(seed + 1);
        std::string const content = patternOf(random() % 900000);
        Stage<Guarded> ours(content);
        Stage<Chain> plain(content);
        for (int step = 0; step < 40; ++step) {
            auto const kind = static_cast<unsigned>(random() % 10);
            std::streamsize const size = sizes[random() % std::size(sizes)];
            ASSERT_EQ(stepOn(ours, kind, size), stepOn(plain, kind, size))
                << "seed " << seed << ", step " << step << " of kind " << kind;
            ASSERT_EQ(ours.script->calls, plain.script->calls)
                << "seed " << seed << ", step " << step << " of kind " << kind;
        }
        EXPECT_EQ(ours.script->content, plain.script->content) << "seed " << seed;
    }
}

} // namespace
