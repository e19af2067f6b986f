// What takes a file or folder from one place to another within the store, and gives it a time.

#include <foundation/storage/provider/s3/detail/in_flight.hpp>
#include <foundation/storage/provider/s3/detail/key_pages.hpp>
#include <foundation/storage/provider/s3/detail/key_removal.hpp>
#include <foundation/storage/provider/s3/detail/object_time.hpp>
#include <foundation/storage/provider/s3/detail/translation.hpp>
#include <foundation/storage/provider/s3/detail/upload.hpp>
#include <foundation/storage/provider/s3/s3_provider.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/provider/streaming_copy.hpp>

#include <algorithm>
#include <exception>
#include <utility>
#include <vector>

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

/// What a copy gets beside the bytes. Where that cannot be told, the store takes it from the
/// source, but for a time that is told nowhere.
detail::PutConditions conditionsFor(detail::ObjectHead const& head, bool onlyIfMissing) {
    detail::PutConditions conditions =
        likenessOf(head, timeOf(head)).value_or(detail::PutConditions());
    conditions.onlyIfMissing = onlyIfMissing;
    return conditions;
}

/// A path below a folder; empty where it is not below it.
std::string_view pathBelow(std::string_view folder, std::string_view path) {
    return path.starts_with(folder) ? path.substr(folder.size()) : std::string_view();
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
                            ItemKey const& key, detail::PutConditions const& conditions) const {
    Change const change(destination.heads_, key.file);
    if (upload) {
        upload->finish();
        return;
    }
    detail::Bucket const& bucket = *destination.bucket_;
    bucket.copy(name_ + '/' + source.file, key.file, conditions, head.eTag, bucket.deadline());
}

void S3Provider::copyObject(ItemKey const& source, detail::ObjectHead const& head,
                            S3Provider const& destination, ItemKey const& key,
                            detail::PutConditions const& conditions) const {
    finishCopy(startCopy(source, head, destination, key, conditions, {}), source, head, destination,
               key, conditions);
}

bool S3Provider::isCopiedAtOnce(std::uint64_t size) const {
    return size <=
           std::clamp(bucket_->options().largestCopy, detail::Upload::smallestPart, largestCopy);
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
    auto const conditions = conditionsFor(head, !replaces(options.policy));
    auto const tell = [&](std::uint64_t done) {
        if (options.progress && !options.progress(done, head.size)) {
            fail(ErrorCode::IOError, target);
        }
    };
    translated(target, [&] {
        // All that is told and all that takes long comes before the lock.
        if (isCopiedAtOnce(head.size)) {
            tell(head.size);
        } else {
            other->placeForFile(to, target, options.policy);
        }
        auto upload = startCopy(from, head, *other, to, conditions, tell);
        auto const lock = other->locks_.lock(to.file);
        other->placeForFile(to, target, options.policy);
        std::uint64_t const before = other->folders_.changes();
        finishCopy(std::move(upload), from, head, *other, to, conditions);
        other->folders_.keep(to.parent().file, before);
    });
    return conditions.metadata.empty() ? CopyStatus::Copied : CopyStatus::CopiedWithTimes;
}

void S3Provider::setLastModified(StorageIRI const& location, boost::posix_time::ptime const& time) {
    ItemKey const key = keyOf(location);
    Timestamp const timestamp = toTimestamp(time);
    translated(location, [&] {
        if (key.isRoot()) {
            fail(ErrorCode::UnsupportedOperation, location);
        }
        auto const lock = locks_.lock(key.file);
        if (auto const head = bucket_->head(key.file, bucket_->deadline())) {
            auto const likeness = likenessOf(*head, timestamp);
            if (!likeness) {
                fail(ErrorCode::UnsupportedOperation, location);
            }
            copyObject(key, *head, *this, key, *likeness);
            return;
        }
        auto const folderLock = locks_.lock(key.folder());
        if (auto const marker = bucket_->head(key.folder(), bucket_->deadline());
            marker && marker->size > 0) { // whoever keeps bytes there keeps them
            auto const likeness = likenessOf(*marker, timestamp);
            if (!likeness) {
                fail(ErrorCode::UnsupportedOperation, location);
            }
            copyObject({key.folder()}, *marker, *this, {key.folder()}, *likeness);
            return;
        }
        if (!isFolder(key)) {
            fail(ErrorCode::ResourceNotFound, location);
        }
        Change const change(heads_, key.folder());
        bucket_->put(key.folder(), {},
                     {.onlyIfMissing = false,
                      .metadata = {{std::string(detail::timeField), detail::timeText(timestamp)}}},
                     bucket_->deadline());
    });
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
        std::uint64_t const before = folders_.changes();
        copyObject(from, head, *this, to, conditionsFor(head, !replaces(policy)));
        folders_.keep(to.parent().file, before);
    });
    translated(source, [&] {
        Change const change(heads_, from.file);
        auto const now = bucket_->head(from.file, bucket_->deadline());
        if (now && !isSameVersion(*now, head)) {
            throw web::Failure(ErrorCode::IOError, "the file has changed while it was moved");
        }
        detail::FolderMemory::Removal const removal(folders_, from.parent().file);
        bucket_->remove(from.file, bucket_->deadline());
    });
}

