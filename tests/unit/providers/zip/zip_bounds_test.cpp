// What may be written: an archive that a reader with the same options takes.

#include "new_archive.hpp"

#include <foundation/storage/conformance/call_counter.hpp>
#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/copy_file_options.hpp>
#include <foundation/storage/provider/extensions/i_folder_attributes.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <gmock/gmock.h>

#include <array>
#include <functional>

namespace foundation::storage::provider::zip::test {
namespace {

using ::testing::ElementsAre;

constexpr int noSpace = 8;
constexpr int tooLarge = 5;

std::string nameOf(int number) {
    return std::string(static_cast<std::size_t>(number % 50), 'n') + std::to_string(number);
}

/// Makes files until one is refused; how many were not.
int fillUp(IProvider& provider, NewArchive const& archive) {
    for (int made = 0; made < 10'000; ++made) {
        int const code = codeOf([&] { provider.createFile(archive.at(nameOf(made))); });
        if (code >= 0) {
            EXPECT_EQ(code, noSpace);
            return made;
        }
    }
    ADD_FAILURE() << "nothing is refused";
    return 0;
}

class ZipWritingUpTo : public ::testing::TestWithParam<ZipOptions> {};

TEST_P(ZipWritingUpTo, ABoundMakesAnArchiveThatIsReadAndWithOneMoreIsNot) {
    NewArchive const archive;
    auto const provider = archive.open(GetParam());
    int const most = fillUp(*provider, archive);
    EXPECT_GT(most, 10);
    flush(*provider);
    EXPECT_EQ(codeOf([&] { archive.open(GetParam()); }), -1);
    EXPECT_EQ(codeOf([&] { provider->createFile(archive.at(nameOf(most))); }), noSpace);

    auto const unbound = archive.open();
    unbound->createFile(archive.at(nameOf(most)));
    flush(*unbound);
    EXPECT_EQ(codeOf([&] { archive.open(GetParam()); }), tooLarge);
}

TEST_P(ZipWritingUpTo, ABoundLeavesRoomWhereSomethingIsRemoved) {
    NewArchive const archive;
    auto const provider = archive.open(GetParam());
    int const most = fillUp(*provider, archive);
    provider->removeFile(archive.at(nameOf(most - 1)));
    provider->createFile(archive.at(nameOf(most - 1)));
    EXPECT_EQ(codeOf([&] { provider->createFile(archive.at(nameOf(most))); }), noSpace);
    flush(*provider);
    EXPECT_EQ(codeOf([&] { archive.open(GetParam()); }), -1);
}

std::vector<ZipOptions> const bounds{{.maximumEntries = 77},
                                     {.maximumDirectoryMemory = 4'000},
                                     {.maximumDirectoryMemory = 100'000},
                                     {.maximumDirectoryMemory = 500'001}};

INSTANTIATE_TEST_SUITE_P(All, ZipWritingUpTo, ::testing::ValuesIn(bounds), [](auto const& bound) {
    return bound.param.maximumEntries == 77
               ? std::string("Entries")
               : "Bytes" + std::to_string(bound.param.maximumDirectoryMemory);
});

TEST(ZipWritingBounds, CountTheMemberOfTheRoot) {
    NewArchive const archive("names with a dot"); // ./ a d/ d/f/
    ZipOptions const exact{.maximumEntries = 4};
    auto provider = archive.open(exact);
    EXPECT_EQ(codeOf([&] { provider->createFile(archive.at("more")); }), noSpace);
    provider = archive.open({.maximumEntries = 5});
    provider->createFile(archive.at("more"));
    flush(*provider);
    EXPECT_EQ(codeOf([&] { archive.open({.maximumEntries = 5}); }), -1);
}

/// Of the root and of d/f there is a member, of d there is none.
class ZipWritingOfAnImpliedFolder : public ::testing::Test {
  protected:
    NewArchive const archive{"a dot before an implied folder"};
    ZipOptions const exact{.maximumEntries = 2};
    std::shared_ptr<IProvider> const provider = archive.open(exact);
};

TEST_F(ZipWritingOfAnImpliedFolder, RefusesTheMemberThatItWouldGet) {
    StorageIRI const folder = archive.at("d");
    auto& attributes = dynamic_cast<extensions::IFolderAttributes&>(*provider);
    std::array<std::function<void()>, 4> const changes{
        [&] { provider->setWritable(folder, false); },
        [&] {
            provider->setLastModified(folder, toPtime({0, 0}));
        },
        [&] {
            attributes.setFolderAttributes(folder, {0700, {}, {}});
        },
        [&] {
            provider->moveFile(archive.at("d/f"), archive.at("d/g"),
                               ReplacementPolicy::FailIfExists);
        }};
    for (auto const& change : changes) {
        EXPECT_EQ(codeOf(change), noSpace);
    }
    auto const replacement =
        dynamic_cast<extensions::IReplacingStreams&>(*provider).openReplacement(
            archive.at("d/f"), ReplacementPolicy::ReplaceExisting);
    try {
        replacement->close();
        ADD_FAILURE() << "nothing is refused";
    } catch (ByteStreamFailure const& failure) {
        EXPECT_EQ(failure.getErrorCode(), ErrorCode::NoSpaceLeft);
    }
    write(*provider, archive.at("d/f"), "new");
    flush(*provider);
    EXPECT_THAT(contentsOf(*archive.open(exact), archive.at("")), ElementsAre("d/", "d/f: new"));
}

TEST_F(ZipWritingOfAnImpliedFolder, GoesOnWhereAnotherMemberGoes) {
    provider->removeFile(archive.at("d/f"));
    flush(*provider);
    EXPECT_THAT(contentsOf(*archive.open(exact), archive.at("")), ElementsAre("d/"));
}

TEST(ZipWritingBounds, HoldForNamesThatBecomeLonger) {
    NewArchive const archive;
    ZipOptions const options{.maximumDirectoryMemory = 3'000};
    auto const provider = archive.open(options);
    provider->createFile(archive.at("short"));
    provider->createFolder(archive.at("folder"));
    std::string const longer(4'000, 'n');
    auto const free = ReplacementPolicy::FailIfExists;
    EXPECT_EQ(codeOf([&] { provider->moveFile(archive.at("short"), archive.at(longer), free); }),
              noSpace);
    EXPECT_EQ(codeOf([&] { provider->moveFolder(archive.at("folder"), archive.at(longer), free); }),
              noSpace);
    std::string const fits(2'000, 'n');
    provider->moveFile(archive.at("short"), archive.at(fits), free);
    provider->moveFile(archive.at(fits), archive.at("folder/short"), free);
    provider->moveFolder(archive.at("folder"), archive.at(fits), free); // there is room again
    flush(*provider);
    EXPECT_TRUE(archive.open(options)->fileExists(archive.at(fits + "/short")));
}

TEST(ZipWritingBounds, HoldForFoldersInFolders) {
    NewArchive const archive;
    ZipOptions const options{.maximumDepth = 3};
    auto const provider = archive.open(options);
    provider->createFolderRecursive(archive.at("1/2/3"));
    provider->createFile(archive.at("1/2/3/file"));
    EXPECT_EQ(codeOf([&] { provider->createFolder(archive.at("1/2/3/4")); }), 1);
    EXPECT_EQ(codeOf([&] { provider->createFolderRecursive(archive.at("a/b/c/d")); }), 1);
    provider->createFolder(archive.at("0"));
    EXPECT_EQ(codeOf([&] {
                  provider->moveFolder(archive.at("1"), archive.at("0/1"),
                                       ReplacementPolicy::FailIfExists);
              }),
              1);
    flush(*provider);
    EXPECT_TRUE(archive.open(options)->fileExists(archive.at("1/2/3/file")));
}

TEST(ZipWritingBounds, HoldForWhatContentIsDeflatedTo) {
    NewArchive const archive;
    ZipOptions const options{.maximumRatio = 10, .wholeMemberSize = 10'000};
    auto const provider = archive.open(options);
    std::string const zeros(50'000, '\0');
    write(*provider, archive.at("whole"), zeros.substr(0, 9'000));
    write(*provider, archive.at("pieces"), zeros);
    auto const writer = provider->openStream(archive.at("open"), {});
    writer->write(zeros.data(), static_cast<long>(zeros.size()));
    write(*provider, archive.at("text"), someBytes(50'000, 1));
    flush(*provider);
    auto const again = archive.open(options);
    EXPECT_EQ(read(*again, archive.at("whole")), zeros.substr(0, 9'000));
    EXPECT_EQ(read(*again, archive.at("pieces")), zeros);
    EXPECT_EQ(read(*again, archive.at("open")), zeros);
    EXPECT_EQ(again->getExtendedAttributes(archive.at("text")).at("zip.method"), "deflate");
    writer->close();
}

TEST(ZipWritingBounds, HoldForTheMemoryOfAFlush) {
    NewArchive const archive;
    ZipOptions options{.maximumPendingMemory = 0};
    auto provider = archive.open(options);
    for (int i = 0; i < 1'000; ++i) {
        provider->createFile(archive.at(nameOf(i)));
    }
    flush(*provider); // with its headers in the temporary file
    provider->removeFile(archive.at(nameOf(500)));
    flush(*provider);
    std::string const bytes = archive.bytes();
    EXPECT_EQ(contentsOf(*archive.open(), archive.at("")).size(), 999U);

    options.temporaryFolder = archive.folder() + "/missing";
    provider = archive.open(options);
    provider->removeFile(archive.at(nameOf(1)));
    EXPECT_EQ(codeOf([&] { flush(*provider); }), 4);
    EXPECT_EQ(archive.bytes(), bytes);
}

class ZipBeyond4GiB : public ::testing::TestWithParam<char const*> {};

TEST_P(ZipBeyond4GiB, AMemberIsReadWithLittleElse) {
    constexpr std::uint64_t directory = 20'003 * (46 + 5 + 12);
    constexpr std::uint64_t little = 256 * 1024;
    std::string const name = "beyond 4 GiB";
    StorageItem const item = archiveItem(name);
    auto const counter = conformance::decorate<conformance::CallCounter>(item.getProvider());
    auto const provider = buildZipProvider(StorageItem(counter, item.getLocation()));
    StorageIRI const member = inside(name, GetParam());
    std::uint64_t const stored =
        std::stoull(provider->getExtendedAttributes(member).at("zip.compressed-size"));
    std::string const content = read(*provider, member);
    EXPECT_TRUE(content == contentOf(archives() + "/big.txt") || content == "12345");
    EXPECT_GE(counter->bytesRead(), directory + stored);
    EXPECT_LE(counter->bytesRead(), directory + stored + little);
}

INSTANTIATE_TEST_SUITE_P(All, ZipBeyond4GiB, ::testing::Values("stored", "deflated", "12345"),
                         [](auto const& member) { return std::string(member.param); });

TEST(ZipBeyond4GiB, AFarPlaceInAStoredMemberIsReadWithLittleElse) {
    std::string const name = "beyond 4 GiB";
    StorageItem const item = archiveItem(name);
    auto const counter = conformance::decorate<conformance::CallCounter>(item.getProvider());
    auto const provider = buildZipProvider(StorageItem(counter, item.getLocation()));
    counter->reset();
    auto const stream = provider->openReadOnlyStream(inside(name, "hole"));
    EXPECT_EQ(stream->seek(-1, std::ios_base::end), 9L * (1L << 29) - 1);
    char byte = 'x';
    EXPECT_EQ(stream->read(&byte, 1), 1);
    EXPECT_EQ(byte, '\0');
    EXPECT_LE(counter->bytesRead(), 256U * 1024);
}

} // namespace
} // namespace foundation::storage::provider::zip::test
