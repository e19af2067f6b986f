// What each operation asks of a store: the numbers that are told to users.

#include "provider_fixture.hpp"

#include <foundation/storage/provider/copy_file_options.hpp>

namespace foundation::storage::provider::s3 {
namespace {

using enum ReplacementPolicy;

class S3Costs : public ProviderOfBucket {
  protected:
    void SetUp() override {
        ProviderOfBucket::SetUp();
        for (std::string const key : {"f/", "f/old", "t/a", "t/b/c", "e/"}) {
            put(key, key.ends_with('/') ? "" : "bytes of " + key);
        }
    }
    /// Of a provider that remembers nothing yet.
    std::string cost(std::function<void()> const& call) {
        S3Options some = options();
        some.partSize = std::uint64_t{5} * 1024 * 1024;
        some.largestCopy = some.partSize;
        use(some);
        return asked(call);
    }
    void replace(ustring const& path, std::size_t size, ReplacementPolicy policy) const {
        auto const stream = provider_->openReplacement(at(path), policy);
        std::string const bytes(size, 'x');
        stream->write(bytes.data(), static_cast<long>(size));
        stream->close();
    }
    void copy(ustring const& from, ustring const& to, ReplacementPolicy policy) const {
        CopyFileOptions how;
        how.policy = policy;
        provider_->copyFile(at(from), StorageItem(provider_, at(to)), how);
    }
    static constexpr std::size_t large = std::size_t{11} * 1024 * 1024;
};

TEST_F(S3Costs, OfQuestions) {
    EXPECT_EQ(cost([&] { provider_->exists(at(u"f/old")); }), "LIST");
    EXPECT_EQ(cost([&] { provider_->exists(at(u"f/missing")); }), "LIST");
    EXPECT_EQ(cost([&] { provider_->fileExists(at(u"f/old")); }), "HEAD");
    EXPECT_EQ(cost([&] { provider_->getFileAttributes(at(u"f/old")); }), "HEAD");
    EXPECT_EQ(cost([&] { provider_->getFolderAttributes(at(u"f")); }), "HEAD");
    EXPECT_EQ(cost([&] { provider_->getFolderAttributes(at(u"t")); }), "HEAD LIST");
    EXPECT_EQ(cost([&] { folder(u"f"); }), "LIST");
    EXPECT_EQ(cost([&] { tree(u"t"); }), "LIST");
    EXPECT_EQ(cost([&] { read(u"f/old"); }), "GET");
}

// The first file in a folder asks once whether that is there.
TEST_F(S3Costs, OfSmallFiles) {
    EXPECT_EQ(cost([&] { provider_->createFile(at(u"f/1")); }), "LIST LIST PUT");
    EXPECT_EQ(cost([&] { replace(u"f/2", 10, FailIfExists); }), "LIST LIST PUT");
    EXPECT_EQ(cost([&] { replace(u"f/3", 10, ReplaceExisting); }), "LIST LIST PUT");
    EXPECT_EQ(cost([&] { replace(u"f/3", 10, ReplaceExisting); }), "LIST PUT");
    EXPECT_EQ(cost([&] {
                  provider_->createFile(at(u"f/4"));
                  replace(u"f/5", 10, FailIfExists);
              }),
              "LIST LIST PUT LIST PUT");
    EXPECT_EQ(cost([&] { provider_->removeFile(at(u"f/1")); }), "HEAD DELETE");
}

TEST_F(S3Costs, OfLargeFiles) {
    EXPECT_EQ(cost([&] { replace(u"f/1", large, FailIfExists); }),
              "LIST LIST POST PUT PUT PUT HEAD POST");
    EXPECT_EQ(cost([&] { replace(u"f/2", large, ReplaceExisting); }),
              "LIST LIST POST PUT PUT PUT POST");
    EXPECT_EQ(cost([&] { copy(u"f/1", u"f/3", FailIfExists); }),
              "HEAD LIST LIST POST PUT LIST HEAD HEAD POST");
    EXPECT_EQ(cost([&] { copy(u"f/1", u"f/4", ReplaceExisting); }),
              "HEAD LIST LIST POST PUT LIST HEAD POST");
}

TEST_F(S3Costs, OfCopiesAndMoves) {
    EXPECT_EQ(cost([&] { copy(u"f/old", u"f/1", FailIfExists); }), "HEAD LIST LIST HEAD PUT");
    EXPECT_EQ(cost([&] { copy(u"f/old", u"f/2", ReplaceExisting); }), "HEAD LIST LIST PUT");
    EXPECT_EQ(cost([&] { copy(u"f/old", u"f/2", ReplaceExisting); }), "HEAD LIST PUT");
    EXPECT_EQ(cost([&] { provider_->moveFile(at(u"f/1"), at(u"f/3"), FailIfExists); }),
              "HEAD LIST LIST HEAD PUT HEAD DELETE");
    EXPECT_EQ(cost([&] { provider_->moveFile(at(u"f/2"), at(u"f/4"), ReplaceExisting); }),
              "HEAD LIST LIST PUT HEAD DELETE");
    EXPECT_EQ(cost([&] { provider_->moveFile(at(u"f/4"), at(u"f/3"), ReplaceExisting); }),
              "HEAD LIST PUT HEAD DELETE");
    EXPECT_EQ(cost([&] { provider_->moveFolder(at(u"t"), at(u"u"), FailIfExists); }),
              "LIST LIST LIST PUT PUT LIST POST");
}

TEST_F(S3Costs, OfFolders) {
    EXPECT_EQ(cost([&] { provider_->createFolder(at(u"f/1")); }), "LIST LIST PUT");
    EXPECT_EQ(cost([&] { provider_->createFolderRecursive(at(u"f/1/2/3")); }),
              "LIST LIST LIST PUT PUT");
    EXPECT_EQ(cost([&] { provider_->removeFolder(at(u"e")); }), "LIST DELETE");
    EXPECT_EQ(cost([&] { provider_->removeFolderRecursively(at(u"f")); }), "LIST POST");
    EXPECT_EQ(cost([&] { provider_->setLastModified(at(u"t/a"), toPtime({5, 0})); }), "HEAD PUT");
    EXPECT_EQ(cost([&] {
                  provider_->setLastModified(at(u"t/b"), toPtime({5, 0}));
              }),
              "HEAD HEAD LIST PUT");
}

} // namespace
} // namespace foundation::storage::provider::s3
