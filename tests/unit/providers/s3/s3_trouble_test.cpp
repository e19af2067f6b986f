// What becomes of files where the store, the machine or somebody else is in the way.

#include "../local/allocation_failure.hpp"
#include "trouble_fixture.hpp"

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/copy_file_options.hpp>
#include <foundation/storage/provider/s3/detail/upload.hpp>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

namespace foundation::storage::provider::s3 {
namespace {

using local::test::AllocationFailure;
using ::testing::ElementsAre;

class S3Trouble : public TroubledBucket {};

// Without memory, and without threads.

TEST_F(S3Trouble, AnUploadThatLosesAPartPublishesNothing) {
    put("a", "old");
    for (std::size_t before = 0, misses = 0; misses < 2; ++before) {
        useStore("good"); // whose threads are not there yet
        auto const stream = replace(u"a");
        write(*stream, std::string(5 * mebibyte + 1, 'x')); // the upload is begun
        std::string const rest(5 * mebibyte, 'y');
        bool happened = false;
        bool failed = false;
        {
            AllocationFailure const one(before, happened);
            try {
                stream->write(rest.data(), static_cast<long>(rest.size()));
            } catch (ByteStreamWriteFailure const&) {
                failed = true;
            }
        }
        misses += happened ? 0 : 1;
        if (failed) {
            EXPECT_THROW(write(*stream, "more"), ByteStreamWriteFailure) << before;
            EXPECT_THROW(stream->close(), ByteStreamCloseFailure) << before;
            EXPECT_EQ(readIn(u"a"), "old") << before;
        } else {
            stream->close();
            EXPECT_TRUE(readIn(u"a") == std::string(5 * mebibyte + 1, 'x') + rest) << before;
            put("a", "old");
        }
    }
    EXPECT_EQ(uploadsIn(*bucket_), 0U);
}

TEST_F(S3Trouble, WithoutAThreadAnUploadIsMadeByItsCaller) {
    auto const none = std::make_shared<detail::RequestThreads>(0);
    auto const shared = std::make_shared<detail::Bucket>("good", bucket_->options());
    detail::Upload upload(shared, none, "a", {});
    std::string const bytes = http::test::content(12 * mebibyte);
    upload.append(bytes);
    upload.finish();
    EXPECT_TRUE(readIn(u"a") == bytes);
}

TEST_F(S3Trouble, AReadThatFindsNoMemoryFailsForGood) {
    std::string const bytes = http::test::content(400'000);
    put("a", bytes);
    std::size_t failures = 0;
    for (std::size_t before = 0;; ++before) {
        auto const stream = provider_->openReadOnlyStream(in(u"a"));
        stream->seek(100'000, std::ios_base::beg);
        std::string buffer(200'000, '\0');
        bool happened = false;
        bool failed = false;
        {
            AllocationFailure const one(before, happened);
            try {
                stream->read(buffer.data(), 200'000);
            } catch (ByteStreamReadFailure const&) {
                failed = true;
            }
        }
        if (failed) {
            ++failures;
            EXPECT_THROW(stream->read(buffer.data(), 1), ByteStreamReadFailure) << before;
        } else {
            EXPECT_TRUE(buffer == bytes.substr(100'000, 200'000)) << before;
        }
        if (!happened) {
            break;
        }
    }
    EXPECT_GT(failures, 5U);
}

// Parts that do not come, and uploads that do not end.

TEST_F(S3Trouble, AnUploadWhosePartsAreRefusedLeavesNothing) {
    useStore("refuses_parts");
    put("a", "old");
    {
        auto const stream = replace(u"a");
        int code = codeOfStream<ByteStreamWriteFailure>(
            [&] { write(*stream, std::string(8 * mebibyte, 'x')); });
        code = code == -1 ? codeOfClose(*stream) : code;
        EXPECT_EQ(code, refused(ErrorCode::NoSpaceLeft));
    }
    EXPECT_EQ(uploadsIn(*bucket_), 0U);
    EXPECT_EQ(readIn(u"a"), "old");
}

TEST_F(S3Trouble, AnUploadThatIsNotCompletedLeavesNothing) {
    useStore("refuses_complete");
    put("a", "old");
    {
        auto const stream = provider_->openStream(in(u"a"), {});
        write(*stream, std::string(8 * mebibyte, 'x'));
        EXPECT_EQ(codeOfClose(*stream), refused(ErrorCode::PermissionDenied));
    }
    EXPECT_EQ(uploadsIn(*bucket_), 0U);
    EXPECT_EQ(readIn(u"a"), "old");
}

TEST_F(S3Trouble, AReplacementIsClosedAgainWhereTheFirstTimeFailed) {
    useStore("refuses_complete_once");
    put("a", "old");
    auto const stream = replace(u"a");
    write(*stream, std::string(8 * mebibyte, 'x'));
    EXPECT_EQ(codeOfClose(*stream), refused(ErrorCode::PermissionDenied));
    EXPECT_EQ(codeOfClose(*stream), -1);
    EXPECT_TRUE(readIn(u"a") == std::string(8 * mebibyte, 'x'));
    EXPECT_EQ(uploadsIn(*bucket_), 0U);
}

TEST_F(S3Trouble, AReplacementWhoseCompletionWasNotSeenIsFoundWhenItIsClosedAgain) {
    useStore("completes_and_is_gone_for_a_while");
    put("a", "old");
    auto const stream = replace(u"a");
    write(*stream, std::string(8 * mebibyte, 'x'));
    EXPECT_NE(codeOfClose(*stream), -1);
    EXPECT_EQ(uploadsIn(*bucket_), 0U);
    EXPECT_EQ(codeOfClose(*stream), -1);
    EXPECT_EQ(readIn(u"a").size(), 8 * mebibyte);
}

TEST_F(S3Trouble, ANewFileWhosePutWasNotSeenIsFoundWhenItIsClosedAgain) {
    for (bool const isChanged : {false, true}) {
        useStore(isChanged ? "puts_and_is_gone_for_a_while.2" : "puts_and_is_gone_for_a_while");
        auto const stream = provider_->openReplacement(in(u"a"), ReplacementPolicy::FailIfExists);
        write(*stream, "new");
        EXPECT_EQ(codeOfClose(*stream), refused(ErrorCode::PermissionDenied));
        EXPECT_EQ(uploadsIn(*bucket_), 0U); // from here on it is there again
        if (isChanged) {
            put("a", "theirs");
        }
        EXPECT_EQ(codeOfClose(*stream), isChanged ? refused(ErrorCode::ResourceAlreadyExists) : -1);
        EXPECT_EQ(readIn(u"a"), isChanged ? "theirs" : "new");
    }
}

TEST_F(S3Trouble, AStoreWithoutConditionsIsAskedBefore) {
    useStore("knows_no_conditions");
    provider_->createFolder(in(u"f"));
    provider_->createFile(in(u"f/a"));
    EXPECT_THAT(keys(), ElementsAre("f/", "f/a"));
    EXPECT_EQ(codeOf([&] { provider_->createFile(in(u"f/a")); }),
              refused(ErrorCode::ResourceAlreadyExists));
    auto const stream = provider_->openReplacement(in(u"b"), ReplacementPolicy::FailIfExists);
    write(*stream, "mine");
    put("b", "theirs");
    EXPECT_EQ(codeOfClose(*stream), refused(ErrorCode::ResourceAlreadyExists));
    EXPECT_EQ(readIn(u"b"), "theirs");
}

// Folders that are remembered.

TEST_F(S3Trouble, AFolderThatOthersRemovedIsMadeAgain) {
    provider_->createFolderRecursive(in(u"a/b"));
    bucket_->remove("a/b/", bucket_->deadline());
    provider_->createFolderRecursive(in(u"a/b"));
    EXPECT_THAT(keys(), ElementsAre("a/", "a/b/"));
}

TEST_F(S3Trouble, ARemovalWithoutAnswerIsNotBelievedToBeUndone) {
    useStore("loses_removals");
    provider_->createFolder(in(u"a"));
    provider_->createFile(in(u"a/b"));
    EXPECT_EQ(codeOf([&] { provider_->removeFolderRecursively(in(u"a")); }),
              refused(ErrorCode::PermissionDenied));
    EXPECT_EQ(codeOf([&] { provider_->createFile(in(u"a/c")); }),
              refused(ErrorCode::ResourceNotFound));
    provider_->createFolder(in(u"d"));
    EXPECT_EQ(codeOf([&] { provider_->removeFolder(in(u"d")); }),
              refused(ErrorCode::PermissionDenied));
    EXPECT_EQ(codeOf([&] { provider_->createFile(in(u"d/c")); }),
              refused(ErrorCode::ResourceNotFound));
}

TEST_F(S3Trouble, TheTimeOfAFolderLeavesTheBytesOfItsMarker) {
    put("a/", "bytes that others keep there");
    Timestamp const time{1'000'000'000, 0};
    provider_->setLastModified(in(u"a"), toPtime(time));
    EXPECT_EQ(provider_->getFolderAttributes(in(u"a")).values().lastModified, time);
    std::string bytes(28, '?');
    bucket_->read("a/", 0, bytes, {}, bucket_->deadline());
    EXPECT_EQ(bytes, "bytes that others keep there");
}

TEST_F(S3Trouble, AFailureInAPageComesOnceAndEndsTheListing) {
    name_ = "fails_at_page_2_once";
    S3Options some = options();
    some.pageSize = 1;
    use(some, name_);
    put("a");
    put("b");
    auto const cursor = provider_->listAll(in(u""), {});
    cursor->advance();
    ASSERT_TRUE(cursor->hasNext());
    EXPECT_EQ(codeOf([&] { cursor->advance(); }), refused(ErrorCode::PermissionDenied));
    EXPECT_FALSE(cursor->hasNext());
    EXPECT_THROW(cursor->advance(), std::logic_error);
}

// Somebody else.

TEST_F(S3Trouble, AnAppendToAFileThatOthersWriteMeanwhileLeavesTheirs) {
    useStore("others_write_behind_a_copied_part");
    put("a", std::string(6 * mebibyte, 'O'));
    {
        auto const stream = provider_->openStream(
            in(u"a"), {ByteStreamAccess::WriteOnly, ByteStreamCreation::OpenExisting, 1, 0});
        write(*stream, "tail");
        EXPECT_EQ(codeOfClose(*stream), refused(ErrorCode::IOError));
    }
    EXPECT_TRUE(readIn(u"a") == std::string(9 * mebibyte, 'N'));
    EXPECT_EQ(uploadsIn(*bucket_), 0U);
}

TEST_F(S3Trouble, AnAppendToAFileThatIsGoneFails) {
    put("a", "old");
    auto const stream = provider_->openStream(
        in(u"a"), {ByteStreamAccess::WriteOnly, ByteStreamCreation::OpenExisting, 1, 0});
    write(*stream, "tail");
    bucket_->remove("a", bucket_->deadline());
    EXPECT_EQ(codeOfClose(*stream), refused(ErrorCode::ResourceNotFound));
    EXPECT_EQ(provider_->exists(in(u"a")), ExistsResult::Nothing);
}

TEST_F(S3Trouble, ACopyByPartsIsOfOneVersionOrFails) {
    std::string const bytes = http::test::content(6 * mebibyte);
    put("a", bytes);
    CopyFileOptions options;
    std::uint64_t told = 0;
    options.progress = [&](std::uint64_t done, auto) {
        told = done;
        return true;
    };
    provider_->copyFile(in(u"a"), StorageItem(provider_, in(u"b")), options);
    EXPECT_TRUE(readIn(u"b") == bytes);
    EXPECT_EQ(told, bytes.size());

    useStore("others_write_behind_a_copied_part");
    put("a", bytes);
    EXPECT_EQ(
        codeOf([&] { provider_->copyFile(in(u"a"), StorageItem(provider_, in(u"b")), options); }),
        refused(ErrorCode::IOError));
    EXPECT_THAT(keys(), ElementsAre("a"));
    EXPECT_EQ(uploadsIn(*bucket_), 0U);
}

TEST_F(S3Trouble, AMoveLeavesWhatOthersWroteMeanwhile) {
    useStore("others_write_behind_a_copy");
    put("a", "old");
    EXPECT_EQ(
        codeOf([&] { provider_->moveFile(in(u"a"), in(u"b"), ReplacementPolicy::FailIfExists); }),
        refused(ErrorCode::IOError));
    EXPECT_EQ(readIn(u"a"), "theirs");
}

TEST_F(S3Trouble, AStreamClosedDuringAMoveWritesBehindIt) {
    useStore("copies_slowly");
    put("a", "old");
    auto const stream = provider_->openStream(in(u"a"), {});
    write(*stream, "new");
    auto moved = std::async(std::launch::async, [&] {
        provider_->moveFile(in(u"a"), in(u"b"), ReplacementPolicy::ReplaceExisting);
    });
    waitForCopy();
    stream->close();
    moved.get();
    EXPECT_EQ(readIn(u"b"), "old");
    EXPECT_EQ(readIn(u"a"), "new");
}

TEST_F(S3Trouble, AFileMadeDuringAMoveToItsNameIsRefused) {
    useStore("copies_slowly");
    put("a", "old");
    auto moved = std::async(std::launch::async, [&] {
        provider_->moveFile(in(u"a"), in(u"b"), ReplacementPolicy::FailIfExists);
    });
    waitForCopy();
    EXPECT_EQ(codeOf([&] { provider_->createFile(in(u"b")); }),
              refused(ErrorCode::ResourceAlreadyExists));
    moved.get();
    EXPECT_EQ(readIn(u"b"), "old");
}

TEST_F(S3Trouble, ProgressMayUseTheDestination) {
    for (std::size_t const size : {std::size_t{3}, 6 * mebibyte}) {
        put("a", std::string(size, 'x'));
        put("b", "old");
        CopyFileOptions options;
        options.policy = ReplacementPolicy::ReplaceExisting;
        options.progress = [&](std::uint64_t, auto) {
            provider_->removeFile(in(u"b"));
            return true;
        };
        auto copied = std::async(std::launch::async, [&] {
            provider_->copyFile(in(u"a"), StorageItem(provider_, in(u"b")), options);
        });
        // One that waits for itself would never end.
        if (copied.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
            std::fprintf(stderr, "the copy waits for its own callback\n");
            std::abort();
        }
        copied.get();
        EXPECT_TRUE(readIn(u"b") == std::string(size, 'x'));
    }
}

TEST_F(S3Trouble, ALargeObjectWithoutATagIsNotReadInPieces) {
    useStore("untagged");
    put("a", std::string(300'000, 'A'));
    EXPECT_EQ(codeOf([&] { readIn(u"a"); }), refused(ErrorCode::IOError));
    put("b", std::string(1000, 'A'));
    EXPECT_EQ(readIn(u"b").size(), 1000U);
}

TEST_F(S3Trouble, AChangeInPlaceSeesOthersWithoutTagsToo) {
    useStore("untagged");
    put("a", "old");
    auto const stream = provider_->openStream(
        in(u"a"), {ByteStreamAccess::ReadWrite, ByteStreamCreation::OpenExisting, 1, 1});
    write(*stream, "mine");
    put("a", "their bytes");
    EXPECT_EQ(codeOfClose(*stream), refused(ErrorCode::ResourceInUse));
    EXPECT_EQ(readIn(u"a").size(), 11U);
}

// Listings.

TEST_F(S3Trouble, AListingWithoutEndIsAFailure) {
    for (char const* behaviour :
         {"empty_pages_for_ever", "tokens_in_a_circle", "same_keys_for_ever"}) {
        useStore(behaviour);
        auto const call = [&](auto list) { return codeOf([&] { namesOf(*list()); }); };
        EXPECT_EQ(call([&] { return provider_->listAll(in(u"d"), {}); }),
                  refused(ErrorCode::IOError))
            << behaviour;
        EXPECT_EQ(call([&] { return provider_->listAllRecursive(in(u"d"), {}); }),
                  refused(ErrorCode::IOError))
            << behaviour;
    }
}

TEST_F(S3Trouble, ARemovalOrAMoveOfWhatNeverEndsIsAFailure) {
    for (char const* behaviour :
         {"empty_pages_for_ever", "tokens_in_a_circle", "same_keys_for_ever"}) {
        useStore(behaviour);
        EXPECT_EQ(codeOf([&] { provider_->removeFolderRecursively(in(u"d")); }),
                  refused(ErrorCode::IOError))
            << behaviour;
        EXPECT_EQ(codeOf([&] { provider_->removeFolder(in(u"d")); }), refused(ErrorCode::IOError))
            << behaviour;
    }
}

TEST_F(S3Trouble, EmptyPagesAreNoEnd) {
    useStore("empty_pages_first");
    put("d/");
    put("d/x", "1");
    EXPECT_TRUE(provider_->folderExists(in(u"d")));
    EXPECT_THAT(namesOf(*provider_->listAll(in(u"d"), {})), ElementsAre("x"));
    EXPECT_EQ(codeOf([&] { provider_->removeFolder(in(u"d")); }),
              refused(ErrorCode::FolderNotEmpty));
    provider_->removeFolderRecursively(in(u"d"));
    EXPECT_FALSE(provider_->folderExists(in(u"d")));
}

} // namespace
} // namespace foundation::storage::provider::s3
