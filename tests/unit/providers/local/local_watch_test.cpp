#include "watch_fixture.hpp"

#include "child_process.hpp"

#include <foundation/storage/provider/local_path.hpp>

#include <gmock/gmock.h>

#include <sys/stat.h>
#include <unistd.h>

namespace foundation::storage::provider::local::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using LocalWatch = LocalWatchTest;

void append(std::string const& path, std::string_view text) {
    FILE* const file = std::fopen(path.c_str(), "a");
    ASSERT_NE(file, nullptr);
    ASSERT_EQ(std::fwrite(text.data(), 1, text.size(), file), text.size());
    ASSERT_EQ(std::fclose(file), 0);
}

TEST_F(LocalWatch, MissingItemsAreNotPublished) {
    EXPECT_TRUE(
        isRefused([&] { publishFile("missing"); }, ErrorCode::ResourceNotFound, at("missing")));
    EXPECT_TRUE(isRefused([&] { publish("missing"); }, ErrorCode::ResourceNotFound, at("missing")));
    EXPECT_TRUE(isRefused([&] { publishTree("w/missing/x"); }, ErrorCode::ResourceNotFound,
                          at("w/missing/x")));
    EXPECT_THAT(watchThreads(), IsEmpty());
}

TEST_F(LocalWatch, AFolderIsNoFileAndAFileIsNoFolder) {
    makeFile("file");

    EXPECT_TRUE(isRefused([&] { publishFile("w"); }, ErrorCode::InvalidLocation, at("w")));
    EXPECT_TRUE(isRefused([&] { publish("file"); }, ErrorCode::InvalidLocation, at("file")));
    EXPECT_TRUE(isRefused([&] { publishTree("file"); }, ErrorCode::InvalidLocation, at("file")));
}

TEST_F(LocalWatch, DeniedFoldersAreNotPublished) {
    makeFolder("denied", 0);
    makeFolder("closed", 0);

    EXPECT_EQ(inChild([&]() -> std::string {
                  becomeUnprivileged();
                  auto const refused = [&](auto const& call) {
                      auto const refusal = refusalOf(call);
                      return refusal && refusal->code == ErrorCode::PermissionDenied;
                  };
                  return refused([&] { publish("denied"); }) &&
                                 refused([&] { publishTree("denied"); }) &&
                                 refused([&] { publishFile("closed/file"); })
                             ? "refused"
                             : "published";
              }),
              "refused");
}

TEST_F(LocalWatch, ChildrenOfAFolderAreReported) {
    makeFile("w/old", "old");
    publish();

    makeFile("w/new");
    append(path("w/old"), "more");
    ASSERT_EQ(::chmod(path("w/old").c_str(), 0600), 0);
    makeFolder("w/sub"); // and gives it a mode, as makeFile() does
    remove("w/old");
    remove("w/sub");

    EXPECT_THAT(reports(),
                ElementsAre("+ file w/new", "~ file w/new", "* file w/old", "~ file w/old",
                            "+ folder w/sub", "~ folder w/sub", "- file w/old", "- folder w/sub"));
}

