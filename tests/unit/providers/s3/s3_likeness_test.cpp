// What an object has beside its bytes, and what becomes of it.

#include "trouble_fixture.hpp"

#include <foundation/storage/provider/copy_file_options.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>

namespace foundation::storage::provider::s3 {
namespace {

class S3Likeness : public TroubledBucket {
  protected:
    void putWithFields(std::string const& key, std::string const& bytes) const {
        bucket_->put(
            key, bytes,
            {.onlyIfMissing = false,
             .metadata = {{"owner", "ann"}, {"mtime", "1000000000"}},
             .contentFields = {{"Content-Type", "text/x-notes"}, {"Cache-Control", "max-age=5"}}},
            bucket_->deadline());
    }
    std::string field(std::string const& key, std::string const& name) const {
        auto const head = bucket_->head(key, bucket_->deadline());
        return std::string(head ? head->headers.find(name).value_or("none") : "no object");
    }
    void expectFields(std::string const& key) const {
        EXPECT_EQ(field(key, "Content-Type"), "text/x-notes") << key;
        EXPECT_EQ(field(key, "Cache-Control"), "max-age=5") << key;
        EXPECT_EQ(field(key, "x-amz-meta-owner"), "ann") << key;
    }
    void append(ustring const& path) const {
        auto const stream = provider_->openStream(
            in(path), {ByteStreamAccess::WriteOnly, ByteStreamCreation::OpenExisting, 1, 0});
        write(*stream, "tail");
        stream->close();
    }
    void change(ustring const& path) const {
        auto const stream = provider_->openStream(
            in(path), {ByteStreamAccess::ReadWrite, ByteStreamCreation::OpenExisting, 1, 1});
        write(*stream, "head");
        stream->close();
    }
    CopyStatus copy(ustring const& from, ustring const& to) const {
        return provider_->copyFile(in(from), StorageItem(provider_, in(to)), {});
    }
};

TEST_F(S3Likeness, StaysWithWhatIsAppendedToOrChanged) {
    for (std::size_t const size : {std::size_t{5}, 6 * mebibyte}) {
        putWithFields("a", std::string(size, 'x'));
        append(u"a");
        expectFields("a");
        EXPECT_EQ(field("a", "x-amz-meta-mtime"), "none") << "it was written now";
        putWithFields("b", std::string(size, 'x'));
        change(u"b");
        expectFields("b");
        EXPECT_EQ(field("b", "x-amz-meta-mtime"), "none");
    }
}

TEST_F(S3Likeness, GoesWithACopyOfAnySize) {
    for (std::size_t const size : {std::size_t{5}, 6 * mebibyte}) {
        putWithFields("a", std::string(size, 'x'));
        EXPECT_EQ(copy(u"a", u"b"), CopyStatus::CopiedWithTimes);
        expectFields("b");
        EXPECT_EQ(field("b", "x-amz-meta-mtime"), "1000000000");
        provider_->removeFile(in(u"b"));
    }
}

TEST_F(S3Likeness, IsToldOnceWhereAnAnswerTellsItTwice) {
    useStore("tells_fields_twice");
    for (std::size_t const size : {std::size_t{5}, 6 * mebibyte}) {
        putWithFields("a", std::string(size, 'x'));
        copy(u"a", u"b");
        expectFields("b");
        append(u"b");
        expectFields("b");
        provider_->removeFile(in(u"b"));
    }
}

TEST_F(S3Likeness, GoesAsFarAsItCanStandInARequest) {
    for (std::string const store :
         {"tells_odd_metadata", "tells_odd_names", "keeps_metadata_to_itself"}) {
        useStore(store);
        for (std::size_t const size : {std::size_t{5}, 6 * mebibyte}) {
            putWithFields("a", std::string(size, 'x'));
            copy(u"a", u"b");
            expectFields("b");
            append(u"b");
            expectFields("b");
            change(u"b");
            expectFields("b");
            EXPECT_EQ(codeOf([&] {
                          provider_->setLastModified(in(u"b"), toPtime({5, 0}));
                      }),
                      refused(ErrorCode::UnsupportedOperation))
                << store << " would lose some";
            provider_->removeFile(in(u"b"));
        }
    }
}

TEST_F(S3Likeness, TheLastOfTheTimesThatAStreamIsGivenCounts) {
    for (std::size_t const size : {std::size_t{5}, 6 * mebibyte}) {
        auto const stream = replace(u"a");
        auto& attributes = dynamic_cast<extensions::INewFileAttributes&>(*stream);
        attributes.setNewFileAttributes({0644, Timestamp{1'000'000'000, 0}});
        attributes.setNewFileAttributes({0644, Timestamp{1'100'000'000, 0}});
        write(*stream, std::string(size, 'x'));
        stream->close();
        EXPECT_EQ(field("a", "x-amz-meta-mtime"), "1100000000");
    }
}

} // namespace
} // namespace foundation::storage::provider::s3
