// What takes a file from one place to another within the store.

#include <foundation/storage/provider/s3/detail/object_time.hpp>
#include <foundation/storage/provider/s3/detail/translation.hpp>
#include <foundation/storage/provider/s3/detail/upload.hpp>
#include <foundation/storage/provider/s3/s3_provider.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/provider/streaming_copy.hpp>

#include <utility>

namespace foundation::storage::provider::s3 {

using detail::translated;

namespace {

/// Above this size the protocol has no copy in one request.
constexpr std::uint64_t largestCopy = std::uint64_t{5} * 1024 * 1024 * 1024;

[[noreturn]] void fail(ErrorCode code, StorageIRI const& location) {
    throw Exception(code, location);
}

bool replaces(ReplacementPolicy policy) noexcept {
    return policy != ReplacementPolicy::FailIfExists && policy != ReplacementPolicy::KeepExisting;
}

} // namespace

/// Whether the store can copy from there to here by itself: the same one, asked by the same.
bool S3Provider::sharesStoreWith(S3Provider const& other) const {
    S3Options const& own = bucket_->options();
    S3Options const& others = other.bucket_->options();
    return own.endpoint == others.endpoint && own.region == others.region &&
           own.credentials.accessKey == others.credentials.accessKey &&
           own.credentials.secretKey == others.credentials.secretKey &&
           own.credentials.sessionToken == others.credentials.sessionToken;
}

void S3Provider::copyObject(ItemKey const& source, detail::ObjectHead const& head,
                            S3Provider const& destination, ItemKey const& key, bool onlyIfMissing,
                            StorageIRI const& target, CopyProgress const& progress) const {
    detail::Bucket const& bucket = *destination.bucket_;
    std::string const from = name_ + '/' + source.file;
    if (head.size <= largestCopy) {
        if (progress && !progress(head.size, head.size)) {
            fail(ErrorCode::IOError, target);
        }
        bucket.copy(from, key.file, {.onlyIfMissing = onlyIfMissing}, head.eTag, bucket.deadline());
        return;
    }
    auto const upload = destination.makeUpload(
        key, {.onlyIfMissing = onlyIfMissing, .metadata = detail::metadataOf(head)});
    upload->startWith(from, head.eTag, head.size, [&](std::uint64_t done) {
        if (progress && !progress(done, head.size)) {
            fail(ErrorCode::IOError, target);
        }
    });
    // Some stores look at the tag for whole objects alone.
    auto const now = bucket_->head(source.file, bucket_->deadline());
    if (!now || now->eTag != head.eTag) {
        throw web::Failure(ErrorCode::IOError, "the file has changed while it was copied");
    }
    upload->finish();
}

CopyStatus S3Provider::copyFile(StorageIRI const& source, StorageItem const& destination,
                                CopyFileOptions const& options) {
    auto* const other = dynamic_cast<S3Provider*>(destination.getProvider().get());
    if (!other || !sharesStoreWith(*other)) {
        return copyFileByStreams(*this, source, destination, options);
    }
    StorageIRI const target = destination.getLocation();
    ItemKey const from = keyOf(source);
    ItemKey const to = other->keyOf(target);
    detail::ObjectHead const head = translated(source, [&] { return headOf(from, source); });
    if (name_ == other->name_ && from == to) {
        fail(ErrorCode::InvalidLocation, source);
    }
    translated(target, [&] {
        auto const lock = other->locks_.lock(to.file);
        other->placeForFile(to, target, options.policy);
        copyObject(from, head, *other, to, !replaces(options.policy), target, options.progress);
        other->folders_.keep(to.parent().file);
    });
    return head.headers.find("x-amz-meta-mtime") ? CopyStatus::CopiedWithTimes : CopyStatus::Copied;
}

void S3Provider::moveFile(StorageIRI const& source, StorageIRI const& destination,
                          ReplacementPolicy const& policy) {
    if (destination.getSchemeView() != home_.getSchemeView() ||
        destination.getAuthorityView() != home_.getAuthorityView()) {
        fail(ErrorCode::UnsupportedOperation, destination);
    }
    ItemKey const from = keyOf(source);
    ItemKey const to = keyOf(destination);
    auto const lock = locks_.lock(from.file, to.file);
    detail::ObjectHead const head = translated(source, [&] { return headOf(from, source); });
    if (from == to) {
        fail(ErrorCode::InvalidLocation, source);
    }
    translated(destination, [&] {
        placeForFile(to, destination, policy);
        copyObject(from, head, *this, to, !replaces(policy), destination, {});
        folders_.keep(to.parent().file);
    });
    translated(source, [&] {
        bucket_->remove(from.file, bucket_->deadline());
        folders_.forget(from.parent().file);
    });
}

} // namespace foundation::storage::provider::s3
