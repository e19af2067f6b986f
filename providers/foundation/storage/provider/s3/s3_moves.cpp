// What takes a file or folder from one place to another within a bucket.

#include <foundation/storage/provider/s3/detail/in_flight.hpp>
#include <foundation/storage/provider/s3/detail/key_pages.hpp>
#include <foundation/storage/provider/s3/detail/key_removal.hpp>
#include <foundation/storage/provider/s3/detail/translation.hpp>
#include <foundation/storage/provider/s3/s3_provider.hpp>

#include <algorithm>
#include <deque>
#include <utility>

namespace foundation::storage::provider::s3 {

using detail::ListedObject;
using detail::SourceFailure;
using detail::translated;
using detail::translatedCopy;

namespace {

/// A path below a folder; empty where it is not below it.
std::string_view pathBelow(std::string_view folder, std::string_view path) {
    return path.starts_with(folder) ? path.substr(folder.size()) : std::string_view();
}

SourceFailure changed() {
    return {ErrorCode::IOError, "it has changed while it was moved"};
}

bool isSame(ListedObject const& one, ListedObject const& other) noexcept {
    return one.key == other.key && one.eTag == other.eTag && one.size == other.size &&
           one.lastModified == other.lastModified;
}

} // namespace

void S3Provider::moveFile(StorageIRI const& source, StorageIRI const& destination,
                          ReplacementPolicy const& policy) {
    if (!isOwn(destination)) {
        throw Exception(ErrorCode::UnsupportedOperation, destination);
    }
    ItemKey const from = keyOf(source);
    ItemKey const to = keyOf(destination);
    translated(source, [&] {
        Deadline const deadline = bucket_->deadline();
        auto const lock = locks_.lock(deadline, {from.file, to.file});
        detail::ObjectHead const head = headOf(from, source, deadline);
        if (from == to) {
            throw Exception(ErrorCode::InvalidLocation, source);
        }
        translatedCopy(source, destination, [&] {
            placeForFile(to, destination, policy, deadline);
            std::uint64_t const before = folders_.changes();
            copyObject(from, head, *this, to, conditionsFor(head, !replaces(policy)), deadline);
            folders_.keep(to.parent().file, before);
        });
        Change const change(heads_, from.file);
        Deadline const behind = deadlineBehindCopy(head.size, deadline);
        auto const now = bucket_->head(from.file, behind);
        if (now && !isSameVersion(*now, head)) {
            throw changed();
        }
        detail::FolderMemory::Removal const removal(folders_, from.parent().file);
        bucket_->remove(from.file, behind);
    });
}

void S3Provider::checkFolderMove(MovedFolder const& from, MovedFolder const& to,
                                 ReplacementPolicy policy, Deadline const& deadline) const {
    if (!isFolder(from.key, deadline)) {
        throw Exception(bucket_->head(from.key.file, deadline) ? ErrorCode::InvalidLocation
                                                               : ErrorCode::ResourceNotFound,
                        from.location);
    }
    if (from.key == to.key) {
        throw Exception(ErrorCode::InvalidLocation, from.location);
    }
    if (to.key.file.starts_with(from.key.folder())) {
        throw Exception(ErrorCode::InvalidLocation, to.location);
    }
    translated(to.location, [&] {
        // A caller who copies instead would copy the tree into itself.
        std::string_view const way = pathBelow(to.key.folder(), from.key.file);
        if (!way.empty() && isFolder({from.key.folder() + std::string(way)}, deadline)) {
            throw Exception(ErrorCode::InvalidLocation, to.location);
        }
        Standing const standing = lookUp(to.key, deadline);
        if (standing.isNothing()) {
            requireFolderOf(to.key, to.location, deadline);
            return;
        }
        if (!replaces(policy)) {
            throw Exception(ErrorCode::ResourceAlreadyExists, to.location);
        }
        if (standing.file) {
            throw Exception(ErrorCode::InvalidLocation, to.location);
        }
        auto const first = detail::firstKeys(*bucket_, to.key.folder(), 2, deadline);
        if (first.size() > 1 || (first.size() == 1 && first.front().key != to.key.folder())) {
            throw Exception(ErrorCode::FolderNotEmpty, to.location);
        }
    });
}

void S3Provider::moveFolder(StorageIRI const& source, StorageIRI const& destination,
                            ReplacementPolicy const& policy) {
    if (!isOwn(destination)) {
        throw Exception(ErrorCode::UnsupportedOperation, destination);
    }
    MovedFolder const from{keyOf(source), source};
    MovedFolder const to{keyOf(destination), destination};
    if (from.key.isRoot()) { // the root stays
        throw Exception(from.key == to.key ? ErrorCode::InvalidLocation : ErrorCode::ResourceInUse,
                        source);
    }
    translated(source, [&] {
        Deadline const deadline = bucket_->deadline();
        // What is written below either end meanwhile comes behind the move.
        auto const lock = locks_.lock(deadline, {from.key.file, to.key.file},
                                      {from.key.folder(), to.key.folder()});
        checkFolderMove(from, to, policy, deadline);
        Change const change(heads_);
        detail::FolderMemory::Removal const removal(folders_, from.key.file);
        detail::FolderMemory::Removal const arrival(folders_, to.key.file);
        moveKeys(from, to);
    });
}

/// A page of keys after the other: all of it is copied before any of it is removed.
void S3Provider::moveKeys(MovedFolder const& from, MovedFolder const& to) {
    std::string const folder = from.key.folder();
    detail::KeyRemoval removal(bucket_, *threads_);
    detail::KeyPages pages(*bucket_, folder, bucket_->options().pageSize);
    std::string before;
    while (!pages.isAtEnd() && !removal.hasFailed()) {
        auto const page = pages.next(bucket_->deadline());
        if (page.empty()) {
            continue;
        }
        copyKeys(page, from, to);
        requireUnchanged(page, from, before, pages.isAtEnd());
        before = page.back().key;
        std::vector<std::string> keys;
        keys.reserve(page.size());
        for (ListedObject const& object : page) {
            keys.push_back(object.key);
        }
        removal.remove(std::move(keys));
    }
    if (auto const left = removal.finish()) {
        throw Exception(left->code, detail::itemBelow(from.location, folder, left->key),
                        left->text);
    }
}

void S3Provider::copyKeys(std::vector<ListedObject> const& page, MovedFolder const& from,
                          MovedFolder const& to) const {
    std::string const folder = from.key.folder();
    auto const targetOf = [&](ListedObject const& object) {
        return to.key.folder() + object.key.substr(folder.size());
    };
    if (std::any_of(page.begin(), page.end(), [&](ListedObject const& object) {
            return targetOf(object).size() > detail::longestKey;
        })) {
        throw Exception(ErrorCode::InvalidLocation, to.location);
    }
    auto const copying = [&](ListedObject const& object, auto const& call) {
        translatedCopy(detail::itemBelow(from.location, folder, object.key),
                       detail::itemBelow(to.location, to.key.folder(), targetOf(object)), call);
    };
    detail::InFlight<void> inFlight;
    std::deque<ListedObject const*> asked;
    auto const takeOldest = [&] {
        ListedObject const& oldest = *asked.front();
        asked.pop_front();
        copying(oldest, [&] { inFlight.take(); });
    };
    for (ListedObject const& object : page) {
        if (!isCopiedAtOnce(object.size)) {
            copying(object, [&] {
                auto const head = bucket_->head(object.key, bucket_->deadline());
                if (!head || head->eTag != object.eTag) {
                    throw changed();
                }
                copyObject({object.key}, *head, *this, {targetOf(object)},
                           conditionsFor(*head, false), bucket_->deadline());
            });
            continue;
        }
        while (inFlight.size() >= bucket_->options().concurrency) {
            takeOldest();
        }
        asked.push_back(&object);
        inFlight.add(*threads_, [bucket = bucket_, source = name_ + '/' + object.key,
                                 target = targetOf(object), eTag = object.eTag] {
            bucket->copy(source, target, {}, eTag, bucket->deadline());
        });
    }
    while (!inFlight.isEmpty()) {
        takeOldest();
    }
}

void S3Provider::requireUnchanged(std::vector<ListedObject> const& page, MovedFolder const& from,
                                  std::string const& before, bool isLast) const {
    std::string const folder = from.key.folder();
    detail::KeyPages again(*bucket_, folder, bucket_->options().pageSize, before);
    auto expected = page.begin();
    while (!again.isAtEnd() && (isLast || expected != page.end())) {
        for (ListedObject const& object : again.next(bucket_->deadline())) {
            // What is gone is gone; what is new or another one was not copied.
            expected = std::find_if(expected, page.end(), [&](ListedObject const& known) {
                return known.key >= object.key;
            });
            if (expected == page.end() && !isLast) {
                return;
            }
            if (expected == page.end() || !isSame(*expected, object)) {
                throw Exception(ErrorCode::IOError,
                                detail::itemBelow(from.location, folder, object.key),
                                changed().what());
            }
            ++expected;
        }
    }
}

} // namespace foundation::storage::provider::s3