void S3Provider::checkFolderMove(ItemKey const& from, StorageIRI const& source, ItemKey const& to,
                                 StorageIRI const& destination, ReplacementPolicy policy) const {
    translated(source, [&] {
        if (!isFolder(from)) {
            fail(bucket_->head(from.file, bucket_->deadline()) ? ErrorCode::InvalidLocation
                                                               : ErrorCode::ResourceNotFound,
                 source);
        }
    });
    if (from == to) {
        fail(ErrorCode::InvalidLocation, source);
    }
    if (to.file.starts_with(from.folder())) {
        fail(ErrorCode::InvalidLocation, destination);
    }
    translated(destination, [&] {
        // A caller who copies instead would copy the tree into itself.
        std::string_view const way = pathBelow(to.folder(), from.file);
        if (!way.empty() && isFolder({from.folder() + std::string(way)})) {
            fail(ErrorCode::InvalidLocation, destination);
        }
        Standing const standing = lookUp(to);
        if (standing.isNothing()) {
            requireFolderOf(to, destination);
            return;
        }
        if (!replaces(policy)) {
            fail(ErrorCode::ResourceAlreadyExists, destination);
        }
        if (standing.file) {
            fail(ErrorCode::InvalidLocation, destination);
        }
        auto const first = detail::firstKeys(*bucket_, to.folder(), 2, bucket_->deadline());
        if (first.size() > 1 || (first.size() == 1 && first.front().key != to.folder())) {
            fail(ErrorCode::FolderNotEmpty, destination);
        }
    });
}

void S3Provider::moveFolder(StorageIRI const& source, StorageIRI const& destination,
                            ReplacementPolicy const& policy) {
    if (destination.getSchemeView() != home_.getSchemeView() ||
        destination.getAuthorityView() != home_.getAuthorityView()) {
        fail(ErrorCode::UnsupportedOperation, destination);
    }
    ItemKey const from = keyOf(source);
    ItemKey const to = keyOf(destination);
    if (from.isRoot()) { // the root stays
        fail(from == to ? ErrorCode::InvalidLocation : ErrorCode::ResourceInUse, source);
    }
    checkFolderMove(from, source, to, destination, policy);
    translated(destination, [&] {
        Change const change(heads_);
        detail::FolderMemory::Removal const removal(folders_, from.file);
        detail::FolderMemory::Removal const arrival(folders_, to.file);
        moveKeys(from.folder(), to.folder());
    });
}

/// A page of keys after the other: all of it is copied before any of it is removed.
void S3Provider::moveKeys(std::string const& from, std::string const& to) {
    detail::KeyRemoval removal(bucket_, *threads_);
    detail::KeyPages pages(*bucket_, from, bucket_->options().pageSize);
    while (!pages.isAtEnd() && !removal.hasFailed()) {
        detail::InFlight<void> inFlight;
        std::exception_ptr failure;
        auto const takeOldest = [&] {
            try {
                inFlight.take();
            } catch (...) {
                failure = failure ? failure : std::current_exception();
            }
        };
        std::vector<std::string> keys;
        for (detail::ListedObject const& object : pages.next(bucket_->deadline())) {
            std::string const target = to + object.key.substr(from.size());
            if (failure) {
                break;
            }
            if (target.size() > detail::longestKey) {
                failure = std::make_exception_ptr(
                    web::Failure(ErrorCode::InvalidLocation, "a key would be too long"));
                break;
            }
            keys.push_back(object.key);
            if (!isCopiedAtOnce(object.size)) {
                auto const head = bucket_->head(object.key, bucket_->deadline());
                if (head && head->eTag == object.eTag) {
                    copyObject({object.key}, *head, *this, {target}, conditionsFor(*head, false));
                } else {
                    failure = std::make_exception_ptr(web::Failure(
                        ErrorCode::IOError, "the file has changed while it was moved"));
                }
                continue;
            }
            while (inFlight.size() >= bucket_->options().concurrency) {
                takeOldest();
            }
            inFlight.add([&] {
                return threads_->ask([bucket = bucket_, source = name_ + '/' + object.key, target,
                                      eTag = object.eTag] {
                    bucket->copy(source, target, {}, eTag, bucket->deadline());
                });
            });
        }
        while (!inFlight.isEmpty()) {
            takeOldest();
        }
        if (failure) {
            std::rethrow_exception(failure);
        }
        removal.remove(std::move(keys));
    }
    if (auto const left = removal.finish()) {
        throw web::Failure(left->code, left->text);
    }
}

} // namespace foundation::storage::provider::s3
