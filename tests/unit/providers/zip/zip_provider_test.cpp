#include "zip_fixture.hpp"

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/byte_stream_open_options.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/provider/local_path.hpp>
#include <foundation/storage/provider/memory/memory_factory.hpp>
#include <foundation/storage/provider/zip/zip_factory.hpp>

#include <boost/date_time/posix_time/ptime.hpp>
#include <fl/i18n/conversion.hpp>
#include <gmock/gmock.h>

#include <array>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <thread>

namespace foundation::storage::provider::zip::test {
namespace {

using fl::i18n::ustring;
using ::testing::ElementsAre;

class ZipProvider : public ::testing::Test {
  protected:
    ZipProvider() : provider_(open("links")) {}
    static StorageIRI at(std::string_view path) { return inside("links", path); }

    std::shared_ptr<IProvider> provider_; // link -> d/f, d/, d/f, d/up -> ../link
};

TEST_F(ZipProvider, SaysWhatIsThere) {
    EXPECT_EQ(provider_->exists(at("")), ExistsResult::Folder);
    EXPECT_EQ(provider_->exists(at("d")), ExistsResult::Folder);
    EXPECT_EQ(provider_->exists(at("d/f")), ExistsResult::File);
    EXPECT_EQ(provider_->exists(at("link")), ExistsResult::File);
    EXPECT_EQ(provider_->exists(at("missing")), ExistsResult::Nothing);
    EXPECT_EQ(provider_->exists(at("d/f/x")), ExistsResult::Nothing);
    EXPECT_TRUE(provider_->fileExists(at("d/f")));
    EXPECT_TRUE(provider_->fileExists(at("link")));
    EXPECT_FALSE(provider_->fileExists(at("d")));
    EXPECT_TRUE(provider_->folderExists(at("d")));
    EXPECT_FALSE(provider_->folderExists(at("link")));
    EXPECT_EQ(provider_->existsExtended(at("d/up")), ExtendedExistsResult::LinkToFile);
}

TEST_F(ZipProvider, FollowsLinksInsideTheArchive) {
    EXPECT_EQ(readAll(*provider_->openReadOnlyStream(at("d/up"))), "1");
    EXPECT_EQ(provider_->getFileAttributes(at("d/up")).values().size, 1U);
    EXPECT_EQ(provider_->getCanonicalLocation(at("d/up")), at("d/f"));
}

TEST(ZipLinks, LeadNowhereOutOfTheArchive) {
    auto const provider = open("links out");

    EXPECT_EQ(provider->existsExtended(inside("links out", "up")),
              ExtendedExistsResult::DanglingLink);
    EXPECT_EQ(codeOf([&] { provider->openReadOnlyStream(inside("links out", "abs")); }), 4);
    EXPECT_EQ(dynamic_cast<extensions::ILinks&>(*provider).readLink(inside("links out", "abs")),
              u"/etc/passwd");
}

TEST(ZipLinks, HaveTheCanonicalLocationOfWhatTheyLeadToThereOrNot) {
    auto const provider = open("links to nothing");
    auto const canonical = [&](char const* path) {
        return provider->getCanonicalLocation(inside("links to nothing", path));
    };

    EXPECT_EQ(canonical("to nothing"), inside("links to nothing", "d/nothing"));
    EXPECT_EQ(codeOf([&] { canonical("to nothing in nothing"); }), 4);
    EXPECT_EQ(codeOf([&] { canonical("to itself"); }), 1);
    EXPECT_EQ(codeOf([&] { canonical("empty"); }), 4);
    EXPECT_EQ(codeOf([&] { canonical("to f as a folder"); }), 4);
    EXPECT_EQ(canonical("to d as a folder"), inside("links to nothing", "d"));
}

TEST_F(ZipProvider, RefusesWhatIsOfTheWrongKind) {
    EXPECT_EQ(codeOf([&] { provider_->openReadOnlyStream(at("d")); }), 1);
    EXPECT_EQ(codeOf([&] { provider_->openReadOnlyStream(at("missing")); }), 4);
    EXPECT_EQ(codeOf([&] { provider_->getFileAttributes(at("d")); }), 1);
    EXPECT_EQ(codeOf([&] { provider_->getFolderAttributes(at("d/f")); }), 4);
    EXPECT_EQ(codeOf([&] { provider_->listAll(at("d/f"), u""); }), 4);
    EXPECT_EQ(codeOf([&] { provider_->listAll(at("missing"), u""); }), 4);
    EXPECT_EQ(codeOf([&] { provider_->getCanonicalLocation(at("missing/x")); }), 4);
    EXPECT_EQ(provider_->getCanonicalLocation(at("d/missing")), at("d/missing"));
    EXPECT_EQ(codeOf([&] { dynamic_cast<extensions::ILinks&>(*provider_).readLink(at("d/f")); }),
              1);
}

TEST_F(ZipProvider, ListsInTheArchivesOrder) {
    EXPECT_THAT(namesOf(provider_->listAll(at(""), u"")), ElementsAre("link", "d/"));
    EXPECT_THAT(namesOf(provider_->listFiles(at(""), u"")), ElementsAre("link"));
    EXPECT_THAT(namesOf(provider_->listFolders(at(""), u"")), ElementsAre("d/"));
    EXPECT_THAT(namesOf(provider_->listAllRecursiveNamesOnly(at(""), u"")),
                ElementsAre("link", "d/", "d/f", "d/up"));
    EXPECT_THAT(namesOf(provider_->listAllRecursive(at("d"), u"")), ElementsAre("f", "up"));
    EXPECT_THAT(namesOf(provider_->listAllRecursive(at(""), u"?")), ElementsAre("d/", "d/f"));
    EXPECT_THAT(namesOf(provider_->listFilesNamesOnly(at("d"), u"u*")), ElementsAre("up"));
}

TEST_F(ZipProvider, ClonesStandWhereTheirCursorStood) {
    auto const cursor = provider_->listAllRecursive(at(""), u"");
    for (std::size_t step = 0; cursor->hasNext(); ++step) {
        std::unique_ptr<IFolderEntryIterator> const clone(cursor->cloneIterator());
        EXPECT_EQ(namesOf(clone).size(), 4 - step);
        EXPECT_TRUE(cursor->hasNext());
        cursor->advance();
    }
    EXPECT_THROW(cursor->advance(), std::logic_error);
}

TEST(ZipAttributes, AreThoseOfTheDirectory) {
    auto const provider = open("links");
    auto const link = provider->listAll(inside("links", ""), u"");
    ASSERT_TRUE(link->hasNext());
    link->advance();
    EXPECT_EQ(link->currentEntry().getFileAttributes()->values().mode, 0777U);

    auto const extended = open("deflated")->getExtendedAttributes(inside("deflated", "a"));
    EXPECT_EQ(extended.at("zip.method"), "deflate");
    EXPECT_EQ(extended.at("posix.mode"), "0644");
}

TEST(ZipAttributes, TellHowManyMembersWereLeftOut) {
    auto const extended = [](char const* name) {
        return open(name)->getExtendedAttributes(inside(name, ""));
    };
    EXPECT_EQ(extended("left out .._x").at("zip.left-out"), "1");
    EXPECT_FALSE(extended("deflated").contains("zip.left-out"));
}

TEST(ZipTimes, OfDosAreLocalAndThoseOfTheExtraFieldAreNot) {
    WorkFolder const folder;
    ASSERT_EQ(std::system(("cd " + folder.path() +
                           " && TZ=UTC touch -d '2021-06-07 08:09:11' file &&"
                           " zip -q extra.zip file && zip -qX dos.zip file")
                              .c_str()),
              0);
    auto const timeIn = [&](char const* name) {
        std::string const archive = folder.path() + '/' + name;
        return open(archive)->getFileAttributes(inside(archive, "file")).values().lastModified;
    };

    EXPECT_EQ(timeIn("extra"), (Timestamp{1623053351, 0}));
    EXPECT_EQ(timeIn("dos"), (Timestamp{1623053352, 0})); // in even seconds
}

TEST(ZipOfAMissingItem, IsRefusedWithItsCode) {
    EXPECT_EQ(codeOf([] { buildZipProvider(localItem(archives() + "/nothing here")); }), 4);
    EXPECT_EQ(codeOf([] { buildZipProvider(localItem(archives())); }), 1);
}

TEST(ZipThatChanges, IsReadAgain) {
    WorkFolder const folder;
    std::string const archive = folder.path() + "/changing";
    std::filesystem::copy_file(archives() + "/stored.zip", archive + ".zip");
    auto const provider = open(archive);
    auto const stream = provider->openReadOnlyStream(inside(archive, "a"));
    auto const cursor = provider->listAll(inside(archive, ""), u"");

    std::filesystem::copy_file(archives() + "/links.zip", folder.path() + "/new");
    std::filesystem::rename(folder.path() + "/new", archive + ".zip");

    EXPECT_EQ(provider->exists(inside(archive, "d")), ExistsResult::Folder);
    EXPECT_EQ(provider->exists(inside(archive, "a")), ExistsResult::Nothing);
    EXPECT_THAT(namesOf(cursor), ElementsAre("a")); // as it was
    EXPECT_EQ(readAll(*stream).size(), 46U);
}

TEST(ZipThatAnotherTakesThePlaceOf, IsReadAgainAlsoWithTheSameSizeAndTime) {
    WorkFolder const folder;
    std::string const archive = folder.path() + "/changing";
    std::filesystem::path const item = archive + ".zip";
    std::filesystem::copy_file(archives() + "/one member.zip", item);
    auto const provider = open(archive);

    auto const createdAt = [](std::filesystem::path const& file) {
        return localItem(file).getFileAttributes().values().created;
    };
    if (!createdAt(item)) {
        GTEST_SKIP() << "the file system tells no dates of creation";
    }
    std::filesystem::path const other = folder.path() + "/other";
    do { // until the clock of the file system has gone on
        std::filesystem::remove(other);
        std::filesystem::copy_file(archives() + "/one other member.zip", other);
    } while (createdAt(other) == createdAt(item));
    ASSERT_EQ(std::filesystem::file_size(other), std::filesystem::file_size(item));
    std::filesystem::last_write_time(other, std::filesystem::last_write_time(item));
    std::filesystem::rename(other, item);

    EXPECT_EQ(provider->exists(inside(archive, "a")), ExistsResult::Nothing);
    EXPECT_EQ(provider->exists(inside(archive, "b")), ExistsResult::File);
}

TEST(ZipBehindLinks, IsReachedWithoutReadingThemAnewAtEveryStep) {
    auto provider = open("chained");
    StorageIRI item = inside("chained", "0");
    double const begin = processorTime();

    for (int depth = 1; depth < 4; ++depth) {
        provider = buildZipProvider(StorageItem(provider, item));
        item = StorageIRI(u"zip", item, u"/0");
    }
    provider = buildZipProvider(StorageItem(provider, item));

    EXPECT_EQ(readAll(*provider->openReadOnlyStream(StorageIRI(u"zip", item, u"/x"))), "hello");
    EXPECT_LT(processorTime() - begin, 1.0);
}

TEST(ZipInADeflatedMember, IsDecodedOnceForAllOfItsMembers) {
    auto const outer = open("deflated twice");
    StorageIRI const item = inside("deflated twice", "inner.zip");
    auto const inner = buildZipProvider(StorageItem(outer, item));
    double const begin = processorTime();

    for (int n = 0; n < 250; ++n) {
        StorageIRI const member(u"zip", item,
                                fl::i18n::storageNameToUstring('/' + std::to_string(n)));
        EXPECT_EQ(readAll(*inner->openReadOnlyStream(member)).size(), 20'000U);
    }

    EXPECT_LT(processorTime() - begin, 0.5);
}

TEST(ZipInAZip, IsReadThroughBoth) {
    WorkFolder const folder;
    std::string const archive = folder.path() + "/outer";
    ASSERT_EQ(std::system(("cd '" + archives() + "' && zip -q0 " + archive +
                           ".zip stored.zip deflated.zip && zip -q " + archive + ".zip links.zip")
                              .c_str()),
              0);
    auto const outer = open(archive);
    auto const contentIn = [&](char const* name, ustring const& path) {
        StorageIRI const item = inside(archive, name);
        auto const inner = buildZipProvider(StorageItem(outer, item));
        return readAll(*inner->openReadOnlyStream(StorageIRI(u"zip", item, path)));
    };

    EXPECT_EQ(contentIn("stored.zip", u"/a").size(), 46U);
    EXPECT_EQ(contentIn("deflated.zip", u"/a").size(), 46U);
    EXPECT_EQ(contentIn("links.zip", u"/d/f"), "1");
}

TEST(ZipInMemory, IsReadLikeOneOnDisk) {
    auto const memory = memory::buildMemoryProvider();
    StorageItem const item(memory, StorageIRI(u"mem:/a.zip"));
    localItem(archives() + "/folders.zip").copyFile(item, {});

    auto const provider = buildZipProvider(item);

    StorageIRI const root(u"zip", item.getLocation(), u"/");
    EXPECT_THAT(namesOf(provider->listAllRecursive(root, u"")),
                ElementsAre("d/", "d/e/", "d/e/f", "d/g"));
}

TEST(ZipBounds, AreThoseOfTheOptions) {
    EXPECT_EQ(codeOf([] { open("folders", {.maximumEntries = 3}); }), 5);
    EXPECT_EQ(codeOf([] { open("folders", {.maximumEntries = 4}); }), -1);
    EXPECT_THAT(
        namesOf(open("folders", {.maximumDepth = 1})->listAllRecursive(inside("folders", ""), u"")),
        ElementsAre("d/", "d/g"));
    EXPECT_EQ(codeOf([] { open("left out .._x", {.maximumEntries = 1}); }), 5);
    EXPECT_EQ(codeOf([] { open("same name twice", {.maximumEntries = 1}); }), 5);
    auto const provider = open("big", {.maximumRatio = 1});
    EXPECT_EQ(codeOf([&] { provider->openReadOnlyStream(inside("big", "deflated")); }), 5);
}

TEST(ZipBounds, HoldForWhatADecoderTakesInMemory) {
    auto const provider = open("big", {.maximumDecoderMemory = 100'000});
    auto const stream = provider->openReadOnlyStream(inside("big", "xz"));
    try {
        readAll(*stream);
        ADD_FAILURE() << "nothing was refused";
    } catch (ByteStreamFailure const& failure) {
        EXPECT_STREQ(failure.what(), "read: decoding needs more memory than is allowed");
    }
}

TEST(ZipBounds, HoldForWhatTheDirectoryTakesInMemory) {
    EXPECT_EQ(codeOf([] { open("colliding", {.maximumDirectoryMemory = 1'000'000}); }), 5);
    EXPECT_EQ(codeOf([] { open("colliding", {.maximumDirectoryMemory = 2'000'000}); }), -1);
}

TEST(ZipOfDeepTrees, IsListedAsFastAsAnother) {
    auto const provider = open("deep");
    double const begin = processorTime();

    EXPECT_EQ(namesOf(provider->listAllRecursiveNamesOnly(inside("deep", ""), u"")).size(),
              std::size_t{990} * 101);

    EXPECT_LT(processorTime() - begin, 1.0);
}

/// What was in memory at most since the last call, in KiB.
long peakMemory() {
    long peak = 0;
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmHWM:")) {
            peak = std::stol(line.substr(6));
        }
    }
    std::ofstream("/proc/self/clear_refs") << '5'; // begins anew with what is in memory now
    return peak;
}

TEST(ZipOfAMillionMembers, TakesNoMoreThanASecondAndTheBoundOfMemory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(VFS_COUNTS_LINES)
    GTEST_SKIP() << "a sanitizer, or a count of lines, takes memory and time of its own";
#endif
    open("colliding"); // so that the code is in memory
    peakMemory();
    long const before = peakMemory();
    double const begin = processorTime();

    auto const provider = open("million");

    EXPECT_LT(processorTime() - begin, 1.5); // 0.7 where nothing runs beside it
    long const bound = 64 * 1024;
    long const buffersAndPages = 2 * 1024; // large pages round up
    EXPECT_LT(peakMemory() - before, bound + buffersAndPages);
    EXPECT_EQ(provider->exists(inside("million", "999999")), ExistsResult::File);
}

TEST(ZipNames, TakeNoLongerForThoseThatWereMadeToCollide) {
    auto const timeFor = [](char const* name) {
        double const begin = processorTime();
        open(name);
        return processorTime() - begin;
    };

    // All in one slot they would be compared 200,000,000 times, which takes a hundred times as
    // long.
    EXPECT_LT(timeFor("colliding"), timeFor("not colliding") * 10 + 0.1);
}

TEST(ZipMembers, AreReadByManyThreads) {
    auto const provider = open("big");
    std::string const whole = contentOf(archives() + "/big.txt");
    std::vector<std::thread> threads;
    std::array<bool, 8> equal{};
    for (std::size_t i = 0; i < equal.size(); ++i) {
        threads.emplace_back([&, i] {
            char const* const names[] = {"deflated", "stored", "bzip2", "xz"};
            equal[i] = readAll(*provider->openReadOnlyStream(inside("big", names[i % 4]))) == whole;
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(equal, ::testing::Each(true));
}

TEST(ZipOfManyMembers, IsListedWhole) {
    auto const provider = open("many");

    EXPECT_EQ(namesOf(provider->listAllRecursiveNamesOnly(inside("many", ""), u"")).size(),
              100'100U);
    EXPECT_EQ(readAll(*provider->openReadOnlyStream(inside("many", "73/512"))), "73512");
}

} // namespace
} // namespace foundation::storage::provider::zip::test
