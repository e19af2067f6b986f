// How long things take: one deadline for a call, and none for what nobody waits for.

#include "trouble_fixture.hpp"

#include <foundation/storage/provider/copy_file_options.hpp>
#include <foundation/storage/provider/s3/detail/upload.hpp>

#include <chrono>

namespace foundation::storage::provider::s3 {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using ::testing::ElementsAre;

template<class Call>
milliseconds timeOfCall(Call const& call) {
    auto const before = steady_clock::now();
    call();
    return std::chrono::duration_cast<milliseconds>(steady_clock::now() - before);
}

class S3LettingGo : public TroubledBucket {};

// The store is silent for a minute, and is waited for half of that.

TEST_F(S3LettingGo, WhatIsReadAheadIsNotWaitedFor) {
    useStore("stalls_beyond_a_mebibyte");
    put("a", http::test::content(8 * mebibyte));
    auto stream = provider_->openReadOnlyStream(in(u"a"));
    std::string buffer(900'000, '\0');
    for (std::size_t got = 0; got < buffer.size();) {
        got += static_cast<std::size_t>(stream->read(buffer.data() + got, 100'000));
    }
    EXPECT_TRUE(buffer == http::test::content(900'000));
    auto const isAsked = [&] {
        for (std::string const& request : server_.requests()) {
            std::size_t const range = request.find("bytes=");
            if (range != std::string::npos && std::stoul(request.substr(range + 6)) >= mebibyte) {
                return true;
            }
        }
        return false;
    };
    while (!isAsked()) {
        std::this_thread::sleep_for(milliseconds(1));
    }
    EXPECT_LT(timeOfCall([&] {
                  provider_.reset();
                  stream.reset(); // the last handle
              }),
              seconds(10));
}

TEST_F(S3LettingGo, APageThatIsOnItsWayIsNotWaitedFor) {
    S3Options some = options();
    some.pageSize = 2;
    useStore("stalls_at_page_2", some);
    for (char const* key : {"a", "b", "c"}) {
        put(key);
    }
    auto cursor = provider_->listAll(in(u""), {});
    cursor->advance();
    cursor->advance();
    std::unique_ptr<IFolderEntryIterator> clone(cursor->cloneIterator());
    waitFor("continuation-token");
    EXPECT_LT(timeOfCall([&] {
                  provider_.reset();
                  cursor.reset();
                  clone.reset();
              }),
              seconds(10));
}

TEST_F(S3LettingGo, AnUploadThatIsDroppedWaitsForNoStoreThatIsSilent) {
    useStore("takes_parts_for_ever");
    auto const threads = std::make_shared<detail::RequestThreads>(1);
    auto const bucket = std::make_shared<detail::Bucket>(name_, bucket_->options());
    auto upload = std::make_unique<detail::Upload>(bucket, threads, "a", detail::PutConditions());
    upload->append(std::string(16 * mebibyte, 'x'));
    waitFor("partNumber=1");
    EXPECT_LT(timeOfCall([&] { upload.reset(); }), seconds(15));
    EXPECT_EQ(uploadsIn(*bucket_), 0U);
    EXPECT_EQ(server_.countOf("partNumber=2"), 0U) << "what had not begun does not begin";
}

TEST_F(S3LettingGo, AStreamThatIsDroppedWhereTheStoreRefusesItsPartsLeavesNothing) {
    useStore("refuses_parts");
    {
        auto const stream = replace(u"a");
        write(*stream, std::string(5 * mebibyte + 1, 'x'));
    }
    EXPECT_EQ(uploadsIn(*bucket_), 0U);
    EXPECT_TRUE(keys().empty());
}

TEST_F(S3LettingGo, StreamsOutliveTheirProvider) {
    std::string const bytes = http::test::content(6 * mebibyte);
    put("read", bytes);
    put("changed", "old");
    put("appended", "old ");
    auto const reading = provider_->openReadOnlyStream(in(u"read"));
    auto const written = replace(u"written");
    auto const dropped = replace(u"dropped");
    write(*written, bytes);
    write(*dropped, bytes);
    auto const changed = provider_->openStream(
        in(u"changed"), {ByteStreamAccess::ReadWrite, ByteStreamCreation::OpenExisting, 1, 1});
    auto const appended = provider_->openStream(
        in(u"appended"), {ByteStreamAccess::WriteOnly, ByteStreamCreation::OpenExisting, 1, 0});
    provider_.reset();
    EXPECT_TRUE(readAll(*reading) == bytes);
    for (auto* const stream : {changed.get(), appended.get()}) {
        write(*stream, "new");
        stream->close();
    }
    written->close();
    useStore("good");
    EXPECT_EQ(readIn(u"changed"), "new");
    EXPECT_EQ(readIn(u"appended"), "old new");
    EXPECT_TRUE(readIn(u"written") == bytes);
    EXPECT_EQ(uploadsIn(*bucket_), 1U) << "the one that is still open";
}

TEST_F(S3LettingGo, WhatIsMadeOnlyWhereNothingIsSeesOthersWhenItIsPublished) {
    for (std::size_t const size : {std::size_t{5}, 6 * mebibyte}) {
        {
            auto const stream =
                provider_->openReplacement(in(u"a"), ReplacementPolicy::FailIfExists);
            write(*stream, std::string(size, 'x'));
            put("a", "theirs");
            EXPECT_EQ(codeOfClose(*stream), refused(ErrorCode::ResourceAlreadyExists));
        }
        EXPECT_EQ(uploadsIn(*bucket_), 0U);
        EXPECT_EQ(readIn(u"a"), "theirs");
        provider_->removeFile(in(u"a"));
    }
}

// Each answer takes half a second.

TEST_F(S3LettingGo, OneDeadlineHoldsForAllThatACallAsks) {
    S3Options hasty = smallOptions();
    hasty.web.operationTimeout = milliseconds(900);
    useStore("takes_its_time", hasty);
    EXPECT_EQ(provider_->exists(in(u"a")), ExistsResult::Nothing) << "one answer comes in time";
    auto const expectFailure = [&](char const* what, auto const& call) {
        int code = -1;
        milliseconds const time = timeOfCall([&] { code = codeOf(call); });
        EXPECT_EQ(code, refused(ErrorCode::IOError)) << what;
        EXPECT_LT(time, seconds(3)) << what;
    };
    expectFailure("createFile", [&] { provider_->createFile(in(u"f/a")); });
    expectFailure("createFolder", [&] { provider_->createFolder(in(u"f/g")); });
    expectFailure("createFolderRecursive", [&] { provider_->createFolderRecursive(in(u"f/g/h")); });
    useStore("takes_its_time", smallOptions());
    put("a", "bytes");
    put("d/");
    useStore("takes_its_time", hasty);
    expectFailure("removeFile", [&] { provider_->removeFile(in(u"a")); });
    expectFailure("removeFolder", [&] { provider_->removeFolder(in(u"d")); });
    expectFailure("setLastModified", [&] {
        provider_->setLastModified(in(u"d"), toPtime({5, 0}));
    });
    expectFailure("copyFile",
                  [&] { provider_->copyFile(in(u"a"), StorageItem(provider_, in(u"b")), {}); });
    expectFailure("moveFile", [&] {
        provider_->moveFile(in(u"a"), in(u"b"), ReplacementPolicy::FailIfExists);
    });
    expectFailure("openStream", [&] { provider_->openStream(in(u"d/a"), {}); });
}

} // namespace
} // namespace foundation::storage::provider::s3
