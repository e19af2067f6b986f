// What copies a file within the store, and gives it a time.

#include <foundation/storage/provider/s3/detail/likeness.hpp>
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

/// What gives an object that is copied onto itself a time. Throws where the rest would be lost.
detail::PutConditions conditionsWith(Timestamp time, detail::ObjectHead const& head,
                                     StorageIRI const& location) {
    detail::Likeness likeness = likenessOf(head);
    if (!likeness.isComplete) {
        throw Exception(ErrorCode::UnsupportedOperation, location);
    }
    setTime(likeness.conditions, time);
    return std::move(likeness.conditions);
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

/// What cannot be told in a request, the store takes from the source by itself where it copies at
/// once, and then all of it, without a time that is told nowhere. A copy by parts does without it.
detail::PutConditions S3Provider::conditionsFor(detail::ObjectHead const& head,
                                                bool onlyIfMissing) const {
    detail::Likeness likeness = likenessOf(head);
    if (likeness.isComplete || !isCopiedAtOnce(head.size)) {
        setTime(likeness.conditions, timeOf(head));
    } else {
        likeness.conditions = {};
    }
    likeness.conditions.onlyIfMissing = onlyIfMissing;
    return std::move(likeness.conditions);
}

S3Provider::Deadline S3Provider::deadlineBehindCopy(std::uint64_t size,
                                                    Deadline const& deadline) const {
    return isCopiedAtOnce(size) ? deadline : bucket_->deadline();
}

std::unique_ptr<detail::Upload>
S3Provider::startCopy(ItemKey const& source, detail::ObjectHead const& head,
                      S3Provider const& destination, ItemKey const& key,
                      detail::PutConditions const& conditions,
                      std::function<void(std::uint64_t)> const& progress) const {
    if (isCopiedAtOnce(head.size)) {
        return nullptr;
    }
    auto upload = destination.makeUpload(key, conditions);
    upload->startWith({bucket_, name_, source.file, head}, progress);
    return upload;
}

void S3Provider::finishCopy(std::unique_ptr<detail::Upload> upload, ItemKey const& source,
                            detail::ObjectHead const& head, S3Provider const& destination,
                            ItemKey const& key, detail::PutConditions const& conditions,
                            Deadline const& deadline) const {
    Change const change(destination.heads_, key.file);
    if (upload) {
        upload->finish();
        return;
    }
    destination.bucket_->copy(name_ + '/' + source.file, key.file, conditions, head.eTag, deadline);
}

void S3Provider::copyObject(ItemKey const& source, detail::ObjectHead const& head,
                            S3Provider const& destination, ItemKey const& key,
                            detail::PutConditions const& conditions,
                            Deadline const& deadline) const {
    finishCopy(startCopy(source, head, destination, key, conditions, {}), source, head, destination,
               key, conditions, deadline);
}

bool S3Provider::isCopiedAtOnce(std::uint64_t size) const {
    return size <= bucket_->options().largestCopy;
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
    Deadline const deadline = bucket_->deadline();
    detail::ObjectHead const head =
        translated(source, [&] { return headOf(from, source, deadline); });
    if (name_ == other->name_ && from == to) {
        throw Exception(ErrorCode::InvalidLocation, source);
    }
    auto const conditions = conditionsFor(head, !replaces(options.policy));
    auto const tell = [&](std::uint64_t done) {
        if (options.progress && !options.progress(done, head.size)) {
            throw Exception(ErrorCode::IOError, target);
        }
    };
    detail::translatedCopy(source, target, [&] {
        // All that is told and all that takes long comes before the lock. Told before it shows, as
        // every copy does: who cancels finds what was there.
        if (isCopiedAtOnce(head.size)) {
            tell(head.size);
        } else {
            other->placeForFile(to, target, options.policy, deadline);
        }
        auto upload = startCopy(from, head, *other, to, conditions, tell);
        Deadline const behind = deadlineBehindCopy(head.size, deadline);
        auto const lock = other->locks_.lock(behind, {to.file});
        other->placeForFile(to, target, options.policy, behind);
        std::uint64_t const before = other->folders_.changes();
        finishCopy(std::move(upload), from, head, *other, to, conditions, behind);
        other->folders_.keep(to.parent().file, before);
    });
    return conditions.metadata.empty() ? CopyStatus::Copied : CopyStatus::CopiedWithTimes;
}

void S3Provider::setLastModified(StorageIRI const& location, boost::posix_time::ptime const& time) {
    ItemKey const key = keyOf(location);
    Timestamp const timestamp = toTimestamp(time);
    translated(location, [&] {
        if (key.isRoot()) {
            throw Exception(ErrorCode::UnsupportedOperation, location);
        }
        Deadline const deadline = bucket_->deadline();
        auto const lock = locks_.lock(deadline, {key.file, key.folder()});
        if (auto const head = bucket_->head(key.file, deadline)) {
            copyObject(key, *head, *this, key, conditionsWith(timestamp, *head, location),
                       deadline);
            return;
        }
        if (!key.canBeFolder()) {
            throw Exception(ErrorCode::ResourceNotFound, location);
        }
        ItemKey const marker{key.folder()};
        auto const head = bucket_->head(marker.file, deadline);
        if (head && head->size > 0) { // whoever keeps bytes there keeps them
            copyObject(marker, *head, *this, marker, conditionsWith(timestamp, *head, location),
                       deadline);
            return;
        }
        if (!isFolder(key, deadline)) {
            throw Exception(ErrorCode::ResourceNotFound, location);
        }
        detail::PutConditions conditions;
        setTime(conditions, timestamp);
        Change const change(heads_, marker.file);
        bucket_->put(marker.file, {}, conditions, deadline);
    });
}

} // namespace foundation::storage::provider::s3
