// Changes on a server that speaks WebDAV, where it or the way to it misbehaves.

#include "dav_fixture.hpp"

namespace foundation::storage::provider::http::test {
namespace {

using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;
using enum ReplacementPolicy;

class DavChanges : public Dav {};

TEST_F(DavChanges, TakeFewRequests) {
    std::string const root = "/dav-counted/";
    auto const spent = [&](auto const& call) {
        std::size_t const before = server_.requests().size();
        call();
        return server_.requests().size() - before;
    };
    list(root);
    EXPECT_EQ(spent([&] { provider_->createFolder(at(root + "folder")); }), 3U);
    EXPECT_EQ(spent([&] { provider_->createFile(at(root + "file")); }), 3U);
    EXPECT_EQ(spent([&] { write(root + "written", "bytes"); }), 3U);
    EXPECT_EQ(spent([&] { write(root + "written", "other bytes"); }), 2U);
    EXPECT_EQ(spent([&] { list(root); }), 1U);
    EXPECT_EQ(spent([&] { provider_->exists(at(root + "file")); }), 1U);
    EXPECT_EQ(spent([&] { copy(root + "written", root + "copy", FailIfExists); }), 5U);
    EXPECT_EQ(
        spent([&] { provider_->moveFile(at(root + "copy"), at(root + "moved"), FailIfExists); }),
        4U);
    EXPECT_EQ(spent([&] {
                  provider_->moveFolder(at(root + "folder"), at(root + "other"), FailIfExists);
              }),
              4U);
    EXPECT_EQ(spent([&] { provider_->removeFile(at(root + "moved")); }), 2U);
    EXPECT_EQ(spent([&] { provider_->removeFolder(at(root + "other")); }), 2U);
    EXPECT_EQ(spent([&] { provider_->createFolderRecursive(at(root + "a/b")); }), 5U);
    EXPECT_EQ(spent([&] { provider_->removeFolderRecursively(at(root + "a")); }), 2U);
    EXPECT_THAT(list(root), UnorderedElementsAre("file", "written"));
    EXPECT_EQ(asked("OPTIONS"), 1U);
}

TEST_F(DavChanges, UseTheConnectionsThatAreThere) {
    std::string const root = "/dav-connected/";
    provider_->createFolder(at(root + "folder"));
    provider_->createFile(at(root + "file"));
    write(root + "file", "bytes");
    provider_->removeFile(at(root + "file"));
    provider_->removeFolderRecursively(at(root + "folder"));
    EXPECT_EQ(server_.countOf("on-connection: 1"), server_.requests().size());
    EXPECT_GT(asked("PUT") + asked("MKCOL") + asked("DELETE"), 4U);
}

TEST_F(DavChanges, AskOfAFolderOnceInAWhile) {
    HttpOptions options = boundedOptions();
    options.attributeLifetime = std::chrono::hours(1);
    auto const provider = this->provider(options);
    for (char const* const name : {"a", "b", "c"}) {
        auto const stream = provider->openStream(at(std::string("/dav-remembered/") + name), {});
        stream->close();
    }
    EXPECT_EQ(asked("PROPFIND"), 3U + 1U);
    EXPECT_EQ(asked("PUT"), 3U);
    provider->removeFolderRecursively(at("/dav-remembered/"));
    EXPECT_EQ(codeOf([&] { provider->openStream(at("/dav-remembered/d"), {}); }), 4);
    provider->createFolder(at("/dav-made/folder"));
    std::size_t const before = asked("PROPFIND");
    provider->createFile(at("/dav-made/folder/file"));
    EXPECT_EQ(asked("PROPFIND") - before, 1U); // of the file alone
}

// The server does what is asked, and the answer is lost on the way.
TEST_F(DavChanges, AreDoneOnceWhereTheirAnswersAreLost) {
    for (std::string const root :
         {"/dav-loses-answers/", "/dav-fails-behind/", "/dav-is-busy-behind/"}) {
        provider_->createFolder(at(root + "folder"));
        provider_->createFile(at(root + "file"));
        write(root + "file", "bytes");
        replacement(root + "new", FailIfExists)->close();
        copy(root + "file", root + "copy", FailIfExists);
        provider_->moveFile(at(root + "copy"), at(root + "moved"), FailIfExists);
        provider_->moveFolder(at(root + "folder"), at(root + "other"), FailIfExists);
        EXPECT_THAT(list(root), UnorderedElementsAre("file", "new", "moved", "other/")) << root;
        EXPECT_EQ(bytesOf(root + "moved"), "bytes") << root;
        provider_->removeFile(at(root + "moved"));
        provider_->removeFolder(at(root + "other"));
        EXPECT_THAT(list(root), UnorderedElementsAre("file", "new")) << root;
    }
}

// What stands on an open connection instead of an answer says nothing of the change.
TEST_F(DavChanges, AreDoneOnceWhereTheirAnswersAreNone) {
    std::string const root = "/dav-garbles-answers/";
    provider_->createFolder(at(root + "folder"));
    provider_->createFile(at(root + "file"));
    provider_->removeFile(at(root + "file"));
    provider_->removeFolder(at(root + "folder"));
    EXPECT_EQ(list(root), std::vector<std::string>{});
    for (char const* const method : {"MKCOL", "PUT"}) {
        EXPECT_EQ(asked(method), 1U) << method;
    }
    EXPECT_EQ(asked("DELETE"), 2U);
}

// The server goes on with what it was asked for, and is done when it is asked again.
TEST_F(DavChanges, AreTheirOwnAlsoWhereTheyAreDoneLate) {
    std::string const root = "/dav-is-late/";
    provider_->createFolder(at(root + "folder"));
    provider_->createFile(at(root + "file"));
    write(root + "file", "bytes");
    auto const stream = replacement(root + "new", FailIfExists);
    stream->write("bytes", 5);
    stream->close();
    EXPECT_THAT(list(root), UnorderedElementsAre("file", "new", "folder/"));
    provider_->removeFile(at(root + "file"));
    provider_->removeFolderRecursively(at(root + "folder"));
    EXPECT_THAT(list(root), ElementsAre("new"));
    EXPECT_EQ(asked("DELETE"), 4U);
}

TEST_F(DavChanges, TakeNoCopyForCompleteByItsSize) {
    std::string const root = "/dav-copies-by-halves/";
    write(root + "file", "bytes");
    copy(root + "file", root + "copy", FailIfExists);
    EXPECT_EQ(bytesOf(root + "copy"), "bytes");
    EXPECT_THAT(list(root), UnorderedElementsAre("file", "copy"));
    EXPECT_EQ(asked("COPY"), 2U);
}

TEST_F(DavChanges, WaitForAServerThatHasMuchToDo) {
    HttpOptions options = boundedOptions();
    options.web.stallTimeout = std::chrono::milliseconds(500);
    options.web.attempts = 1;
    auto const patient = provider(options);
    std::string const root = "/dav-takes-its-time/";
    patient->createFile(at(root + "file"));
    patient->copyFile(at(root + "file"), StorageItem(patient, at(root + "copy")),
                      {FailIfExists, 0, {}});
    patient->moveFile(at(root + "copy"), at(root + "moved"), FailIfExists);
    patient->removeFile(at(root + "moved"));
    for (char const* const method : {"PUT", "COPY", "DELETE"}) {
        EXPECT_EQ(asked(method), 1U) << method;
    }
    EXPECT_THAT(list(root), ElementsAre("file"));
}

TEST_F(DavChanges, AreSentAsOftenAsTheOptionsSay) {
    EXPECT_EQ(list("/dav-resets-questions/"), std::vector<std::string>{"code 9"});
    EXPECT_EQ(asked("PROPFIND"), 3U + 1U); // one of them on a connection that was open
    auto const stream = provider_->openStream(at("/dav-resets-changes/file"), {});
    EXPECT_EQ(codeOfClose(*stream), 9);
    EXPECT_THAT(asked("PUT"), ::testing::AllOf(::testing::Ge(3U), ::testing::Le(3U + 1U)));
}

TEST_F(DavChanges, AreNotSentAgainBeforeTheServerWantsThem) {
    std::string const root = "/dav-is-busy-for-an-hour/";
    EXPECT_EQ(codeOf([&] { provider_->createFolder(at(root + "folder")); }), 9);
    EXPECT_EQ(codeOf([&] { provider_->createFile(at(root + "file")); }), 9);
    EXPECT_EQ(codeOfClose(*provider_->openStream(at(root + "file"), {})), 9);
    EXPECT_EQ(asked("MKCOL"), 1U);
    EXPECT_EQ(asked("PUT"), 2U);
}

TEST_F(DavChanges, HaveOneDeadlineForAllRequests) {
    HttpOptions options = boundedOptions();
    options.web.operationTimeout = std::chrono::milliseconds(300);
    auto const hasty = provider(options);
    EXPECT_EQ(codeOf([&] { hasty->createFolderRecursive(at("/dav-is-slow/a/b/c/d/e")); }), 9);
    EXPECT_EQ(asked("MKCOL"), 0U);
}

// As one behind a proxy may, which knows itself by another scheme or port.
TEST_F(DavChanges, LeaveCopiesToTheCallerWhereTheServerTakesTheDestinationForAnother) {
    std::string const root = "/dav-is-called-otherwise/";
    write(root + "file", "bytes");
    EXPECT_EQ(codeOf([&] { copy(root + "file", root + "copy", FailIfExists); }), 11);
    EXPECT_EQ(
        codeOf([&] { provider_->moveFile(at(root + "file"), at(root + "moved"), FailIfExists); }),
        11);
    EXPECT_THAT(list(root), ElementsAre("file"));
}

// The requests are lost, and so nothing is done: all may be sent again but a move.
TEST_F(DavChanges, AreSentAgainWhereNothingWasDone) {
    std::string const root = "/dav-loses-requests/";
    provider_->createFolder(at(root + "folder"));
    provider_->createFile(at(root + "file"));
    write(root + "file", "bytes");
    EXPECT_EQ(
        codeOf([&] { provider_->moveFile(at(root + "file"), at(root + "moved"), FailIfExists); }),
        9);
    EXPECT_EQ(server_.countOf("\tMOVE\t"), 1U);
    EXPECT_EQ(codeOf([&] { copy(root + "file", root + "copy", FailIfExists); }), 9); // its move
    EXPECT_THAT(list(root), UnorderedElementsAre("file", "folder/")); // nothing beside it
    provider_->removeFolderRecursively(at(root + "folder"));
    EXPECT_THAT(list(root), ElementsAre("file"));
}

TEST_F(DavChanges, FollowNoRedirectToAFolder) {
    std::string const root = "/dav-led-to-folders/";
    provider_->createFolder(at(root + "folder"));
    EXPECT_NE(codeOf([&] { provider_->createFile(at(root + "file")); }), -1);
    EXPECT_EQ(server_.countOf("\tPUT\t" + root + "file/"), 0U);
    EXPECT_THAT(list(root), ElementsAre("folder/"));
}

TEST_F(DavChanges, LeaveWhatIsThereAlsoToServersThatKnowNoConditions) {
    std::string const root = "/dav-ignores-conditions/";
    write(root + "file", "theirs");
    EXPECT_EQ(codeOf([&] { provider_->createFile(at(root + "file")); }), 3);
    EXPECT_EQ(codeOf([&] { replacement(root + "file", FailIfExists); }), 3);
    auto const stream = replacement(root + "new", FailIfExists);
    write(root + "new", "theirs");
    EXPECT_EQ(codeOfClose(*stream), 3);
    EXPECT_EQ(bytesOf(root + "file"), "theirs");
    EXPECT_EQ(bytesOf(root + "new"), "theirs");
}

TEST_F(DavChanges, ShowAFileWhenItIsComplete) {
    std::string const root = "/dav-complete/";
    auto const stream = provider_->openStream(at(root + "file"), {});
    stream->write("bytes", 5);
    EXPECT_EQ(provider_->exists(at(root + "file")), ExistsResult::Nothing);
    stream->close();
    EXPECT_EQ(bytesOf(root + "file"), "bytes");
    provider_->openStream(at(root + "file"), {})->write("gone", 4); // and never closed
    EXPECT_EQ(bytesOf(root + "file"), "bytes");
    // Nothing is sent where nothing was changed.
    provider_
        ->openStream(at(root + "file"),
                     {ByteStreamAccess::ReadWrite, ByteStreamCreation::OpenExisting, 1, 1})
        ->close();
    EXPECT_EQ(asked("PUT"), 1U);
}

TEST_F(DavChanges, WriteMoreThanIsKeptInMemory) {
    HttpOptions options = quickOptions();
    options.maximumPendingMemory = 100'000;
    auto const provider = this->provider(options);
    StorageIRI const file = at("/dav-large/file");
    auto const stream = provider->openStream(file, {});
    std::string const bytes = content(900'000);
    for (std::size_t done = 0; done < bytes.size(); done += 9'000) {
        stream->write(bytes.data() + done, 9'000);
    }
    stream->close();
    EXPECT_EQ(readAt(*provider->openReadOnlyStream(file), 0, 1'000'000), bytes);
}

TEST_F(DavChanges, FailWithTheServersReasonAndMayBeTriedAgain) {
    EXPECT_EQ(codeOf([&] { provider_->createFolder(at("/dav-locked/folder")); }), 6);
    EXPECT_EQ(codeOf([&] { provider_->createFile(at("/dav-locked/file")); }), 6);
    auto const stream = provider_->openStream(at("/dav-full/file"), {});
    stream->write("bytes", 5);
    EXPECT_EQ(codeOfClose(*stream), 8);
    EXPECT_EQ(codeOfClose(*stream), 8);
    EXPECT_EQ(asked("PUT"), 3U);
}

TEST_F(DavChanges, NameTheItemThatKeepsAFolder) {
    std::string const root = "/dav-keeps-what-is-locked/";
    provider_->createFolderRecursive(at(root + "folder/below"));
    provider_->createFile(at(root + "folder/below/a locked"));
    try {
        provider_->removeFolderRecursively(at(root + "folder"));
        FAIL() << "it was removed";
    } catch (Exception const& failure) {
        EXPECT_EQ(failure.getErrorCode(), ErrorCode::ResourceInUse);
        EXPECT_EQ(failure.getStorageIRI(), at(root + "folder/below/a%20locked"));
    }
    EXPECT_EQ(codeOf([&] { provider_->removeFolder(at(root + "folder")); }), 0);
    EXPECT_EQ(codeOf([&] { provider_->removeFolderRecursively(at(root)); }), 6); // below it
}

// A folder that counted as a file would go with all that is in it.
TEST_F(DavChanges, LeaveAloneWhatTheServerDoesNotTellTheKindOf) {
    for (std::string const root : {"/dav-keeps-kinds-back/", "/dav-tells-no-kinds/"}) {
        provider_->createFolder(at(root + "folder"));
        EXPECT_EQ(codeOf([&] { provider_->removeFile(at(root + "folder")); }), 9) << root;
        EXPECT_EQ(codeOf([&] { replacement(root + "folder", ReplaceExisting); }), 9) << root;
        EXPECT_EQ(codeOf([&] { provider_->openStream(at(root + "folder"), {}); }), 9) << root;
        EXPECT_EQ(codeOf([&] {
                      provider_->moveFile(at(root + "folder"), at(root + "moved"), FailIfExists);
                  }),
                  9)
            << root;
        EXPECT_EQ(asked("DELETE") + asked("MOVE") + asked("PUT"), 0U) << root;
    }
}

TEST_F(DavChanges, SetTimesWhereTheServerTakesThem) {
    auto const time = toPtime({1'000'000'000, 0});
    provider_->createFile(at("/dav-sets-times/file"));
    provider_->setLastModified(at("/dav-sets-times/file"), time);
    EXPECT_EQ(provider_->getFileAttributes(at("/dav-sets-times/file")).getLastModified(), time);
    // One says that it does not, and another one that it does.
    for (std::string const root : {"/dav-keeps-times/", "/dav-takes-times-for-nothing/"}) {
        provider_->createFile(at(root + "file"));
        EXPECT_EQ(codeOf([&] { provider_->setLastModified(at(root + "file"), time); }), 11) << root;
        EXPECT_EQ(codeOf([&] { provider_->setLastModified(at(root + "none"), time); }), 4) << root;
        EXPECT_EQ(codeOf([&] { provider_->setWritable(at(root + "file"), false); }), 11) << root;
    }
}

TEST_F(DavChanges, LeaveTheRootWhereItIs) {
    provider_->createFolder(at("/dav-rooted/folder"));
    EXPECT_EQ(codeOf([&] { provider_->createFolder(at("/dav-rooted/folder")); }), 3);
    EXPECT_EQ(codeOf([&] {
                  provider_->moveFolder(at("/dav-rooted/folder"), at("/dav-rooted/folder/in"),
                                        ReplaceExisting);
              }),
              1);
    EXPECT_EQ(codeOf([&] {
                  provider_->moveFile(at("/dav-rooted/folder"),
                                      StorageIRI(u"http://other.example/x"), FailIfExists);
              }),
              11);
}

} // namespace
} // namespace foundation::storage::provider::http::test
