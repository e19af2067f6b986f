#include "tar_fixture.hpp"

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/provider/memory/memory_factory.hpp>
#include <foundation/storage/provider/tar/tar_factory.hpp>

#include <fl/i18n/conversion.hpp>

#include <gmock/gmock.h>

#include <array>
#include <clocale>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

namespace foundation::storage::provider::tar::test {
namespace {

using ::testing::ElementsAre;

void run(std::string const& command) {
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

class TarProvider : public ::testing::Test {
  protected:
    TarProvider() : provider_(open("links")) {}
    static StorageIRI at(std::string_view path) { return inside("links", path); }

    std::shared_ptr<IProvider> provider_; // link -> d/f, d/, d/f, d/up -> ../link
};

TEST_F(TarProvider, SaysWhatIsThere) {
    EXPECT_EQ(provider_->exists(at("")), ExistsResult::Folder);
    EXPECT_EQ(provider_->exists(at("d/f")), ExistsResult::File);
    EXPECT_EQ(provider_->exists(at("link")), ExistsResult::File);
    EXPECT_EQ(provider_->exists(at("missing")), ExistsResult::Nothing);
    EXPECT_EQ(provider_->exists(at("d/f/x")), ExistsResult::Nothing);
    EXPECT_FALSE(provider_->folderExists(at("link")));
    EXPECT_EQ(provider_->existsExtended(at("d/up")), ExtendedExistsResult::LinkToFile);
}

TEST_F(TarProvider, FollowsLinksInsideTheArchive) {
    EXPECT_EQ(readAll(*provider_->openReadOnlyStream(at("d/up"))), "1");
    EXPECT_EQ(provider_->getFileAttributes(at("d/up")).values().size, 1U);
    EXPECT_EQ(provider_->getCanonicalLocation(at("d/up")), at("d/f"));
}

TEST_F(TarProvider, RefusesWhatIsOfTheWrongKind) {
    EXPECT_EQ(codeOf([&] { provider_->openReadOnlyStream(at("d")); }), 1);
    EXPECT_EQ(codeOf([&] { provider_->openReadOnlyStream(at("missing")); }), 4);
    EXPECT_EQ(codeOf([&] { provider_->listAll(at("d/f"), u""); }), 4);
    EXPECT_EQ(codeOf([&] { dynamic_cast<extensions::ILinks&>(*provider_).readLink(at("d/f")); }),
              1);
}

TEST_F(TarProvider, RefusesEveryChange) {
    auto const policy = ReplacementPolicy::ReplaceExisting;
    auto& links = dynamic_cast<extensions::ILinks&>(*provider_);
    std::array<std::function<void()>, 11> const changes{
        [&] { provider_->createFile(at("x")); },
        [&] { provider_->createFolder(at("x")); },
        [&] { provider_->createFolderRecursive(at("x")); },
        [&] { provider_->removeFile(at("d/f")); },
        [&] { provider_->removeFolder(at("d")); },
        [&] { provider_->removeFolderRecursively(at("d")); },
        [&] { provider_->setLastModified(at("d/f"), {}); },
        [&] { provider_->setWritable(at("d/f"), false); },
        [&] { provider_->moveFile(at("d/f"), at("x"), policy); },
        [&] { provider_->openStream(at("d/f"), {}); },
        [&] { links.createLink(at("x"), u"d"); }};
    for (auto const& change : changes) {
        EXPECT_EQ(codeOf(change), 7);
    }
}

TEST_F(TarProvider, ListsInTheArchivesOrder) {
    EXPECT_THAT(namesOf(provider_->listAll(at(""), u"")), ElementsAre("link", "d/"));
    EXPECT_THAT(namesOf(provider_->listAllRecursiveNamesOnly(at(""), u"")),
                ElementsAre("link", "d/", "d/f", "d/up"));
    EXPECT_THAT(namesOf(provider_->listAllRecursive(at("d"), u"")), ElementsAre("f", "up"));
    EXPECT_THAT(namesOf(provider_->listAllRecursive(at(""), u"?")), ElementsAre("d/", "d/f"));
    EXPECT_THAT(namesOf(provider_->listFilesNamesOnly(at("d"), u"u*")), ElementsAre("up"));
}

TEST(TarLinks, LeadNowhereOutOfTheArchive) {
    auto const provider = open("links out");

    EXPECT_EQ(provider->existsExtended(inside("links out", "up")),
              ExtendedExistsResult::DanglingLink);
    EXPECT_EQ(codeOf([&] { provider->openReadOnlyStream(inside("links out", "abs")); }), 4);
}

TEST(TarLinksWithATargetThatIsTooLong, LeadToNothing) {
    auto const provider = open("link too long to be one");
    StorageIRI const link = inside("link too long to be one", "l");

    EXPECT_EQ(provider->existsExtended(link), ExtendedExistsResult::DanglingLink);
    EXPECT_FALSE(provider->folderExists(link));
    EXPECT_EQ(provider->exists(StorageIRI(link, u"below")), ExistsResult::Nothing);
    EXPECT_EQ(provider->getFileAttributes(link).values().size, 5000U);
    EXPECT_EQ(codeOf([&] { provider->openReadOnlyStream(link); }), 1);
    EXPECT_EQ(codeOf([&] { dynamic_cast<extensions::ILinks&>(*provider).readLink(link); }), 1);
}

TEST(TarHardLinks, HaveTheAttributesOfWhatTheyLeadTo) {
    auto const provider = open("hard links");

    for (char const* const name : {"a", "d/b", "c"}) {
        EXPECT_EQ(provider->getFileAttributes(inside("hard links", name)).values().size, 46U);
    }
    EXPECT_EQ(provider->existsExtended(inside("hard links", "c")), ExtendedExistsResult::File);
}

TEST(TarSpecialItems, AreListedAndNotOpened) {
    auto const provider = open("special");

    EXPECT_EQ(provider->exists(inside("special", "pipe")), ExistsResult::File);
    EXPECT_EQ(provider->existsExtended(inside("special", "pipe")), ExtendedExistsResult::Other);
    EXPECT_EQ(codeOf([&] { provider->openReadOnlyStream(inside("special", "pipe")); }), 11);
}

TEST(TarTimes, HaveTheNanosecondsOfPax) {
    WorkFolder const folder;
    std::string const archive = folder.path() + "/archive";
    run("cd " + folder.path() +
        " && touch -d '2021-06-07 08:09:11.123456789 UTC' new &&"
        " touch -d '1969-12-31 23:59:58.5 UTC' old && tar c --format=pax -f archive.tar new old");
    auto const provider = open(archive);
    auto const timeOf = [&](char const* name) {
        return provider->getFileAttributes(inside(archive, name)).values().lastModified;
    };

    EXPECT_EQ(timeOf("new"), (Timestamp{1623053351, 123456789}));
    EXPECT_EQ(timeOf("old"), (Timestamp{-2, 500000000}));
}

TEST(TarNames, AreTheSameInEveryLocale) {
    std::string const before = std::setlocale(LC_ALL, nullptr);
    for (char const* const name : {"C", "C.UTF-8"}) {
        ASSERT_NE(std::setlocale(LC_ALL, name), nullptr);
        auto const provider = open("pax name of two forms");
        EXPECT_EQ(provider->exists(inside("pax name of two forms", "e\u0301-\u00e9")),
                  ExistsResult::File);
        EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), name);
    }
    std::setlocale(LC_ALL, before.c_str());
}

TEST(TarAttributes, TellOfTheArchive) {
    auto const root = [](char const* name) {
        return open(name)->getExtendedAttributes(inside(name, ""));
    };
    EXPECT_EQ(root("links").at("tar.compression"), "none");
    EXPECT_EQ(root("links").at("tar.format"), "POSIX ustar format");
    EXPECT_EQ(root("compressed, xz").at("tar.compression"), "xz");
    EXPECT_EQ(root("left out .._x").at("tar.left-out"), "1");
    EXPECT_FALSE(root("links").contains("tar.left-out"));
    EXPECT_EQ(root("same name twice").at("tar.replaced"), "1");
    EXPECT_FALSE(root("folder behind its contents").contains("tar.replaced"));
    EXPECT_EQ(open("links")->getExtendedAttributes(inside("links", "d/f")).at("posix.mode"),
              "0644");
}

TEST(TarAttributes, OfTheRootAreThoseOfTheMemberThatStandsForIt) {
    char const* const archive = "names with a dot";
    AttributeValues const values = open(archive)->getFolderAttributes(inside(archive, "")).values();

    EXPECT_EQ(values.lastModified, (Timestamp{1'600'000'000, 0}));
    EXPECT_EQ(values.mode, 0644U);
}

TEST(TarOfAMissingItem, IsRefusedWithItsCode) {
    EXPECT_EQ(codeOf([] { buildTarProvider(localItem(archives() + "/nothing here")); }), 4);
    EXPECT_EQ(codeOf([] { buildTarProvider(localItem(archives())); }), 1);
}

TEST(TarThatChanges, IsReadAgain) {
    WorkFolder const folder;
    std::string const archive = folder.path() + "/changing";
    std::filesystem::copy_file(archives() + "/one member.tar", archive + ".tar");
    auto const provider = open(archive);
    auto const stream = provider->openReadOnlyStream(inside(archive, "a"));
    auto const cursor = provider->listAll(inside(archive, ""), u"");

    std::filesystem::copy_file(archives() + "/links.tar", folder.path() + "/new");
    std::filesystem::rename(folder.path() + "/new", archive + ".tar");

    EXPECT_EQ(provider->exists(inside(archive, "d")), ExistsResult::Folder);
    EXPECT_EQ(provider->exists(inside(archive, "a")), ExistsResult::Nothing);
    EXPECT_THAT(namesOf(cursor), ElementsAre("a")); // as it was
    EXPECT_EQ(readAll(*stream), "1");
}

TEST(TarThatAnotherTakesThePlaceOf, IsReadAgainAlsoWithTheSameSizeAndTime) {
    WorkFolder const folder;
    std::string const archive = folder.path() + "/changing";
    std::filesystem::path const item = archive + ".tar";
    std::filesystem::copy_file(archives() + "/one member.tar", item);
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
        std::filesystem::copy_file(archives() + "/one other member.tar", other);
    } while (createdAt(other) == createdAt(item));
    std::filesystem::last_write_time(other, std::filesystem::last_write_time(item));
    std::filesystem::rename(other, item);

    EXPECT_EQ(provider->exists(inside(archive, "a")), ExistsResult::Nothing);
    EXPECT_EQ(provider->exists(inside(archive, "b")), ExistsResult::File);
}

TEST(TarBounds, AreThoseOfTheOptions) {
    EXPECT_EQ(codeOf([] { open("folders", {.maximumEntries = 3}); }), 5);
    EXPECT_EQ(codeOf([] { open("folders", {.maximumEntries = 4}); }), -1);
    EXPECT_THAT(
        namesOf(open("folders", {.maximumDepth = 1})->listAllRecursive(inside("folders", ""), u"")),
        ElementsAre("d/", "d/g"));
    EXPECT_EQ(codeOf([] { open("left out .._x", {.maximumEntries = 1}); }), 5);
    EXPECT_EQ(codeOf([] { open("same name twice", {.maximumEntries = 1}); }), 5);
    EXPECT_EQ(codeOf([] { open("many", {.maximumDirectoryMemory = 1'000'000}); }), 5);
    EXPECT_EQ(codeOf([] { open("many", {.maximumDirectoryMemory = 1'300'000}); }), -1);
    EXPECT_EQ(codeOf([] { open("many", {.maximumEntries = 0xFFFFFFFF}); }), -1);
    EXPECT_EQ(codeOf([] { open("big gzip", {.maximumDecoded = 1'000'000}); }), 5);
    EXPECT_EQ(codeOf([] { open("compressed, xz", {.maximumDecoderMemory = 100'000}); }), 5);
}

TEST(TarBounds, HoldForAllSparseFilesTogether) {
    WorkFolder const folder;
    std::string const archive = folder.path() + "/archive";
    run("cd " + folder.path() +
        " && truncate -s 50M a && truncate -s 40M b && echo 1 > c && "
        "truncate -s 1M c && tar cSf archive.tar a b c");
    auto const codes = [&](TarOptions const& options) {
        auto const provider = open(archive, options);
        std::vector<int> result;
        for (char const* const name : {"a", "b", "c"}) {
            result.push_back(codeOf([&] { provider->openReadOnlyStream(inside(archive, name)); }));
        }
        return result;
    };

    EXPECT_THAT(codes({}), ElementsAre(-1, 5, -1));
    EXPECT_THAT(codes({.maximumRatio = 100'000}), ElementsAre(-1, -1, -1));
    EXPECT_EQ(open(archive)->getFileAttributes(inside(archive, "b")).values().size, 40U << 20U);
}

TEST(TarOfDeepTrees, IsListedAsFastAsAnother) {
    auto const provider = open("deep");
    double const begin = processorTime();

    EXPECT_EQ(namesOf(provider->listAllRecursiveNamesOnly(inside("deep", ""), u"")).size(),
              std::size_t{990} * 101);

    EXPECT_LT(processorTime() - begin, 1.0);
}

TEST(TarOfManyMembers, IsListedWhole) {
    auto const provider = open("many");

    EXPECT_EQ(namesOf(provider->listAllRecursiveNamesOnly(inside("many", ""), u"")).size(),
              20'020U);
    EXPECT_EQ(readAll(*provider->openReadOnlyStream(inside("many", "13/512"))), "13512");
}

TEST(TarMembers, AreReadByManyThreads) {
    std::string const whole = contentOf(archives() + "/big.txt");
    for (char const* const name : {"big", "big gzip"}) {
        auto const provider = open(name, {.cacheSize = 1'000'000});
        std::vector<std::thread> threads;
        std::array<bool, 6> equal{};
        for (std::size_t i = 0; i < equal.size(); ++i) {
            threads.emplace_back([&, i] {
                auto const member = inside(name, i % 2 == 0 ? "a" : "c");
                equal[i] = readAll(*provider->openReadOnlyStream(member)) == whole;
            });
        }
        for (auto& thread : threads) {
            thread.join();
        }
        EXPECT_THAT(equal, ::testing::Each(true)) << name;
    }
}

TEST(TarInOthers, IsReadThroughAllOfThem) {
    WorkFolder const folder;
    std::string const outer = folder.path() + "/outer";
    run("cd '" + archives() + "' && tar czf " + outer + ".tar links.tar 'compressed, xz.tar'");
    auto const provider = open(outer);
    auto const contentIn = [&](char const* name, fl::i18n::ustring const& path) {
        StorageIRI const item = inside(outer, name);
        auto const inner = buildTarProvider(StorageItem(provider, item));
        return readAll(*inner->openReadOnlyStream(StorageIRI(u"tar", item, path)));
    };

    EXPECT_EQ(contentIn("links.tar", u"/d/f"), "1");
    EXPECT_EQ(contentIn("compressed, xz.tar", u"/d/b"), "2");
}

TEST(TarInMemory, IsReadLikeOneOnDisk) {
    auto const memory = memory::buildMemoryProvider();
    StorageItem const item(memory, StorageIRI(u"mem:/a.tar"));
    localItem(archives() + "/folders.tar").copyFile(item, {});

    auto const provider = buildTarProvider(item);

    StorageIRI const root(u"tar", item.getLocation(), u"/");
    EXPECT_THAT(namesOf(provider->listAllRecursive(root, u"")),
                ElementsAre("d/", "d/e/", "d/e/f", "d/g"));
}

} // namespace
} // namespace foundation::storage::provider::tar::test
