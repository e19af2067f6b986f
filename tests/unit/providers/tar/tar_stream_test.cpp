#include "tar_fixture.hpp"

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/byte_stream_failure.hpp>

#include <foundation/storage/provider/tar/tar_factory.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

namespace foundation::storage::provider::tar::test {
namespace {

std::string readSome(ByteStream& stream, long count) {
    std::string result(static_cast<std::size_t>(count), '\0');
    long const got = stream.read(result.data(), count);
    result.resize(static_cast<std::size_t>(std::max(got, 0L)));
    return result;
}

/// One that is stored, one that is decoded with next to no cache, and one whose members have holes.
class TarStream : public ::testing::TestWithParam<char const*> {
  protected:
    TarStream()
        : archive_(folder_.path() + "/archive"),
          whole_(contentOf(archives() + "/big.txt")) {
        std::string const command = "cd " + folder_.path() + " && cp '" + archives() +
                                    "/big.txt' a && truncate -s +1000000 a && cp a b && " +
                                    GetParam();
        EXPECT_EQ(std::system(command.c_str()), 0);
        whole_ += std::string(1'000'000, '\0');
        provider_ = open(archive_, {.sevenZip = true, .cacheSize = 300'000});
    }
    std::unique_ptr<ByteStream> open_(char const* name) {
        return provider_->openReadOnlyStream(inside(archive_, name));
    }

    WorkFolder const folder_;
    std::string const archive_;
    std::string whole_;
    std::shared_ptr<IProvider> provider_;
};

TEST_P(TarStream, GivesAllOfTheMember) {
    EXPECT_TRUE(readAll(*open_("a")) == whole_);
    EXPECT_TRUE(readAll(*open_("b")) == whole_);
    EXPECT_TRUE(readAll(*open_("a")) == whole_);
}

TEST_P(TarStream, SeeksForwardAndBack) {
    auto const stream = open_("b");
    for (long const position : {5'000'000L, 10L, 6'100'000L, 0L, 3'000'000L, 2'999'999L}) {
        EXPECT_EQ(stream->seek(position, std::ios_base::beg), position);
        EXPECT_EQ(readSome(*stream, 50), whole_.substr(static_cast<std::size_t>(position), 50));
    }
    auto const size = static_cast<long>(whole_.size());
    EXPECT_EQ(stream->seek(-3, std::ios_base::end), size - 3);
    EXPECT_EQ(readSome(*stream, 50).size(), 3U);
    EXPECT_EQ(stream->seek(10, std::ios_base::end), size + 10);
    EXPECT_EQ(readSome(*stream, 50), "");
}

TEST_P(TarStream, RefusesToBeWrittenAndUsedBehindItsEnd) {
    auto const stream = open_("a");
    EXPECT_THROW(stream->seek(-1, std::ios_base::beg), ByteStreamSeekFailure);
    EXPECT_EQ(stream->seek(0, std::ios_base::cur), 0);
    EXPECT_THROW(stream->write("x", 1), ByteStreamWriteFailure);
    char byte = 0;
    EXPECT_THROW(stream->read(&byte, 1), ByteStreamReadFailure);

    auto const other = open_("a");
    other->close();
    EXPECT_THROW(other->close(), ByteStreamCloseFailure);
}

TEST_P(TarStream, OfOneMemberGoesOnBesideAnother) {
    auto const one = open_("a");
    auto const other = open_("b");
    auto const third = open_("a");
    for (std::size_t at = 0; at < 3'000'000; at += 300'000) {
        for (ByteStream* const stream : {one.get(), other.get(), third.get()}) {
            EXPECT_TRUE(readSome(*stream, 300'000) == whole_.substr(at, 300'000));
        }
    }
}

TEST_P(TarStream, GoesOnAsItWasWhereAnotherArchiveTakesThePlaceOfItsOwn) {
    std::string const make = "cd " + folder_.path() +
                             " && mkdir other && for f in a b; do tr 0-8 1-9 < $f > other/$f; done"
                             " && cd other && " +
                             GetParam();
    ASSERT_EQ(std::system(make.c_str()), 0);
    auto const stream = open_("b");
    readSome(*stream, 3'000'000);

    std::filesystem::rename(folder_.path() + "/other/archive.tar", archive_ + ".tar");

    EXPECT_EQ(stream->seek(0, std::ios_base::beg), 0);
    EXPECT_TRUE(readAll(*stream) == whole_);
    EXPECT_FALSE(readAll(*open_("b")) == whole_);
}

INSTANTIATE_TEST_SUITE_P(
    Archives, TarStream,
    ::testing::Values("tar cf archive.tar a b", "tar czf archive.tar a b",
                      "tar cSf archive.tar a b", "tar cSzf archive.tar a b",
                      "bsdtar --format 7zip --options compression=deflate -cf archive.tar a b",
                      "bsdtar --format iso9660 -cf archive.tar a b"));

/// The local disk, whose streams fail to seek from some time on.
class SeeklessDisk final : public IProvider {
  public:
    std::shared_ptr<bool> const fails = std::make_shared<bool>(false);

    ExistsResult exists(StorageIRI const&) const override { return ExistsResult::File; }
    ExtendedExistsResult existsExtended(StorageIRI const&) const override {
        return ExtendedExistsResult::File;
    }
    FileAttributes getFileAttributes(StorageIRI const& location) const override {
        return itemAt(location).getFileAttributes();
    }
    std::unique_ptr<ByteStream> openReadOnlyStream(StorageIRI const& location) const override {
        return std::make_unique<Stream>(itemAt(location).openReadOnlyStream(), fails);
    }

  private:
    struct Stream final : ByteStream {
        Stream(std::unique_ptr<ByteStream> under, std::shared_ptr<bool> fails)
            : under_(std::move(under)),
              fails_(std::move(fails)) {}
        long read(char* buffer, long count) override { return under_->read(buffer, count); }
        long write(char const* buffer, long count) override { return under_->write(buffer, count); }
        long seek(long offset, std::ios_base::seekdir way) override {
            if (*fails_) {
                throw ByteStreamSeekFailure("no seeking", ErrorCode::ResourceInUse);
            }
            return under_->seek(offset, way);
        }
        void close() override { under_->close(); }

        std::unique_ptr<ByteStream> under_;
        std::shared_ptr<bool> fails_;
    };

    static StorageItem itemAt(StorageIRI const&) { return localItem(archives() + "/big.tar"); }
};

TEST(TarOfAnItemThatFailsToSeek, FailsToReadFromThenOn) {
    auto const disk = std::make_shared<SeeklessDisk>();
    auto const provider =
        buildTarProvider(StorageItem(disk, localItem(archives() + "/big.tar").getLocation()));
    auto const stream = provider->openReadOnlyStream(inside("big", "c"));
    char byte = 0;

    *disk->fails = true;
    EXPECT_THROW(stream->read(&byte, 1), ByteStreamReadFailure);
    *disk->fails = false;
    EXPECT_THROW(stream->read(&byte, 1), ByteStreamReadFailure);
}

TEST(TarOfAnItemThatIsCutShort, SaysThatItEndsTooSoon) {
    WorkFolder const folder;
    std::string const archive = folder.path() + "/archive";
    std::filesystem::copy_file(archives() + "/big.tar", archive + ".tar");
    auto const stream = open(archive)->openReadOnlyStream(inside(archive, "c"));
    std::filesystem::resize_file(archive + ".tar", 6'000'000);

    try {
        readAll(*stream);
        ADD_FAILURE() << "all of it was read";
    } catch (ByteStreamReadFailure const& failure) {
        EXPECT_STREQ(failure.what(), "read: the archive ends before the member does");
    }
}

TEST(TarOfDamagedContent, OfSevenZipIsFoundAtItsEnd) {
    WorkFolder const folder;
    std::string const archive = folder.path() + "/archive";
    std::string const make = "cd " + folder.path() +
                             " && seq 1 1000 > a && 7z a -mx=0 x.7z a > log && mv x.7z archive.tar"
                             " && printf x | dd of=archive.tar bs=1 seek=100 conv=notrunc 2> log";
    if (std::system("command -v 7z > /dev/null") != 0) {
        GTEST_SKIP() << "7z is not installed";
    }
    ASSERT_EQ(std::system(make.c_str()), 0);

    auto const stream = open(archive, {.sevenZip = true})->openReadOnlyStream(inside(archive, "a"));

    EXPECT_THROW(readAll(*stream), ByteStreamReadFailure);
}

} // namespace
} // namespace foundation::storage::provider::tar::test
