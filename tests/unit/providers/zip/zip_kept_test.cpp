// What a flush takes over from the archive that was there.

#include "new_archive.hpp"

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/byte_stream_open_options.hpp>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace foundation::storage::provider::zip::test {
namespace {

using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

constexpr auto free = ReplacementPolicy::FailIfExists;

/// What a command of the shell prints, with `%` for the archive.
std::string printed(std::string command, NewArchive const& archive) {
    for (std::size_t at = command.find('%'); at != std::string::npos; at = command.find('%')) {
        command.replace(at, 1, archive.path());
    }
    std::string const output = archive.folder() + "/output";
    int const status = std::system(
        ("cd '" + archive.folder() + "' && (" + command + ") > '" + output + "' 2>&1 < /dev/null")
            .c_str());
    return contentOf(output) + (status == 0 ? "" : "\nfailed");
}

bool isInstalled(std::string const& tool) {
    return std::system(("command -v " + tool + " > /dev/null").c_str()) == 0;
}

void flushTwice(NewArchive const& archive) {
    for (char const* const name : {"more", "and more"}) {
        auto const provider = archive.open();
        write(*provider, archive.at(name), "new");
        flush(*provider);
    }
}

TEST(ZipFlushKeeps, AnArchiveThatStandsBefore) {
    NewArchive const archive("archive before");
    std::string const bytes = archive.bytes();
    std::string const before = bytes.substr(0, bytes.find("PK\5\6") + 22);
    ASSERT_THAT(before, StartsWith("PK\3\4"));
    flushTwice(archive);
    EXPECT_THAT(archive.bytes(), StartsWith(before));
    EXPECT_THAT(contentsOf(*archive.open(), archive.at("")),
                ElementsAre("b: 2", "more: new", "and more: new"));
}

TEST(ZipFlushKeeps, NoMemberThatAnotherOfItsNameHasReplaced) {
    NewArchive const archive("same name twice");
    flushTwice(archive);
    std::string const bytes = archive.bytes();
    int headers = 0;
    for (std::size_t at = bytes.find("PK\3\4"); at != std::string::npos;
         at = bytes.find("PK\3\4", at + 1)) {
        ++headers;
    }
    EXPECT_EQ(headers, 3);
    EXPECT_THAT(bytes, StartsWith("PK\3\4"));
}

TEST(ZipFlushKeeps, TheCommentOfAnArchive) {
    NewArchive const archive("comment");
    flushTwice(archive);
    EXPECT_THAT(archive.bytes(), EndsWith("a comment"));
    NewArchive const longest("long comment");
    flushTwice(longest);
    EXPECT_THAT(longest.bytes(), EndsWith(std::string(65'535, 'c')));
}

TEST(ZipFlushKeeps, TheCommentsOfMembersInTheSpellingOfTheirNames) {
    NewArchive const archive("comments of members"); // a, ü and é
    auto const provider = archive.open();
    provider->moveFile(archive.at("a"), archive.at("moved"), free);
    provider->moveFile(archive.at("\xC3\xBC"), archive.at("z\xC3\xBC"), free); // code page 437
    provider->moveFile(archive.at("\xC3\xA9"), archive.at("e"), free);
    flush(*provider);
    std::string const bytes = archive.bytes();
    EXPECT_THAT(bytes, HasSubstr("movedof the first"));
    EXPECT_THAT(bytes, HasSubstr("z\xC3\xBC\xC3\xBC"
                                 "ber"));
    EXPECT_THAT(bytes, HasSubstr("ef\xC3\xBCr"));
    if (isInstalled("python3")) {
        EXPECT_EQ(printed("python3 -c \"import zipfile; [print(ascii(m.filename), m.flag_bits)"
                          " for m in zipfile.ZipFile('%').infolist()]\"",
                          archive),
                  "'moved' 0\n'z\\xfc' 2048\n'e' 2048\n");
    }
}

TEST(ZipFlushKeeps, EncryptedContentThatIsMoved) {
    if (!isInstalled("zip") || !isInstalled("unzip") || !isInstalled("7z")) {
        GTEST_SKIP() << "zip, unzip or 7z is not installed";
    }
    NewArchive const archive;
    std::string const text = someBytes(5'000, 1);
    std::ofstream(archive.folder() + "/secret") << text;
    std::filesystem::remove(archive.path());
    ASSERT_EQ(printed("zip -q -P password % secret && mv secret plain", archive), "");
    {
        auto const provider = archive.open();
        EXPECT_EQ(codeOf([&] {
                      provider->setLastModified(archive.at("secret"), toPtime({1'000'000'000, 0}));
                  }),
                  11); // it has a descriptor, so that its bytes are checked against the time
        provider->createFolder(archive.at("folder"));
        provider->moveFile(archive.at("secret"), archive.at("folder/moved"), free);
        provider->setWritable(archive.at("folder/moved"), false);
        flush(*provider);
    }
    EXPECT_EQ(printed("timeout 60 unzip -P password -p % folder/moved", archive), text);
    EXPECT_EQ(printed("timeout 60 7z x -so -ppassword % folder/moved", archive), text);
    EXPECT_THAT(printed("timeout 60 unzip -P another -tq %", archive), EndsWith("failed"));
    auto const again = archive.open();
    EXPECT_EQ(again->getFileAttributes(archive.at("folder/moved")).values().mode, 0444U);
    EXPECT_EQ(codeOf([&] { again->openReadOnlyStream(archive.at("folder/moved")); }), 11);
}

TEST(ZipFlushKeeps, NothingOfWhatWasPendingAndIsRemoved) {
    NewArchive const archive;
    auto const provider = archive.open();
    write(*provider, archive.at("kept"), "1");
    write(*provider, archive.at("removed"), "2");
    auto const writer = provider->openStream(archive.at("written"), {});
    writer->write("3", 1);
    provider->removeFile(archive.at("removed"));
    provider->removeFile(archive.at("written"));
    flush(*provider);
    writer->write("4", 1);
    writer->close();
    flush(*provider);
    EXPECT_THAT(contentsOf(*archive.open(), archive.at("")), ElementsAre("kept: 1"));
    provider->removeFile(archive.at("kept"));
    flush(*provider);
    EXPECT_THAT(contentsOf(*archive.open(), archive.at("")), IsEmpty());
}

TEST(ZipFlush, OfAnItemThatIsGoneFails) {
    NewArchive const archive("links");
    auto const provider = archive.open();
    write(*provider, archive.at("new"), "1");
    std::filesystem::remove(archive.path());
    EXPECT_EQ(codeOf([&] { flush(*provider); }), 4);
    EXPECT_FALSE(std::filesystem::exists(archive.path()));
}

/// The location that a failing flush names.
StorageIRI locationOfFailure(IProvider& provider) {
    try {
        flush(provider);
    } catch (Exception const& failure) {
        EXPECT_EQ(failure.getErrorCode(), ErrorCode::IOError);
        return failure.getStorageIRI();
    }
    ADD_FAILURE() << "nothing fails";
    return StorageIRI(u"mem:/");
}

TEST(ZipFlush, NamesTheMemberThatItCannotCopy) {
    NewArchive const archive("folders"); // d/ d/e/f d/g
    std::string bytes = archive.bytes();
    bytes.replace(bytes.find("d/g") - 30, 4, "none");
    std::ofstream(archive.path(), std::ios::binary) << bytes;
    auto const provider = archive.open();
    write(*provider, archive.at("more"), "new");
    EXPECT_EQ(locationOfFailure(*provider), archive.at("d/g"));
    EXPECT_EQ(archive.bytes(), bytes);
    provider->moveFile(archive.at("d/g"), archive.at("moved"), free);
    EXPECT_EQ(locationOfFailure(*provider), archive.at("moved"));
    provider->removeFile(archive.at("moved"));
    flush(*provider);
    EXPECT_THAT(contentsOf(*archive.open(), archive.at("")),
                ElementsAre("d/", "d/e/", "d/e/f: 1", "more: new"));
}

} // namespace
} // namespace foundation::storage::provider::zip::test