TEST_F(LocalWatch, WhatIsDeeperInAFlatlyPublishedFolderIsNotReported) {
    makeFolder("w/sub");
    publish();

    makeFile("w/sub/file");

    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(LocalWatch, TheLocationIsEchoedAsItWasGiven) {
    StorageIRI const given(u"file://localhost" + at("w").getPath() + u"//");
    provider_->publishFolderEvents(given, log_.callback(), namesOnly,
                                   RecursiveFileWatching::NonRecursive);

    makeFile("w/file");

    ASSERT_TRUE(log_.waitForEntry(Kind::Created, "w/file"));
    std::string const text(given.toString().begin(), given.toString().end());
    EXPECT_EQ(log_.changes().front().watchedText, text);
}

TEST_F(LocalWatch, OnlyTheKindsAskedForAreReported) {
    makeFile("w/old");
    publish("w", {Kind::Created});

    append(path("w/old"), "more");
    remove("w/old");
    makeFile("w/new");

    EXPECT_THAT(reports(), ElementsAre("+ file w/new"));
}

TEST_F(LocalWatch, AMoveWithinAFolderTellsBothEnds) {
    makeFile("w/a");
    publish();

    rename("w/a", "w/b");

    EXPECT_THAT(reports(), ElementsAre("- file w/a -> w/b", "+ file w/b <- w/a"));
}

TEST_F(LocalWatch, AMoveInOrOutIsACreationOrARemoval) {
    makeFile("w/goes");
    makeFile("comes");
    publish();

    rename("w/goes", "gone");
    rename("comes", "w/come");

    EXPECT_THAT(reports(), ElementsAre("- file w/goes", "+ file w/come"));
}

TEST_F(LocalWatch, TheFolderItselfIsReportedUnderItsOwnName) {
    publish();

    ASSERT_EQ(::chmod(path("w").c_str(), 0700), 0);

    ASSERT_TRUE(log_.waitForEntry(Kind::AttributesChanged, "w"));
    EXPECT_EQ(log_.changes().front().watched, "w");
    EXPECT_EQ(log_.changes().front().type, EntryType::Folder);
}

TEST_F(LocalWatch, AFolderThatIsRemovedAndMadeAgainIsGoneOnWith) {
    makeFile("w/first");
    publish("w", namesOnly);

    remove("w");
    ASSERT_TRUE(log_.waitForEntry(Kind::Removed, "w"));
    makeFolder("next");
    makeFile("next/found");
    rename("next", "w");

    EXPECT_THAT(reports(),
                ElementsAre("- file w/first", "- folder w", "+ folder w", "+ file w/found"));
}

TEST_F(LocalWatch, AFolderIsFoundAgainWhereTheOneAboveWasRemovedToo) {
    makeFolder("w/above");
    makeFolder("w/above/x");
    publish("w/above/x", namesOnly);

    remove("w/above");
    ASSERT_TRUE(log_.waitForEntry(Kind::Removed, "w/above/x"));
    makeFolder("w/above");
    makeFolder("w/above/x");

    ASSERT_TRUE(log_.waitForEntry(Kind::Created, "w/above/x"));
    EXPECT_THAT(reports("w/above/x"), ElementsAre("- folder w/above/x", "+ folder w/above/x"));
}

TEST_F(LocalWatch, AFolderThatIsMovedAwayIsRemoved) {
    publish("w", namesOnly);

    rename("w", "elsewhere");
    ASSERT_TRUE(log_.waitForEntry(Kind::Removed, "w"));
    makeFile("elsewhere/unseen");
    makeFolder("w");

    EXPECT_THAT(reports(), ElementsAre("- folder w", "+ folder w"));
}

TEST_F(LocalWatch, AFolderWhoseParentIsMovedAwayIsRemoved) {
    makeFolder("w/sub");
    publish("w/sub", namesOnly);

    rename("w", "elsewhere");

    ASSERT_TRUE(log_.waitForEntry(Kind::Removed, "w/sub"));
    makeFolder("w");
    makeFolder("w/sub");
    EXPECT_THAT(reports("w/sub"), ElementsAre("- folder w/sub", "+ folder w/sub"));
}

TEST_F(LocalWatch, AFolderIsRemovedWhenOneFarAboveIsMovedAway) {
    makeFolder("w/a");
    makeFolder("w/a/b");
    makeFolder("w/a/b/sub");
    makeFile("w/a/b/file");
    publish("w/a/b/sub", namesOnly);
    publishFile("w/a/b/file", namesOnly);

    rename("w", "elsewhere");

    ASSERT_TRUE(log_.waitForEntry(Kind::Removed, "w/a/b/sub"));
    ASSERT_TRUE(log_.waitForEntry(Kind::Removed, "w/a/b/file"));
    makeFile("elsewhere/a/b/sub/unseen");
    rename("elsewhere", "w");
    ASSERT_TRUE(log_.waitForEntry(Kind::Created, "w/a/b/sub"));
    EXPECT_TRUE(log_.waitForEntry(Kind::Created, "w/a/b/sub/unseen"));
    EXPECT_TRUE(log_.waitForEntry(Kind::Created, "w/a/b/file"));
}

TEST_F(LocalWatch, AFolderBehindALinkIsWatched) {
    makeLink("link", "w");
    publish("link", namesOnly);

    makeFile("w/file");

    ASSERT_TRUE(log_.waitForEntry(Kind::Created, "link/file"));
    EXPECT_EQ(log_.changes().front().watched, "link");
}

TEST_F(LocalWatch, RemovingWhatALinkLeadsToRemovesTheFolder) {
    makeLink("link", "w");
    publish("link", namesOnly);

    remove("w");

    EXPECT_TRUE(log_.waitForEntry(Kind::Removed, "link"));
}

TEST_F(LocalWatch, AFileIsReported) {
    makeFile("w/file", "a");
    makeFile("w/other", "a");
    publishFile("w/file");
    publish("w", {Kind::Created}); // for settle()

    append(path("w/file"), "b");
    append(path("w/other"), "b");
    ASSERT_EQ(::chmod(path("w/file").c_str(), 0600), 0);
    remove("w/file");

    EXPECT_THAT(reports(), ElementsAre("* file w/file", "~ file w/file", "- file w/file"));
    EXPECT_EQ(log_.changes().front().watched, "w/file");
}

TEST_F(LocalWatch, AFileThatIsReplacedByARenameIsGoneOnWith) {
    makeFile("w/file", "old");
    makeFile("new", "new");
    publishFile("w/file");

    rename("new", "w/file");
    ASSERT_TRUE(log_.waitForEntry(Kind::Created, "w/file"));
    append(path("w/file"), "more");

    EXPECT_TRUE(log_.waitForEntry(Kind::Modified, "w/file"));
}

TEST_F(LocalWatch, AFileThatIsRemovedAndMadeAgainIsGoneOnWith) {
    makeFile("w/file");
    publishFile("w/file", namesOnly);
    publish("w", {Kind::Created});

    remove("w/file");
    makeFile("w/file");

    EXPECT_THAT(reports(), ElementsAre("- file w/file", "+ file w/file", "+ file w/file"));
}

TEST_F(LocalWatch, AFileWhoseFolderGoesIsRemovedAndFoundAgain) {
    makeFolder("w/sub");
    makeFile("w/sub/file");
    publishFile("w/sub/file", namesOnly);

    rename("w/sub", "w/moved");
    ASSERT_TRUE(log_.waitForEntry(Kind::Removed, "w/sub/file"));
    rename("w/moved", "w/sub");

    EXPECT_TRUE(log_.waitForEntry(Kind::Created, "w/sub/file"));
}

TEST_F(LocalWatch, ALinkIsAFile) {
    makeLink("w/link", "nowhere");
    publishFile("w/link", namesOnly);

    remove("w/link");

    ASSERT_TRUE(log_.waitForEntry(Kind::Removed, "w/link"));
    EXPECT_EQ(log_.changes().front().type, EntryType::File);
}

TEST_F(LocalWatch, NamesThatAreNotUnicodeAreReportedAsTheyAre) {
    publish("w", namesOnly);

    makeFile("w/\xFF\xC3\xA4");

    EXPECT_TRUE(log_.waitForEntry(Kind::Created, "w/\xFF\xC3\xA4"));
}

TEST_F(LocalWatch, APublicationOfAFileAndOneOfItsFolderAreTwo) {
    makeFile("w/file");
    publish("w", namesOnly);
    publishFile("w/file", namesOnly);

    provider_->stopPublishingFileEvents(at("w"));
    provider_->stopPublishingFolderEvents(at("w/file"));
    remove("w/file");

    EXPECT_THAT(reports(), ElementsAre("- file w/file", "- file w/file"));
}

} // namespace

} // namespace foundation::storage::provider::local::test
