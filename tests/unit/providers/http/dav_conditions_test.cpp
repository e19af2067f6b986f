// Changes that are held to what was seen before, and to the time that they may take.

#include "dav_fixture.hpp"

#include <chrono>

namespace foundation::storage::provider::http::test {
namespace {

using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;
using enum ReplacementPolicy;

class DavConditions : public Dav {
  protected:
    /// On the content that the file has, for appending.
    std::unique_ptr<ByteStream> appending(std::string const& path) const {
        return provider_->openStream(
            at(path), {ByteStreamAccess::ReadWrite, ByteStreamCreation::OpenExisting, 1, 0});
    }
    /// Opens, lets somebody else write, and appends; the code of the close.
    int appendBesideAnother(std::string const& path) const {
        write(path, "bytes");
        auto const stream = appending(path);
        write(path, "their bytes");
        stream->write(", more", 6);
        return codeOfClose(*stream);
    }
};

TEST_F(DavConditions, KeepWhatAnotherHasWrittenSinceAFileWasRead) {
    EXPECT_EQ(appendBesideAnother("/dav-tagged/file"), 6);
    EXPECT_EQ(bytesOf("/dav-tagged/file"), "their bytes");
    EXPECT_EQ(server_.countOf("if-match: "), 1U);
}

// What was read is neither what was there before, nor what is there now.
TEST_F(DavConditions, HoldAlsoWhereAFileChangesAgainAndAgain) {
    std::string const file = "/dav-another-writes-often/changing";
    write(file, "bytes");
    auto const stream = appending(file);
    stream->write(", more", 6);
    EXPECT_EQ(codeOfClose(*stream), 6);
    EXPECT_EQ(bytesOf(file), "theirs again");
}

// Of no bytes, the answer to a request for some has no tag.
TEST_F(DavConditions, HoldAlsoForAFileThatWasEmpty) {
    std::string const file = "/dav-tagged/file";
    write(file, "");
    auto const stream = appending(file);
    auto const other = appending(file);
    stream->write("a line\n", 7);
    other->write("another\n", 8);
    EXPECT_EQ(codeOfClose(*stream), -1);
    EXPECT_EQ(codeOfClose(*other), 6);
    EXPECT_EQ(bytesOf(file), "a line\n");
}

TEST_F(DavConditions, AreOfNoEffectWhereTheServerKnowsNone) {
    EXPECT_EQ(appendBesideAnother("/dav-ignores-conditions/file"), -1);
    EXPECT_EQ(bytesOf("/dav-ignores-conditions/file"), "bytes, more");
    // Of two tags for one content it is not known which one a condition is about.
    EXPECT_EQ(appendBesideAnother("/dav-has-other-tags-to-read/file"), -1);
}

TEST_F(DavConditions, AreLeftOutWhereTheyContradictWhatTheServerTells) {
    std::string const file = "/dav-confuses-tags/file";
    write(file, "bytes");
    auto const stream = appending(file);
    stream->write(", more", 6);
    EXPECT_EQ(codeOfClose(*stream), -1);
    EXPECT_EQ(bytesOf(file), "bytes, more");
    provider_->removeFile(at(file));
    EXPECT_EQ(provider_->exists(at(file)), ExistsResult::Nothing);
    EXPECT_EQ(server_.countOf("if-match: "), 2U);
}

TEST_F(DavConditions, HoldAlsoWhereAnAnswerIsLost) {
    std::string const file = "/dav-loses-answers/file";
    write(file, "bytes");
    for (int i = 0; i < 2; ++i) {
        auto const stream = appending(file);
        stream->write(", more", 6);
        EXPECT_EQ(codeOfClose(*stream), -1);
    }
    EXPECT_EQ(bytesOf(file), "bytes, more, more");
    EXPECT_EQ(asked("PUT"), 2U + 2U); // the first one was sent again
}

// Nobody knows what became of the first one, until a second one is tried.
TEST_F(DavConditions, HoldAlsoWhereAClosingIsTriedAgain) {
    std::string const file = "/dav-falls-silent-behind/file";
    auto stream = replacement(file, FailIfExists);
    stream->write("bytes", 5);
    EXPECT_EQ(codeOfClose(*stream), 9);
    EXPECT_EQ(codeOfClose(*stream), -1);
    stream = appending(file);
    stream->write(", more", 6);
    EXPECT_EQ(codeOfClose(*stream), 9);
    EXPECT_EQ(codeOfClose(*stream), -1);
    EXPECT_EQ(bytesOf(file), "bytes, more");
}

// Where two append the same, one of them is not the other.
TEST_F(DavConditions, TakeTheSameFromAnotherForTheirOwnOnlyWhereTheyHaveSentIt) {
    std::string const file = "/dav-tagged/file";
    write(file, "a line\n");
    auto const stream = appending(file);
    auto const other = appending(file);
    stream->write("a line\n", 7);
    other->write("a line\n", 7);
    EXPECT_EQ(codeOfClose(*stream), -1);
    EXPECT_EQ(codeOfClose(*other), 6);
}

TEST_F(DavConditions, RemoveTheFileThatIsThereAndNoFolder) {
    std::string file = "/dav-another-writes/changing";
    write(file, "bytes");
    provider_->removeFile(at(file));
    EXPECT_EQ(provider_->exists(at(file)), ExistsResult::Nothing);
    EXPECT_EQ(asked("DELETE"), 2U);
    file = "/dav-makes-folders-of-files/changing";
    write(file, "bytes");
    EXPECT_EQ(codeOf([&] { provider_->removeFile(at(file)); }), 1);
    EXPECT_EQ(provider_->exists(at(file)), ExistsResult::Folder);
    EXPECT_EQ(asked("DELETE"), 3U);
}

// A tag that is none, as a field of a request could end there and another one begin.
TEST_F(DavConditions, AreMadeOfTagsThatCanBeSent) {
    for (char const* const path : {"/dav-breaks-tags/file", "/dav-has-weak-tags/file"}) {
        write(path, "bytes");
        provider_->removeFile(at(path));
    }
    EXPECT_EQ(asked("DELETE"), 2U);
    EXPECT_EQ(server_.countOf("if-match"), 0U);
    EXPECT_EQ(server_.countOf("x-injected"), 0U);
}

// A file of the same length is there, that of another one.
TEST_F(DavConditions, TakeAFileForTheirOwnByItsContentAlone) {
    std::string const file = "/dav-gives-names-away/file";
    auto const stream = replacement(file, FailIfExists);
    stream->write("bytes", 5);
    EXPECT_EQ(codeOfClose(*stream), 3);
    EXPECT_EQ(bytesOf(file), "XXXXX");
}

TEST_F(DavConditions, MakeNothingInAFolderThatIsMissing) {
    std::string const root = "/dav-makes-what-is-missing/";
    EXPECT_EQ(codeOf([&] { provider_->createFile(at(root + "none/file")); }), 4);
    EXPECT_EQ(codeOf([&] { provider_->createFolder(at(root + "none/folder")); }), 4);
    EXPECT_EQ(list(root), std::vector<std::string>{});
    provider_->createFolderRecursive(at(root + "some/folder"));
    EXPECT_THAT(list(root), ElementsAre("some/"));
}

TEST_F(DavConditions, LeaveAnItemAloneThatHasBothNames) {
    std::string const root = "/dav-knows-no-case/";
    write(root + "file", "bytes");
    write(root + "other", "bytes");
    provider_->createFolder(at(root + "folder"));
    EXPECT_EQ(
        codeOf([&] { provider_->moveFile(at(root + "file"), at(root + "FILE"), ReplaceExisting); }),
        1);
    EXPECT_EQ(codeOf([&] { copy(root + "file", root + "File", ReplaceExisting); }), 1);
    EXPECT_EQ(codeOf([&] {
                  provider_->moveFolder(at(root + "folder"), at(root + "Folder"), ReplaceExisting);
              }),
              1);
    provider_->moveFile(at(root + "file"), at(root + "other"), ReplaceExisting);
    EXPECT_THAT(list(root), UnorderedElementsAre("other", "folder/"));
    // Elsewhere they are two, which may be much the same.
    write("/dav-two/file", "bytes");
    write("/dav-two/FILE", "other bytes");
    provider_->moveFile(at("/dav-two/file"), at("/dav-two/FILE"), ReplaceExisting);
    EXPECT_EQ(bytesOf("/dav-two/FILE"), "bytes");
}

TEST_F(DavConditions, WaitForWhatAServerHasAccepted) {
    std::string const root = "/dav-accepts/";
    provider_->createFolder(at(root + "folder"));
    provider_->createFile(at(root + "file"));
    write(root + "file", "bytes");
    provider_->moveFile(at(root + "file"), at(root + "moved"), FailIfExists);
    EXPECT_EQ(bytesOf(root + "moved"), "bytes");
    provider_->removeFolder(at(root + "folder"));
    EXPECT_THAT(list(root), ElementsAre("moved"));
    // When a copy is complete, nobody knows.
    EXPECT_EQ(codeOf([&] { copy(root + "moved", root + "copy", FailIfExists); }), 11);
    EXPECT_EQ(provider_->exists(at(root + "copy")), ExistsResult::Nothing);
}

TEST_F(DavConditions, AreNotSentAgainWhereNobodyAnswersWhileTheServerIsAtWork) {
    std::string const root = "/dav-accepts-and-falls-silent/";
    provider_->createFolder(at(root + "folder"));
    EXPECT_EQ(asked("MKCOL"), 1U);
    provider_->removeFolder(at(root + "folder"));
    EXPECT_EQ(asked("DELETE"), 1U);
    EXPECT_EQ(list(root), std::vector<std::string>{});
}

TEST_F(DavConditions, FailWhereWhatWasAcceptedIsNotDone) {
    HttpOptions options = boundedOptions();
    options.web.operationTimeout = std::chrono::milliseconds(1000);
    auto const hasty = provider(options);
    EXPECT_EQ(codeOf([&] { hasty->createFolder(at("/dav-accepts-for-nothing/folder")); }), 9);
    EXPECT_EQ(asked("MKCOL"), 1U);
}

TEST_F(DavConditions, GiveASlowWayTheTimeThatItTakes) {
    HttpOptions options = boundedOptions();
    options.web.operationTimeout = std::chrono::milliseconds(1000);
    auto const hasty = provider(options);
    std::string const bytes = content(1'900'000);
    auto const stream = hasty->openStream(at("/dav-takes-slowly/file"), {});
    stream->write(bytes.data(), static_cast<long>(bytes.size()));
    EXPECT_EQ(codeOfClose(*stream), -1);
    EXPECT_EQ(provider_->getFileAttributes(at("/dav-takes-slowly/file")).values().size,
              bytes.size());
    EXPECT_EQ(asked("PUT"), 1U);
}

TEST_F(DavConditions, HaveOneDeadlineForAllThatTheyAskFor) {
    using Clock = std::chrono::steady_clock;
    HttpOptions options = boundedOptions();
    options.web.operationTimeout = std::chrono::milliseconds(2000);
    auto const hasty = provider(options);
    auto const spent = [](auto const& call) {
        auto const begun = Clock::now();
        call();
        return std::chrono::duration<double>(Clock::now() - begun).count();
    };
    std::string const root = "/dav-stalls-when-read/";
    write(root + "file", "bytes");
    EXPECT_LT(spent([&] {
                  ByteStreamOpenOptions const appending{ByteStreamAccess::ReadWrite,
                                                        ByteStreamCreation::OpenExisting, 1, 0};
                  EXPECT_EQ(codeOf([&] { hasty->openStream(at(root + "file"), appending); }), 9);
              }),
              3);
    auto const stream = dynamic_cast<extensions::IReplacingStreams&>(*hasty).openReplacement(
        at(root + "new"), FailIfExists);
    stream->write("bytes", 5);
    EXPECT_LT(spent([&] { EXPECT_EQ(codeOfClose(*stream), 9); }), 3);
    write("/dav-never-moves/file", "bytes");
    EXPECT_LT(spent([&] {
                  EXPECT_EQ(codeOf([&] {
                                hasty->copyFile(at("/dav-never-moves/file"),
                                                StorageItem(hasty, at("/dav-never-moves/copy")),
                                                {FailIfExists, 0, {}});
                            }),
                            9);
              }),
              3);
}

TEST_F(DavConditions, WaitNoLongerForAServerThatHasAllOfAFile) {
    using Clock = std::chrono::steady_clock;
    HttpOptions options = boundedOptions();
    options.web.operationTimeout = std::chrono::milliseconds(1000);
    auto const hasty = provider(options);
    std::string const bytes = content(1'900'000);
    auto const stream = hasty->openStream(at("/dav-never-answers/file"), {});
    stream->write(bytes.data(), static_cast<long>(bytes.size()));
    auto const begun = Clock::now();
    EXPECT_EQ(codeOfClose(*stream), 9);
    EXPECT_LT(Clock::now() - begun, std::chrono::seconds(20)); // of 30 for a slow way
}

} // namespace
} // namespace foundation::storage::provider::http::test
