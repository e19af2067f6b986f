// What moves, what stays where it is, and what a move that fails names.

#include "trouble_fixture.hpp"

#include <foundation/storage/provider/copy_file_options.hpp>
#include <foundation/storage/provider/s3/detail/key_locks.hpp>

#include <future>
#include <optional>
#include <thread>

namespace foundation::storage::provider::s3 {
namespace {

using ::testing::ElementsAre;

class S3Moves : public TroubledBucket {
  protected:
    void moveFolder(ustring const& from, ustring const& to) const {
        provider_->moveFolder(in(from), in(to), ReplacementPolicy::FailIfExists);
    }
};

TEST_F(S3Moves, NamesThatBeginAsAFolderDoesAreNotInIt) {
    for (char const* key : {"a", "a!", "a!/x", "a/", "a/x", "ab", "ab/x", "a0"}) {
        put(key, key);
    }
    moveFolder(u"a", u"z");
    EXPECT_THAT(keys(), ElementsAre("a", "a!", "a!/x", "a0", "ab", "ab/x", "z/", "z/x"));
    EXPECT_EQ(codeOf([&] { moveFolder(u"a", u"y"); }), refused(ErrorCode::InvalidLocation))
        << "only the file is left";
    put("a/x");
    provider_->removeFolderRecursively(in(u"a"));
    EXPECT_THAT(keys(), ElementsAre("a", "a!", "a!/x", "a0", "ab", "ab/x", "z/", "z/x"));
    put("z!");
    put("z0/");
    EXPECT_EQ(codeOf([&] { provider_->removeFolder(in(u"z")); }),
              refused(ErrorCode::FolderNotEmpty));
    provider_->removeFile(in(u"z/x"));
    provider_->removeFolder(in(u"z"));
    EXPECT_THAT(keys(), ElementsAre("a", "a!", "a!/x", "a0", "ab", "ab/x", "z!", "z0/"));
}

TEST_F(S3Moves, AStreamClosedDuringAFoldersMoveWritesBehindIt) {
    useStore("copies_slowly");
    put("a/x", "old");
    auto const stream = provider_->openStream(in(u"a/x"), {});
    write(*stream, "new");
    auto moved = std::async(std::launch::async, [&] { moveFolder(u"a", u"z"); });
    waitForCopy();
    stream->close();
    moved.get();
    EXPECT_EQ(readIn(u"z/x"), "old");
    EXPECT_EQ(readIn(u"a/x"), "new");
}

TEST_F(S3Moves, AFileMadeDuringAFoldersMoveToItsNameIsRefused) {
    useStore("copies_slowly");
    put("a/x", "old");
    auto moved = std::async(std::launch::async, [&] { moveFolder(u"a", u"z"); });
    waitForCopy();
    EXPECT_EQ(codeOf([&] { provider_->createFile(in(u"z")); }),
              refused(ErrorCode::ResourceAlreadyExists));
    EXPECT_EQ(codeOf([&] { provider_->createFolder(in(u"z")); }),
              refused(ErrorCode::ResourceAlreadyExists));
    moved.get();
    EXPECT_THAT(keys(), ElementsAre("z/x"));
}

TEST_F(S3Moves, AFolderLeavesWhatOthersWroteMeanwhile) {
    useStore("others_write_behind_a_copy");
    put("a/b", "old");
    put("a/c", "old");
    std::string const failure = placeOfFailure([&] { moveFolder(u"a", u"z"); });
    EXPECT_EQ(failure, "9 " + fl::i18n::to_string(in(u"a/b").toString()));
    EXPECT_EQ(readIn(u"a/b"), "theirs");

    useStore("others_write_below_behind_a_copy");
    put("a/b", "old");
    EXPECT_EQ(placeOfFailure([&] { moveFolder(u"a", u"z"); }),
              "9 " + fl::i18n::to_string(in(u"a/new").toString()));
    EXPECT_THAT(keys(), ElementsAre("a/b", "a/new", "z/b"));
}

TEST_F(S3Moves, AFailureNamesTheItemThatItIsAbout) {
    useStore("forgets_what_is_to_be_copied");
    put("a/b", "old");
    EXPECT_EQ(placeOfFailure([&] { moveFolder(u"a", u"z"); }),
              "4 s3://forgets_what_is_to_be_copied/a/b");
    put("a/b", "old");
    EXPECT_EQ(placeOfFailure(
                  [&] { provider_->copyFile(in(u"a/b"), StorageItem(provider_, in(u"b/b")), {}); }),
              "4 s3://forgets_what_is_to_be_copied/b/b")
        << "where it is to go there is no folder";
    put("b/");
    EXPECT_EQ(placeOfFailure(
                  [&] { provider_->copyFile(in(u"a/b"), StorageItem(provider_, in(u"b/b")), {}); }),
              "4 s3://forgets_what_is_to_be_copied/a/b");

    useStore("refuses_copies_to_b");
    put("a/b", "old");
    EXPECT_EQ(placeOfFailure([&] { moveFolder(u"a", u"z"); }), "2 s3://refuses_copies_to_b/z/b");

    useStore("keeps_what_is_called_b");
    put("a/b", "old");
    put("a/c", "old");
    EXPECT_EQ(placeOfFailure([&] { moveFolder(u"a", u"z"); }), "2 s3://keeps_what_is_called_b/a/b");
    EXPECT_THAT(keys(), ElementsAre("a/b", "z/b", "z/c"));
}

TEST_F(S3Moves, AFailureHasAReason) {
    auto const reason = [&] {
        try {
            moveFolder(u"a", u"z");
            return std::string();
        } catch (Exception const& failure) {
            return std::string(failure.getReason());
        }
    };
    useStore("others_write_behind_a_copy");
    put("a/b", "old");
    EXPECT_EQ(reason(), "it has changed while it was moved");
    useStore("keeps_what_is_called_b");
    put("a/b", "old");
    EXPECT_EQ(reason(), "the store answered AccessDenied (200)");
}

TEST_F(S3Moves, ARemovalNamesWhatIsRefused) {
    useStore("keeps_what_is_called_b");
    for (char const* key : {"d/a", "d/e/b", "d/e/c"}) {
        put(key);
    }
    EXPECT_EQ(placeOfFailure([&] { provider_->removeFolderRecursively(in(u"d")); }),
              "2 s3://keeps_what_is_called_b/d/e/b");
    EXPECT_THAT(keys(), ElementsAre("d/e/b"));
}

TEST_F(S3Moves, NothingIsRemovedBehindTheEndOfARemovalThatFails) {
    S3Options some = options();
    some.pageSize = 1;
    useStore("fails_at_page_3_and_removes_slowly", some);
    for (char const* key : {"d/1", "d/2", "d/3"}) {
        put(key);
    }
    EXPECT_EQ(codeOf([&] { provider_->removeFolderRecursively(in(u"d")); }),
              refused(ErrorCode::PermissionDenied));
    EXPECT_EQ(keys().size(), 3 - server_.countOf("?delete"));
}

TEST_F(S3Moves, ACopyByPartsThatFailsByItsSourceNamesIt) {
    useStore("others_write_behind_a_copied_part");
    put("a", http::test::content(6 * mebibyte));
    EXPECT_EQ(placeOfFailure(
                  [&] { provider_->copyFile(in(u"a"), StorageItem(provider_, in(u"b")), {}); }),
              "9 s3://others_write_behind_a_copied_part/a");
}

TEST_F(S3Moves, AKeyThatWouldBeTooLongIsRefusedBeforeAnythingIsCopied) {
    std::string const name(1000, 'x');
    put("a/" + name, "old");
    put("a/b", "old");
    EXPECT_EQ(codeOf([&] { moveFolder(u"a", ustring(30, u'z')); }),
              refused(ErrorCode::InvalidLocation));
    EXPECT_THAT(keys(), ElementsAre("a/b", "a/" + name));
}

TEST_F(S3Moves, LargeFilesMoveWithTheirFolder) {
    std::string const bytes = http::test::content(6 * mebibyte);
    put("a/large", bytes);
    put("a/small", "x");
    moveFolder(u"a", u"z");
    EXPECT_THAT(keys(), ElementsAre("z/large", "z/small"));
    EXPECT_TRUE(readIn(u"z/large") == bytes);
    EXPECT_EQ(uploadsIn(*bucket_), 0U);
}

// Locks.

bool isFree(detail::KeyLocks& locks, std::set<std::string> keys,
            std::set<std::string> prefixes = {},
            std::chrono::milliseconds patience = std::chrono::milliseconds(0)) {
    try {
        auto const held = locks.lock(web::Deadline(patience), std::move(keys), std::move(prefixes));
        return true;
    } catch (web::Failure const& failure) {
        EXPECT_EQ(failure.code(), ErrorCode::ResourceInUse);
        return false;
    }
}

TEST(S3Locks, KeepKeysAndWhatBeginsLikeAPrefixApart) {
    detail::KeyLocks locks;
    web::Deadline const soon(std::chrono::seconds(10));
    {
        auto const held = locks.lock(soon, {"a", "b/"});
        EXPECT_FALSE(isFree(locks, {"a"}));
        EXPECT_FALSE(isFree(locks, {"x", "b/"}));
        EXPECT_FALSE(isFree(locks, {}, {"b/"}));
        EXPECT_FALSE(isFree(locks, {}, {""}));
        EXPECT_TRUE(isFree(locks, {"ab", "b", "b/c"}, {"a/"}));
    }
    {
        auto const held = locks.lock(soon, {}, {"a/", "b/c/"});
        EXPECT_FALSE(isFree(locks, {"a/"}));
        EXPECT_FALSE(isFree(locks, {"a/b/c"}));
        EXPECT_FALSE(isFree(locks, {}, {"a/b/"}));
        EXPECT_FALSE(isFree(locks, {}, {"b/"}));
        EXPECT_TRUE(isFree(locks, {"a", "ab", "b/", "b/c"}, {"b/cd/"}));
    }
    EXPECT_TRUE(isFree(locks, {"a"}, {"b/"}));
}

TEST(S3Locks, AreWaitedForNoLongerThanTheDeadline) {
    detail::KeyLocks locks;
    auto const held = locks.lock(web::Deadline(std::chrono::seconds(10)), {"a"});
    auto const before = std::chrono::steady_clock::now();
    EXPECT_THROW(locks.lock(web::Deadline(std::chrono::milliseconds(50)), {"a"}), web::Failure);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(50));
}

TEST(S3Locks, AreHadInTheOrderInWhichTheyAreAskedFor) {
    detail::KeyLocks locks;
    std::optional<detail::KeyLocks::Held> held;
    held.emplace(locks, detail::KeyLocks::Names{.keys = {"a/1"}},
                 web::Deadline(std::chrono::seconds(10)));
    auto tree = std::async(std::launch::async, [&] {
        auto const all = locks.lock(web::Deadline(std::chrono::seconds(60)), {}, {"a/"});
    });
    // Whoever comes behind it waits, or one after the other would keep it from its turn.
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (isFree(locks, {"a/2"}) && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_FALSE(isFree(locks, {"a/2"}));
    EXPECT_TRUE(isFree(locks, {"b"}));
    held.reset();
    tree.get();
    EXPECT_TRUE(isFree(locks, {"a/2"}));
}

TEST(S3Locks, AreFreeForTheNextWhereSomebodyWaitsNoLonger) {
    detail::KeyLocks locks;
    web::Deadline const late(std::chrono::seconds(60));
    auto const held = locks.lock(late, {"a/1"});
    auto tree = std::async(std::launch::async, [&] {
        EXPECT_FALSE(isFree(locks, {}, {"a/"}, std::chrono::milliseconds(300)));
    });
    while (isFree(locks, {"a/2"}) &&
           tree.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) {
    }
    auto const before = std::chrono::steady_clock::now();
    auto const other = locks.lock(late, {"a/2"});
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(30));
    tree.get();
}

} // namespace
} // namespace foundation::storage::provider::s3
