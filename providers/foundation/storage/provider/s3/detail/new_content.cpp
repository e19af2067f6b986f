#include <foundation/storage/provider/s3/detail/new_content.hpp>

#include <foundation/storage/provider/s3/detail/likeness.hpp>

#include <algorithm>
#include <utility>
#include <vector>

namespace foundation::storage::provider::s3::detail {

namespace {

constexpr std::size_t pieceSize = std::size_t{1024} * 1024;

/// Calls with all bytes, piece by piece.
template<class Read, class Take>
void pass(std::uint64_t size, Read const& read, Take const& take) {
    std::vector<char> buffer(static_cast<std::size_t>(std::min<std::uint64_t>(pieceSize, size)));
    for (std::uint64_t position = 0; position < size;) {
        std::size_t const got = read(position, std::span<char>(buffer));
        take(position, std::span<char const>(buffer.data(), got));
        position += got;
    }
}

void append(spool::Content const& spool, Upload& upload) {
    pass(
        spool.size(),
        [&](std::uint64_t position, std::span<char> buffer) {
            return spool.read(position, buffer.data(), buffer.size());
        },
        [&](std::uint64_t, std::span<char const> bytes) { upload.append(bytes); });
}

} // namespace

void load(ObjectReader& reader, spool::Content& spool) {
    pass(
        reader.size(),
        [&](std::uint64_t position, std::span<char> buffer) {
            return reader.readAt(position, buffer);
        },
        [&](std::uint64_t position, std::span<char const> bytes) {
            spool.write(position, bytes.data(), bytes.size());
        });
}

NewContent::~NewContent() = default;

SentContent::SentContent(std::unique_ptr<Upload> upload) : upload_(std::move(upload)) {}

std::uint64_t SentContent::size() const {
    return upload_->size();
}

std::size_t SentContent::read(std::uint64_t, std::span<char>) {
    throw web::Failure(ErrorCode::PermissionDenied, "the stream is open for writing only");
}

void SentContent::write(std::uint64_t position, std::span<char const> bytes) {
    if (position < upload_->sent()) {
        throw web::Failure(ErrorCode::UnsupportedOperation,
                           "what stood there is on its way to the store already");
    }
    if (position > upload_->size()) {
        upload_->appendZeros(position - upload_->size());
    }
    auto const old =
        static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), upload_->size() - position));
    upload_->overwrite(position, bytes.first(old));
    upload_->append(bytes.subspan(old));
}

void SentContent::setLastModified(Timestamp time) {
    upload_->setLastModified(time);
}

void SentContent::publish() {
    upload_->finish();
}

SpooledContent::SpooledContent(spool::Content spool, bool isNew, MakeUpload makeUpload)
    : spool_(std::move(spool)),
      isChanged_(isNew),
      makeUpload_(std::move(makeUpload)) {}

std::uint64_t SpooledContent::size() const {
    return spool_.size();
}

std::size_t SpooledContent::read(std::uint64_t position, std::span<char> buffer) {
    return spool_.read(position, buffer.data(), buffer.size());
}

void SpooledContent::write(std::uint64_t position, std::span<char const> bytes) {
    isChanged_ = true;
    spool_.write(position, bytes.data(), bytes.size());
}

void SpooledContent::setLastModified(Timestamp time) {
    lastModified_ = time;
}

void SpooledContent::publish() {
    auto const upload = makeUpload_();
    if (lastModified_) {
        upload->setLastModified(*lastModified_);
    }
    append(spool_, *upload);
    upload->finish();
}

AppendedContent::AppendedContent(std::shared_ptr<Bucket const> bucket,
                                 std::shared_ptr<RequestThreads> threads, std::string bucketName,
                                 std::string key, std::uint64_t oldSize, spool::Content spool)
    : bucket_(std::move(bucket)),
      threads_(std::move(threads)),
      bucketName_(std::move(bucketName)),
      key_(std::move(key)),
      oldSize_(oldSize),
      spool_(std::move(spool)) {}

std::size_t AppendedContent::read(std::uint64_t, std::span<char>) {
    throw web::Failure(ErrorCode::PermissionDenied, "the stream is open for writing only");
}

void AppendedContent::write(std::uint64_t, std::span<char const> bytes) {
    spool_.write(spool_.size(), bytes.data(), bytes.size());
}

void AppendedContent::setLastModified(Timestamp) {
    // It is made by openReplacement() alone that a file gets a time of the caller's.
}

void AppendedContent::publish() {
    auto const head = bucket_->head(key_, bucket_->deadline());
    if (!head) {
        throw web::Failure(ErrorCode::ResourceNotFound, "the file is gone that is appended to");
    }
    Upload upload(bucket_, threads_, key_, likenessOf(*head).conditions);
    if (head->size >= Upload::smallestPart) {
        upload.startWith({bucket_, bucketName_, key_, *head});
    } else {
        std::vector<char> old(static_cast<std::size_t>(head->size));
        ObjectHead const got = bucket_->read(key_, 0, old, head->eTag, bucket_->deadline());
        if (!isSameVersion(got, *head)) {
            throw web::Failure(ErrorCode::ResourceInUse, "the file changes while it is read");
        }
        upload.append(old);
    }
    append(spool_, upload);
    upload.finish();
}

} // namespace foundation::storage::provider::s3::detail
