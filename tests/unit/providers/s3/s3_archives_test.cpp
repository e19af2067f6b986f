// What archives in a store cost: the numbers that are told to users.

#include "../tarred.hpp"
#include "../zipped.hpp"
#include "provider_fixture.hpp"

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/extensions/i_flushable_filesystem.hpp>
#include <foundation/storage/provider/tar/tar_factory.hpp>
#include <foundation/storage/provider/zip/zip_factory.hpp>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <malloc.h>
#include <thread>

namespace foundation::storage::provider::s3 {
namespace {

using provider::test::noise;
using provider::test::tarred;
using provider::test::zipped;
using Members = std::vector<std::pair<std::string, std::size_t>>;

class S3Archives : public ProviderOfBucket {
  protected:
    static StorageIRI in(ustring const& path) {
        return StorageIRI(u"zip", at(u"a.zip"), u"/" + path);
    }
    /// A provider of the bucket that knows nothing yet, and does not forget in the time that a
    /// test takes.
    void useNew() {
        S3Options lasting = options();
        lasting.attributeLifetime = std::chrono::hours(1);
        use(lasting);
    }
    std::shared_ptr<IProvider> openArchive() {
        useNew();
        return zip::buildZipProvider(StorageItem(provider_, at(u"a.zip")));
    }
    static std::string bytesOf(IProvider const& archive, ustring const& path) {
        return readAll(*archive.openReadOnlyStream(in(path)));
    }
    /// A large one, with small members at its start, in its midst and at its end.
    void putLarge() const {
        put("a.zip", zipped({{"first", 3000},
                             {"large", 900'000},
                             {"middle", 3000},
                             {"larger", 3'000'000},
                             {"last", 3000}}));
    }
    static StorageIRI inTar(ustring const& path) {
        return StorageIRI(u"tar", at(u"a.tar"), u"/" + path);
    }
    /// Of the given content, which is stored.
    void putZipped(std::vector<std::pair<ustring, std::string>> const& members) const {
        StorageItem const outer(provider_, at(u"a.zip"));
        outer.createFile();
        auto const writing = zip::buildZipProvider(outer);
        for (auto const& [name, bytes] : members) {
            auto const stream = writing->openStream(in(name), {});
            stream->write(bytes.data(), static_cast<long>(bytes.size()));
            stream->close();
        }
        dynamic_cast<extensions::IFlushableFilesystem&>(*writing).flushFilesystem();
    }
    std::shared_ptr<IProvider> archive_;
};

std::size_t memoryInUse() {
    struct mallinfo2 const info = ::mallinfo2();
    return info.uordblks + info.hblkhd;
}

std::string littleEndian(std::uint32_t number) {
    std::string bytes;
    for (unsigned shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>(number >> shift & 0xFF);
    }
    return bytes;
}

/// Of RFC 1952, section 8.
std::uint32_t checkSumOf(std::string const& bytes) {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t i = 0; i < table.size(); ++i) {
        table[i] = i;
        for (int bit = 0; bit < 8; ++bit) {
            table[i] = (table[i] & 1) != 0 ? 0xEDB88320U ^ table[i] >> 1 : table[i] >> 1;
        }
    }
    std::uint32_t sum = 0xFFFFFFFFU;
    for (char const byte : bytes) {
        sum = table[(sum ^ static_cast<unsigned char>(byte)) & 0xFF] ^ sum >> 8;
    }
    return ~sum;
}

/// In blocks that are stored as they are.
std::string gzipped(std::string const& bytes) {
    std::string result("\x1f\x8b\x08\0\0\0\0\0\0\3", 10);
    constexpr std::size_t most = 65'535;
    for (std::size_t at = 0; at < bytes.size(); at += most) {
        auto const size = static_cast<std::uint32_t>(std::min(most, bytes.size() - at));
        result += '\0' + littleEndian(size | ~size << 16);
        result.append(bytes, at, size);
    }
    return result + std::string("\1\0\0\xff\xff", 5) + littleEndian(checkSumOf(bytes)) +
           littleEndian(static_cast<std::uint32_t>(bytes.size()));
}

TEST_F(S3Archives, AListingTakesAQuestionAndTheEnd) {
    putLarge();
    EXPECT_EQ(asked([&] {
                  archive_ = openArchive();
                  EXPECT_EQ(namesOf(*archive_->listAll(in(u""), u"")).size(), 5U);
              }),
              "HEAD GET");
}

TEST_F(S3Archives, ADirectoryOfAThousandMembersComesWithTheEnd) {
    Members many;
    for (int i = 0; i < 1000; ++i) {
        many.emplace_back("a member with a name of some length " + std::to_string(i), 500);
    }
    put("a.zip", zipped(many));
    EXPECT_EQ(asked([&] {
                  archive_ = openArchive();
                  EXPECT_EQ(namesOf(*archive_->listAllRecursive(in(u""), u"")).size(), 1000U);
              }),
              "HEAD GET");
}

TEST_F(S3Archives, ALargerDirectoryTakesOneMore) {
    Members many;
    for (int i = 0; i < 5000; ++i) {
        many.emplace_back("a member with a name of some length " + std::to_string(i), 100);
    }
    put("a.zip", zipped(many));
    EXPECT_EQ(asked([&] {
                  archive_ = openArchive();
                  EXPECT_EQ(namesOf(*archive_->listAllRecursive(in(u""), u"")).size(), 5000U);
              }),
              "HEAD GET GET");
}

TEST_F(S3Archives, AMemberTakesOneMore) {
    putLarge();
    EXPECT_EQ(asked([&] {
                  archive_ = openArchive();
                  EXPECT_EQ(bytesOf(*archive_, u"middle"), noise(3000, 2));
              }),
              "HEAD GET GET");
    EXPECT_EQ(asked([&] { EXPECT_EQ(bytesOf(*archive_, u"first"), noise(3000, 0)); }), "GET");
    EXPECT_EQ(asked([&] { EXPECT_EQ(bytesOf(*archive_, u"last"), noise(3000, 4)); }), "");
}

TEST_F(S3Archives, OfASmallOneEverythingComesAtOnce) {
    put("a.zip", zipped({{"a", 20'000}, {"b", 20'000}, {"c", 20'000}}));
    EXPECT_EQ(asked([&] {
                  archive_ = openArchive();
                  EXPECT_EQ(bytesOf(*archive_, u"a"), noise(20'000, 0));
                  EXPECT_EQ(bytesOf(*archive_, u"c"), noise(20'000, 2));
                  EXPECT_EQ(bytesOf(*archive_, u"b"), noise(20'000, 1));
              }),
              "HEAD GET");
}

TEST_F(S3Archives, MembersInTheirOrderTakeFewRequests) {
    Members many;
    for (int i = 0; i < 300; ++i) {
        many.emplace_back("member" + std::to_string(i), 10'000);
    }
    put("a.zip", zipped(many));
    archive_ = openArchive();
    std::size_t const requests = countAsked("GET", [&] {
        for (unsigned i = 0; i < 300; ++i) {
            ustring const name = fl::i18n::to_ustring(many[i].first);
            ASSERT_EQ(bytesOf(*archive_, name), noise(10'000, i)) << i;
        }
    });
    EXPECT_LE(requests, 40U); // for 3 MB
}

TEST_F(S3Archives, AnArchiveInAnArchiveTakesOneMoreEach) {
    std::string const inner = zipped({{"deep", 5000}, {"deeper", 900'000}});
    putZipped({{u"i.zip", inner}, {u"rest", noise(900'000, 9)}});
    std::string text;
    EXPECT_EQ(asked([&] {
                  archive_ = openArchive();
                  auto const within = zip::buildZipProvider(StorageItem(archive_, in(u"i.zip")));
                  text = readAll(
                      *within->openReadOnlyStream(StorageIRI(u"zip", in(u"i.zip"), u"/deep")));
              }),
              "HEAD GET GET GET");
    EXPECT_EQ(text, noise(5000, 0));
}

/// Of a member read up to its midst, and what that leaves.
class S3ArchivesAtRest : public S3Archives {
  protected:
    static constexpr std::size_t mebibyte = std::size_t{1024} * 1024;
    static constexpr std::size_t large = 40 * mebibyte;

    static void readHalf(IProvider const& archive, StorageIRI const& location) {
        auto const stream = archive.openReadOnlyStream(location);
        std::string buffer(100'000, '\0');
        for (std::size_t done = 0; done < large / 2; done += buffer.size()) {
            ASSERT_EQ(stream->read(buffer.data(), static_cast<long>(buffer.size())),
                      static_cast<long>(buffer.size()));
        }
    }
    /// What is on its way yet ends soon.
    static void expectLittleInUse(std::size_t before, std::size_t most) {
        auto const limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (memoryInUse() > before + most && std::chrono::steady_clock::now() < limit) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_LE(memoryInUse(), before + most) << "before: " << before;
    }
};

TEST_F(S3ArchivesAtRest, AnArchiveInAnArchiveKeepsAMebibyte) {
    putZipped({{u"i.zip", zipped({{"large", large}})}, {u"rest", noise(900'000, 9)}});
    archive_ = openArchive();
    std::size_t const before = memoryInUse();
    if (before == 0) {
        GTEST_SKIP() << "this allocator does not tell what is in use";
    }
    auto const within = zip::buildZipProvider(StorageItem(archive_, in(u"i.zip")));
    readHalf(*within, StorageIRI(u"zip", in(u"i.zip"), u"/large"));
    expectLittleInUse(before, 2 * mebibyte);
}

TEST_F(S3ArchivesAtRest, ATarArchiveInAnArchiveKeepsAMebibyte) {
    putZipped({{u"i.tar", tarred({{"large", large}})}});
    archive_ = openArchive();
    std::size_t const before = memoryInUse();
    if (before == 0) {
        GTEST_SKIP() << "this allocator does not tell what is in use";
    }
    auto const within = tar::buildTarProvider(StorageItem(archive_, in(u"i.tar")));
    readHalf(*within, StorageIRI(u"tar", in(u"i.tar"), u"/large"));
    expectLittleInUse(before, 2 * mebibyte);
}

TEST_F(S3ArchivesAtRest, ACompressedTarArchiveKeepsAMebibyteBesidesItsCache) {
    put("a.tar", gzipped(tarred({{"large", large}})));
    useNew();
    tar::TarOptions small;
    small.cacheSize = mebibyte;
    archive_ = tar::buildTarProvider(StorageItem(provider_, at(u"a.tar")), small);
    std::size_t const before = memoryInUse();
    if (before == 0) {
        GTEST_SKIP() << "this allocator does not tell what is in use";
    }
    readHalf(*archive_, inTar(u"large"));
    expectLittleInUse(before, 4 * mebibyte);
}

TEST_F(S3Archives, ATarArchiveIsOpenedOnce) {
    put("a.tar", tarred({{"small", 600}, {"large", 300'000}}));
    useNew();
    EXPECT_EQ(asked([&] {
                  archive_ = tar::buildTarProvider(StorageItem(provider_, at(u"a.tar")));
                  EXPECT_EQ(readAll(*archive_->openReadOnlyStream(inTar(u"small"))), noise(600, 0));
              }),
              "HEAD GET GET"); // what ends the archive is behind the second member
}

TEST_F(S3Archives, ATarArchiveThatChangesUnseenIsAFailureAndReadAgain) {
    put("a.tar", tarred({{"x", 400'000}, {"y", 600}, {"z", 400'000}}));
    useNew();
    archive_ = tar::buildTarProvider(StorageItem(provider_, at(u"a.tar")));
    put("a.tar", tarred({{"x", 400'000}, {"z", 400'000}, {"y", 600}}));
    auto const read = [&] { return readAll(*archive_->openReadOnlyStream(inTar(u"z"))); };
    EXPECT_THROW(read(), ByteStreamReadFailure);
    // Where the new one is of the next second, that shows as soon as it is opened.
    std::string bytes;
    if (codeOf([&] { bytes = read(); }) == refused(ErrorCode::ResourceInUse)) {
        bytes = read();
    }
    EXPECT_TRUE(bytes == noise(400'000, 1));
}

TEST_F(S3Archives, AnArchiveThatIsAnotherOneByNowIsReadAgain) {
    putLarge();
    S3Options forgetful = options();
    forgetful.attributeLifetime = std::chrono::milliseconds(0);
    use(forgetful);
    archive_ = zip::buildZipProvider(StorageItem(provider_, at(u"a.zip")));
    put("a.zip", zipped({{"other", 800'000}, {"middle", 4000}, {"more", 800'000}}));
    EXPECT_EQ(bytesOf(*archive_, u"middle"), noise(4000, 1));
    EXPECT_EQ(codeOf([&] { bytesOf(*archive_, u"first"); }), refused(ErrorCode::ResourceNotFound));
}

TEST_F(S3Archives, OneThatChangesUnseenIsAFailureOnce) {
    // Of the same size, and before anybody asks for the time.
    std::string const before = zipped({{"x", 800'000}, {"middle", 4000}, {"y", 800'000}});
    std::string const after = zipped({{"middle", 4000}, {"x", 800'000}, {"z", 800'000}});
    ASSERT_EQ(before.size(), after.size());
    put("a.zip", before);
    archive_ = openArchive();
    EXPECT_EQ(namesOf(*archive_->listAll(in(u""), u"")).size(), 3U);
    put("a.zip", after);
    EXPECT_EQ(codeOf([&] { bytesOf(*archive_, u"middle"); }), refused(ErrorCode::IOError));
    EXPECT_EQ(bytesOf(*archive_, u"middle"), noise(4000, 0));
    EXPECT_EQ(bytesOf(*archive_, u"z"), noise(800'000, 2));
}

TEST_F(S3Archives, WhatIsPendingIsKeptWhereAMemberCannotBeRead) {
    std::string const before = zipped({{"x", 800'000}, {"middle", 4000}, {"y", 800'000}});
    put("a.zip", before);
    archive_ = openArchive();
    archive_->createFolder(in(u"new"));
    put("a.zip", zipped({{"middle", 4000}, {"x", 800'000}, {"z", 800'000}}));
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(codeOf([&] { bytesOf(*archive_, u"middle"); }), refused(ErrorCode::IOError));
        EXPECT_TRUE(archive_->folderExists(in(u"new")));
    }
    put("a.zip", before); // by its tag the one that it was
    EXPECT_EQ(bytesOf(*archive_, u"middle"), noise(4000, 1));
    EXPECT_TRUE(archive_->folderExists(in(u"new")));
}

TEST_F(S3Archives, WhatIsOpenGoesOnAsFarAsItWasRead) {
    putLarge();
    archive_ = openArchive();
    auto const first = archive_->openReadOnlyStream(in(u"first"));
    auto larger = archive_->openReadOnlyStream(in(u"larger"));
    put("a.zip", zipped({{"first", 10}}));
    EXPECT_EQ(readAll(*first), noise(3000, 0)); // came with its header
    EXPECT_THROW(readAll(*larger), ByteStreamReadFailure);
    larger.reset();
    EXPECT_EQ(bytesOf(*archive_, u"first"), noise(10, 0));
}

TEST_F(S3Archives, AMissingOneIsMissingAndAnEmptyOneIsEmpty) {
    EXPECT_EQ(codeOf([&] { openArchive(); }), refused(ErrorCode::ResourceNotFound));
    put("a.zip");
    EXPECT_EQ(namesOf(*openArchive()->listAll(in(u""), u"")).size(), 0U);
}

TEST_F(S3Archives, ManyReadMembersAtOnce) {
    Members many;
    for (int i = 0; i < 40; ++i) {
        many.emplace_back("member" + std::to_string(i), 30'000);
    }
    put("a.zip", zipped(many));
    archive_ = openArchive();
    std::atomic<int> wrong = 0;
    std::vector<std::thread> readers;
    for (unsigned reader = 0; reader < 4; ++reader) {
        readers.emplace_back([&, reader] {
            for (unsigned i = reader; i < 40; i += 4) {
                ustring const name = fl::i18n::to_ustring(many[i].first);
                wrong += bytesOf(*archive_, name) != noise(30'000, i);
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
