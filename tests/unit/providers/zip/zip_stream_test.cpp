#include "zip_fixture.hpp"

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/byte_stream_failure.hpp>

#include <gtest/gtest.h>

#include <random>

namespace foundation::storage::provider::zip::test {
namespace {

constexpr char const* methods[] = {"deflated", "stored", "bzip2", "zstd", "xz"};

std::string const& bigText() {
    static std::string const text = contentOf(archives() + "/big.txt");
    return text;
}

std::string read(ByteStream& stream, std::size_t size) {
    std::string text(size, '\0');
    long const got = stream.read(text.data(), static_cast<long>(size));
    text.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
    return text;
}

TEST(ZipStream, GivesTheContentInPiecesOfAnySize) {
    auto const provider = open("big");
    for (char const* method : methods) {
        for (std::size_t const size : {1009U, 65536U, 1'000'003U}) {
            auto const stream = provider->openReadOnlyStream(inside("big", method));
            std::string whole;
            for (std::string piece; !(piece = read(*stream, size)).empty();) {
                whole += piece;
            }
            EXPECT_TRUE(whole == bigText()) << method << ' ' << size;
            EXPECT_EQ(stream->read(whole.data(), 1), -1);
            stream->close();
        }
    }
}

TEST(ZipStream, SeeksAnywhere) {
    auto const provider = open("big");
    std::mt19937 random(11);
    for (char const* method : methods) {
        auto const stream = provider->openReadOnlyStream(inside("big", method));
        for (int round = 0; round < 12; ++round) {
            std::size_t const at = random() % bigText().size();
            EXPECT_EQ(stream->seek(static_cast<long>(at), std::ios_base::beg),
                      static_cast<long>(at));
            EXPECT_EQ(read(*stream, 100), bigText().substr(at, 100)) << method << ' ' << at;
        }
    }
}

TEST(ZipStream, SeeksFromTheStartTheEndAndWhereItIs) {
    auto const provider = open("stored");
    auto const stream = provider->openReadOnlyStream(inside("stored", "a"));

    EXPECT_EQ(stream->seek(-5, std::ios_base::end), 41);
    EXPECT_EQ(read(*stream, 10), "again");
    EXPECT_EQ(stream->seek(-10, std::ios_base::cur), 36);
    EXPECT_EQ(stream->seek(1000, std::ios_base::beg), 1000);
    EXPECT_EQ(read(*stream, 10), "");
    EXPECT_THROW(stream->seek(-1, std::ios_base::beg), ByteStreamSeekFailure);
    EXPECT_EQ(stream->seek(0, std::ios_base::cur), 1000);
}

TEST(ZipStream, ComparesTheCheckSumOfWhatIsReadInPiecesThatOverlap) {
    auto const stream =
        open("wrong check sum, stored")->openReadOnlyStream(inside("wrong check sum, stored", "a"));

    read(*stream, 20);
    stream->seek(10, std::ios_base::beg);
    read(*stream, 5);

    EXPECT_THROW(readAll(*stream), ByteStreamReadFailure);
}

TEST(ZipStream, RefusesANegativeCountAndGoesOn) {
    auto const stream = open("stored")->openReadOnlyStream(inside("stored", "a"));
    char byte = 0;

    EXPECT_THROW(stream->read(&byte, -1), ByteStreamReadFailure);
    EXPECT_EQ(byte, 0);
    EXPECT_EQ(stream->read(&byte, 1), 1);
}

TEST(ZipStream, IsNotWritten) {
    auto const stream = open("stored")->openReadOnlyStream(inside("stored", "a"));

    EXPECT_THROW(stream->write("x", 1), ByteStreamWriteFailure);
}

TEST(ZipStream, EndsWhenItIsClosed) {
    auto const stream = open("stored")->openReadOnlyStream(inside("stored", "a"));
    char byte = 0;

    stream->close();

    EXPECT_THROW(stream->read(&byte, 1), ByteStreamReadFailure);
    EXPECT_THROW(stream->seek(0, std::ios_base::beg), ByteStreamSeekFailure);
    EXPECT_THROW(stream->close(), ByteStreamCloseFailure);
}

TEST(ZipStream, SaysWhyReadingFailsAndGoesOnSayingIt) {
    auto const stream = open("wrong check sum, deflated")
                            ->openReadOnlyStream(inside("wrong check sum, deflated", "a"));
    char byte = 0;
    for (int i = 0; i < 2; ++i) {
        try {
            stream->read(&byte, 1);
            ADD_FAILURE() << "nothing was wrong";
        } catch (ByteStreamReadFailure const& failure) {
            EXPECT_STREQ(failure.what(), "read: the content is damaged: its check sum is wrong");
            EXPECT_EQ(failure.getErrorCode(), ErrorCode::IOError);
        }
    }
}

TEST(ZipStream, OutlivesTheProvider) {
    auto const stream = open("big")->openReadOnlyStream(inside("big", "deflated"));

    EXPECT_TRUE(readAll(*stream) == bigText());
}

} // namespace
} // namespace foundation::storage::provider::zip::test
